#include "host/report/WatchReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/event/EventMessage.h"
#include "tests/support/FileText.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;
using testing::Not;

namespace {

CloudQuery Query(const std::string& strPath) {
    CloudQuery query;
    query.strPath = strPath;
    query.strFunc = "cloudad";
    query.strKey = "key";
    query.strEvent = "CreateProcess";
    return query;
}

std::string FileMessage(const std::string& strOperation, const std::string& strPath,
                        const std::string& strProgram) {
    return R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":")" + strPath +
           R"(","exe_path":")" + strProgram + R"(","optertion":")" + strOperation + R"("}]})";
}

Launch Started(const std::string& strPath, const std::string& strStarter) {
    Launch launch;
    launch.creation = {strPath, strPath + " x", 4711};
    launch.strStarter = strStarter;
    launch.eOrigin = LAUNCH_PATH_INVOKED;
    return launch;
}

class WatchReportTest : public testing::Test {
protected:
    std::string LastLine() const {
        const auto lines = m_standardOutput.Lines();
        return lines.empty() ? "" : lines.back();
    }
    EventBatch Batch(uint64_t nNumber) const {
        EventBatch batch;
        batch.strBody = "{}";
        batch.nNumber = nNumber;
        batch.nEvents = 1;
        return batch;
    }
    EventBatch Launches(uint64_t nNumber, const std::string& strPath) const {
        EventBatch batch = Batch(nNumber);
        batch.strBody = event_message::ProcessCreations({strPath});
        return batch;
    }

    TestDir m_dir;
    const StdoutCapture m_standardOutput;
    Console m_output;
    HostOptions m_options;
    VerdictService m_service;
    WatchReport m_report{m_output, m_options, m_service};
};

}  // namespace

TEST_F(WatchReportTest, EveryVerdictHasALineThatNamesTheStarter) {
    m_report.OnLaunch(Started("/bin/a", "/bin/shell"));
    m_report.OnQuery(Query("/bin/a"), QUERY_ANSWERED, {10, "packages", "coreutils"});

    EXPECT_EQ("  packaged   10  launch       /bin/a  by /bin/shell  coreutils (packages)",
              LastLine().substr(8));
}

TEST_F(WatchReportTest, AFileOperationIsShownWithTheVerdictOnTheProgramThatDidIt) {
    m_report.OnModuleNote({NOTE_ANALYSED, FileMessage("create", "/etc/cron.d/x", "/bin/actor")});
    CloudQuery query;
    query.strPath = "/etc/cron.d/x";
    query.strFunc = "cloudfd";
    query.strEvent = "FileCreate";
    m_report.OnQuery(query, QUERY_NO_KEY, {});

    EXPECT_EQ("  unknown    40  FileCreate   /etc/cron.d/x  by /bin/actor", LastLine().substr(8));
}

TEST_F(WatchReportTest, ABadProgramIsShownEveryTimeAlsoWhenTheModuleSkipsIt) {
    const std::string strBad = m_dir.WriteFile("bad", "x", 0755);
    m_report.OnQuery(Query(strBad), QUERY_ANSWERED, {70, "block list", "x"});
    m_report.OnModuleNote({NOTE_CACHED, strBad, QUESTION_LAUNCH});
    EXPECT_EQ("  blocked    70  launch       " + strBad + "  x (block list)  cached",
              LastLine().substr(8));

    m_report.OnQuery(Query("/bin/good"), QUERY_ANSWERED, {10, "packages", "x"});
    const size_t nLines = m_standardOutput.Lines().size();
    m_report.OnModuleNote({NOTE_CACHED, "/bin/good", QUESTION_LAUNCH});
    EXPECT_EQ(nLines, m_standardOutput.Lines().size());
}

TEST_F(WatchReportTest, ABadProgramIsShownEveryTimeItTouchesAFile) {
    const std::string strBad = m_dir.WriteFile("bad", "x", 0755);
    m_report.OnQuery(Query(strBad), QUERY_ANSWERED, {70, "block list", "x"});
    m_report.OnModuleNote({NOTE_ANALYSED, FileMessage("write", "/etc/cron.d/x", strBad)});
    m_report.OnModuleNote({NOTE_CACHED, "/etc/cron.d/x", QUESTION_FILE, "write"});
    EXPECT_EQ(
        "  blocked    70  FileModify   /etc/cron.d/x  by " + strBad + "  x (block list)  cached",
        LastLine().substr(8));

    m_options.bJson = true;
    m_report.OnModuleNote({NOTE_ANALYSED, FileMessage("write", "/etc/cron.d/x", strBad)});
    m_report.OnModuleNote({NOTE_CACHED, "/etc/cron.d/x", QUESTION_FILE, "write"});
    EXPECT_THAT(LastLine(), HasSubstr(R"("path":")" + strBad +
                                      R"(","level":70,"what":"FileModify","file":"/etc/cron.d/x")"
                                      R"(,"cached":true})"));
}

