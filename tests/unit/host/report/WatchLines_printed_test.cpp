// What watch prints of a fixed sequence of events, compared byte by byte with what it printed
// before: lines, JSON records, balance and metrics. With TEVMON_RECORD_PRINTED set the files are
// written.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>

#include "host/event/EventMessage.h"
#include "tests/support/FileText.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/unit/host/report/ReportedRun.h"

namespace {

class WatchLinesPrintedTest : public testing::Test {
protected:
    // All that the report can be called with. Files lie in the test's own directory.
    void Happen(ReportedRun& report) {
        const std::string strProgram = m_dir.WriteFile("bin/program", "x", 0755);
        const std::string strBad = m_dir.WriteFile("bin/bad", "y", 0755);
        const std::string strGone = m_dir.Path() + "/bin/gone";
        report.Begin("libtevmon.so");
        PassInfo pass;
        pass.strUnit = "batch";
        pass.strName = "the kernel of this machine";
        report.BeginPass(pass);
        report.OnNotice("a place cannot be watched");
        Start(report, strProgram, strBad, strGone);
        Touch(report, strProgram, strBad);
        Lose(report);
        report.AskForBalance();
        report.EndPass(true);
        RunEnd end;
        end.queueDepth = 1;
        end.bDrained = true;
        end.nSignal = 2;
        report.Summary(end);
    }

    std::string Usual(std::string strText) const {
        for (size_t nPos = 0; (nPos = strText.find(m_dir.Path(), nPos)) != std::string::npos;) {
            strText.replace(nPos, m_dir.Path().size(), "@");
        }
        const std::pair<const char*, const char*> VARIABLE[] = {
            {R"re(\b\d\d:\d\d:\d\d\b)re", "HH:MM:SS"},
            {R"re("time":\d+)re", "\"time\":0"},
            {R"re("([a-z_]*seconds)":[\d.]+)re", "\"$1\":0"},
            {R"re(\b\d+(\.\d+)? s\b)re", "N s"},
            {R"re((start_time_seconds) \d+)re", "$1 0"},
            {R"re((\d+ B) at [\d.]+ ([KMGT]i)?B/s)re", "$1"},
        };
        for (const auto& variable : VARIABLE) {
            strText = std::regex_replace(strText, std::regex(variable.first), variable.second);
        }
        return strText;
    }

    static void Compare(const std::string& strName, const std::string& strNow) {
        const std::string strFile =
            std::string(TEV_SOURCE_DIR) + "/tests/data/printed/" + strName + ".txt";
        if (std::getenv("TEVMON_RECORD_PRINTED") != nullptr) {
            std::ofstream(strFile) << strNow;
        }
        EXPECT_EQ(FileText(strFile), strNow);
    }

    TestDir m_dir;
    VerdictService m_service;
    HostOptions m_options;

private:
    static void Launched(ReportedRun& report, const std::string& strPath, LaunchPathOrigin eOrigin,
                         bool bScript) {
        Launch launch;
        launch.creation = {strPath, strPath + " -x \"\n\"", 4711};
        launch.strStarter = "/bin/shell";
        launch.eOrigin = eOrigin;
        launch.bScript = bScript;
        launch.bArgsCut = bScript;
        report.OnLaunch(launch);
    }

    static void Query(ReportedRun& report, const std::string& strPath, const char* pszFunc,
                      const char* pszEvent, QueryFate eFate, const Verdict& verdict) {
        CloudQuery query;
        query.strPath = strPath;
        query.strFunc = pszFunc;
        query.strEvent = pszEvent;
        query.strKey = eFate == QUERY_NO_KEY ? "" : "0123";
        report.OnQuery(query, eFate, verdict);
    }

    static EventBatch Batch(uint64_t nNumber, uint64_t nEvents, const std::string& strBody) {
        EventBatch batch;
        batch.nNumber = nNumber;
        batch.nEvents = nEvents;
        batch.strBody = strBody;
        return batch;
    }

    static void Start(ReportedRun& report, const std::string& strProgram, const std::string& strBad,
                      const std::string& strGone) {
        Launched(report, strProgram, LAUNCH_PATH_INVOKED, false);
        Launched(report, strBad, LAUNCH_PATH_RESOLVED, true);
        Launched(report, strGone, LAUNCH_PATH_PROC, false);
        Launched(report, "/bin/a\x1b[1mb", LAUNCH_PATH_INVOKED, false);
        LaunchEvent unresolvable;
        unresolvable.strName = "./removed";
        unresolvable.nPid = 4712;
        report.OnUnresolved(unresolvable);
        const std::vector<std::string> paths = {strProgram, strBad, strGone, "/bin/a"};
        const EventBatch batch = Batch(1, 4, event_message::ProcessCreations(paths));
        report.OnReported(batch);
        report.OnDelivered(batch, 0);
        LaunchCounters counters;
        counters.nCaptured = 11;
        counters.nReported = 5;
        counters.nScripts = 1;
        counters.nUnresolved = 1;
        counters.nLost = 3;
        counters.nOwn = 1;
        counters.nBroken = 1;
        counters.nScriptsUnreported = 1;
        counters.nArgsCut = counters.nArgsUnreadable = counters.nOthersLost = 1;
        report.OnCounters(counters);
        report.OnModuleNote({NOTE_ANALYSED, batch.strBody});
        Query(report, strProgram, "cloudad", "CreateProcess", QUERY_ANSWERED,
              {10, "packages", "coreutils"});
        Query(report, strBad, "cloudad", "CreateProcess", QUERY_ANSWERED,
              {70, "bad list bad.list", "evil"});
        report.OnModuleNote({NOTE_STAT_FAILED, strGone, EXPECTED_LAUNCH});
        Query(report, "/bin/a", "cloudad", "CreateProcess", QUERY_ANSWERED, {40, "none", ""});
        Query(report, "/bin/b", "cloudad", "CreateProcess", QUERY_KNOWN, {20, "good list", "b"});
        Query(report, "", "", "", QUERY_UNREADABLE, {});
        Query(report, "/bin/c", "cloudad", "CreateProcess", QUERY_NOT_DELIVERED, {});
        report.OnModuleNote({NOTE_CACHED, strBad, EXPECTED_LAUNCH});
        report.OnModuleNote({NOTE_UNREADABLE, "/bin/d", EXPECTED_LAUNCH});
        report.OnModuleNote({NOTE_NOT_SENT, "", EXPECTED_NONE});
    }

    static void Touch(ReportedRun& report, const std::string& strProgram,
                      const std::string& strBad) {
        std::vector<FileOperation> operations;
        for (const FileAct eAct : {FILE_CREATE, FILE_WRITE, FILE_RENAME, FILE_REMOVE}) {
            FileOperation operation;
            operation.eAct = eAct;
            operation.strPath =
                eAct == FILE_CREATE ? "/etc/systemd/system/x.service" : "/etc/cron.d/x";
            operation.strProgram = eAct == FILE_WRITE ? strBad : strProgram;
            operation.strProgramName = "/usr" + operation.strProgram;
            operation.strFsType = "ext4";
            operation.nInode = 4713;
            operation.nPid = 4714;
            operation.bPlace = true;
            operation.tmWhen = 4715;
            report.OnOperation(operation);
            operations.push_back(operation);
        }
        const EventBatch batch = Batch(2, 4, event_message::OperationsOf(operations));
        report.OnReported(batch);
        report.OnDelivered(batch, 0);
        FileCounters counters;
        counters.nCaptured = 7;
        counters.nOwn = counters.nUnwatched = counters.nUnresolved = 1;
        counters.nReported = 4;
        counters.nNoProgram = counters.nFound = counters.nGone = counters.nOverflows =
            counters.nBroken = 1;
        counters.nEvents = 9;
        counters.nCaptureMicros = 1500000;
        report.OnFileCounters(counters);
        report.OnModuleNote({NOTE_ANALYSED, batch.strBody});
        Query(report, strProgram, "cloudfs", "AddAutoRuns", QUERY_ANSWERED,
              {10, "packages", "coreutils"});
        report.OnModuleNote({NOTE_CACHED, "/etc/cron.d/x", EXPECTED_FILE, "write"});
        Query(report, "/etc/cron.d/x", "cloudfd", "FileRename", QUERY_NO_KEY, {});
    }

    static void Lose(ReportedRun& report) {
        const std::string strBody = event_message::ProcessCreations({"/bin/e"});
        report.OnReported(Batch(3, 1, strBody));
        report.OnDelivered(Batch(3, 1, strBody), 1);
        report.OnReported(Batch(4, 1, strBody));
        report.OnDelivered(Batch(4, 1, strBody), 0);
        report.OnLost(2, 2);
        report.OnLost(1, 3);
        report.OnOverflow(1, 1);
        report.OnRemark(7, "an input that is of no use");
        for (const QueueState eState : {QUEUE_HIGH, QUEUE_FULL, QUEUE_NORMAL}) {
            QueueLoad load;
            load.eState = eState;
            load.nRows = 200000;
            load.nBytes = 4096;
            load.nRefusedMessages = eState == QUEUE_HIGH ? 0 : 1;
            load.nRefusedEvents = load.nRefusedMessages;
            report.OnQueue(load);
        }
        report.OnCentre(3, 6);
    }
};

}  // namespace

TEST_F(WatchLinesPrintedTest, LinesAndBalance) {
    for (const bool bVerbose : {false, true}) {
        m_options.bVerbose = bVerbose;
        const StdoutCapture standardOutput;
        Console output;
        ReportedRun report(output, m_options, m_service, true);
        Happen(report);
        Compare(bVerbose ? "watch_verbose" : "watch", Usual(standardOutput.Text()));
    }
}

TEST_F(WatchLinesPrintedTest, JsonRecords) {
    m_options.bJson = true;
    const StdoutCapture standardOutput;
    Console output;
    ReportedRun report(output, m_options, m_service, true);
    Happen(report);
    Compare("watch_json", Usual(standardOutput.Text()));
}

TEST_F(WatchLinesPrintedTest, Metrics) {
    const StdoutCapture standardOutput;
    Console output;
    WatchOptions watch;
    watch.strMetricsFile = m_dir.Path() + "/metrics.prom";
    ReportedRun report(output, m_options, m_service, true, watch);
    Happen(report);
    Compare("watch_metrics", Usual(FileText(watch.strMetricsFile)));
}