TEST_F(WatchReportTest, ABadProgramHasARecordAlsoWhenItsQueryHasNoVerdictOfItsOwn) {
    m_options.bJson = true;
    m_report.OnQuery(Query("/bin/bad"), QUERY_ANSWERED, {70, "block list", "x"});
    EXPECT_THAT(LastLine(), Not(HasSubstr(R"("event":"bad")")));

    m_report.OnQuery(Query("/bin/bad"), QUERY_KNOWN, {70, "block list", "x"});
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"bad")"));
}

TEST_F(WatchReportTest, LossesAndUnresolvableLaunchesAreRecords) {
    LaunchEvent event;
    event.strName = "a\nb";
    m_report.OnUnresolvable(event);
    EXPECT_EQ("  unresolvable   launch       a\\x0Ab  no path names its file, so it is not judged",
              LastLine().substr(8));
    m_report.OnLost(3, 5);
    EXPECT_EQ(
        "  lost           launch       3 launches  the kernel's buffer was full; 5 since the start",
        LastLine().substr(8));

    m_options.bJson = true;
    m_report.OnLost(3, 5);
    EXPECT_THAT(LastLine(), HasSubstr(R"("launches":3,"total":5})"));
}

TEST_F(WatchReportTest, ALaunchIsAJsonRecord) {
    m_options.bJson = true;
    m_report.OnLaunch(Started("/bin/a", "/bin/shell"));

    EXPECT_THAT(LastLine(),
                HasSubstr(R"("path":"/bin/a","cmd":"/bin/a x","pid":4711,"starter":"/bin/shell")"
                          R"(,"origin":"invoked","script":false,"args_cut":false})"));
}

TEST_F(WatchReportTest, WhatIsOnItsWayIsUnexplainedOnlyAtTheEnd) {
    LaunchCounters counters;
    counters.nSensed = 3;
    counters.nPrograms = 1;
    m_report.OnCounters(counters);
    const EventBatch batch = Launches(1, m_dir.WriteFile("a", "x", 0755));
    m_report.OnBatch(batch, {});
    m_report.OnModuleNote({NOTE_ANALYSED, batch.strBody});

    EXPECT_EQ(0u, m_report.Numbers(false).Unexplained());
    EXPECT_EQ(3u, m_report.Numbers(true).Unexplained());  // two launches and one event
}

TEST_F(WatchReportTest, ACleanRunOfBothKindsLeavesNothingUnexplained) {
    const std::string strProgram = m_dir.WriteFile("a", "x", 0755);
    LaunchCounters launches;
    launches.nSensed = launches.nPrograms = 1;
    m_report.OnCounters(launches);
    FileCounters files;
    files.nSensed = 3;
    files.nElsewhere = 1;
    files.nTold = 2;
    m_report.OnFileCounters(files);
    const EventBatch batch = Launches(1, strProgram);
    m_report.OnBatch(batch, {});
    EventBatch interesting = Batch(2);
    interesting.strBody = FileMessage("remove", "/etc/cron.d/x", strProgram);
    m_report.OnOperations(interesting, {});
    EventBatch boring = Batch(3);
    boring.strBody = FileMessage("write", "/tmp/x", strProgram);
    m_report.OnOperations(boring, {});

    m_report.OnModuleNote({NOTE_ANALYSED, batch.strBody});
    m_report.OnQuery(Query(strProgram), QUERY_ANSWERED, {10, "packages", "x"});
    m_report.OnModuleNote({NOTE_ANALYSED, interesting.strBody});
    EXPECT_EQ(3u, m_report.Numbers(true).Delivered());
    EXPECT_EQ(1u, m_report.Numbers(true).Unexplained());
    m_report.OnModuleNote({NOTE_CACHED, "/etc/cron.d/x", QUESTION_FILE, "remove"});
    m_report.OnModuleNote({NOTE_ANALYSED, boring.strBody});

    EXPECT_EQ(0u, m_report.Numbers(true).Unexplained());
    EXPECT_EQ(1u, m_report.Numbers(true).events.nNoInterest);
}

TEST_F(WatchReportTest, AFileOperationThatWasNeverHandedOverIsUnexplained) {
    FileCounters files;
    files.nSensed = files.nTold = 1;
    m_report.OnFileCounters(files);

    EXPECT_EQ(1u, m_report.Numbers(false).Unexplained());
}

TEST_F(WatchReportTest, NumbersThatDoNotAddUpAreUnexplained) {
    LaunchCounters counters;
    counters.nSensed = 1;
    counters.nPrograms = 2;
    m_report.OnCounters(counters);

    EXPECT_EQ(3u, m_report.Numbers(false).Unexplained());  // one told twice, two not handed over
}

TEST_F(WatchReportTest, AMessageThatIsNotInTheQueueAtTheEndWasNotStored) {
    LaunchCounters counters;
    counters.nSensed = counters.nPrograms = 1;
    m_report.OnCounters(counters);
    m_report.OnBatch(Launches(1, "/bin/a"), {});
    RunEnd end;
    end.queueDepth = 0;

    m_report.Summary(end);

    EXPECT_EQ(1u, m_report.Numbers(true).events.nNotStored);
    EXPECT_EQ(0u, m_report.Numbers(true).Unexplained());
}

TEST_F(WatchReportTest, ARefusedMessageIsExplained) {
    LaunchCounters counters;
    counters.nSensed = counters.nPrograms = 1;
    m_report.OnCounters(counters);
    m_report.OnBatch(Launches(1, "/bin/a"), {});
    m_report.OnDelivered(Batch(1), 1);

    EXPECT_EQ(1u, m_report.Numbers(true).events.nRefused);
    EXPECT_EQ(0u, m_report.Numbers(true).Unexplained());
}

TEST_F(WatchReportTest, EventsThatTheModuleDidNotGetAreAnnouncedOnce) {
    m_options.bJson = true;
    m_report.OnBatch(Launches(1, "/bin/a"), {});
    m_report.OnDelivered(Batch(1), 1);
    m_report.Progress("delivering");
    m_report.Progress("delivering");

    ASSERT_EQ(1u, m_standardOutput.Lines().size());
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"refused")"));
    EXPECT_THAT(LastLine(), HasSubstr(R"("events":1,"total":1})"));

    m_report.OnBatch(Launches(2, "/bin/a"), {});
    m_report.OnBatch(Launches(3, "/bin/a"), {});
    RunEnd end;
    end.queueDepth = 0;
    m_report.Summary(end);

    const std::string strAnnounced = m_standardOutput.Lines().at(1);
    EXPECT_THAT(strAnnounced, HasSubstr(R"("event":"not_stored")"));
    EXPECT_THAT(strAnnounced, HasSubstr(R"("events":2,"total":2})"));
}

TEST_F(WatchReportTest, EventsThatTheModuleDidNotGetHaveALine) {
    m_report.OnBatch(Launches(1, "/bin/a"), {});
    m_report.OnDelivered(Batch(1), 1);
    m_report.Progress("delivering");

    EXPECT_THAT(LastLine(), HasSubstr("1 event"));
    EXPECT_THAT(LastLine(), HasSubstr("1 since the start"));
}

TEST_F(WatchReportTest, TheRecordingHasOneMessageALine) {
    const std::string strFile = m_dir.Path() + "/recording";
    {
        WatchOptions watch;
        watch.pRecord.reset(fopen(strFile.c_str(), "w"), fclose);
        WatchReport report(m_output, m_options, m_service, watch);
        report.OnBatch(Batch(1), {"/bin/a"});
        report.OnBatch(Batch(2), {"/bin/a"});
    }

    EXPECT_EQ("{}\n{}\n", FileText(strFile));
}

TEST_F(WatchReportTest, AFileOperationIsAJsonRecord) {
    m_options.bJson = true;
    FileOperation operation;
    operation.eAct = FILE_RENAME;
    operation.strPath = "/etc/cron.d/x";
    operation.strProgram = "/bin/mv";
    operation.strProgramName = "/usr/bin/mv";
    operation.strFsType = "ext4";
    operation.nPid = 4711;
    operation.bPlace = true;

    m_report.OnOperation(operation);

    EXPECT_THAT(LastLine(), HasSubstr(R"("op":"rename","path":"/etc/cron.d/x","program":"/bin/mv",)"
                                      R"("program_name":"/usr/bin/mv","pid":4711,"fs":"ext4",)"
                                      R"("place":true,"pipe":false})"));
}

TEST_F(WatchReportTest, AQueueThatWasFullIsTold) {
    m_report.OnOverflow(1, 2);
    EXPECT_EQ(
        "  lost           file operations, the kernel's queue was full; 2 times since the start",
        LastLine().substr(8));

    m_options.bJson = true;
    m_report.OnOverflow(1, 3);
    EXPECT_THAT(LastLine(), HasSubstr(R"("times":1,"total":3})"));
}

TEST_F(WatchReportTest, TheMetricsFileHasTheLastNumbers) {
    WatchOptions watch;
    watch.strMetricsFile = m_dir.Path() + "/metrics.prom";
    WatchReport report(m_output, m_options, m_service, watch);
    report.Begin("module");
    LaunchCounters counters;
    counters.nSensed = counters.nLost = 4711;
    report.OnCounters(counters);
    report.Summary(RunEnd());

    EXPECT_THAT(FileText(watch.strMetricsFile),
                HasSubstr("tevmon_sensed_fate_total{source=\"launch\",fate=\"lost\"} 4711\n"));
}
