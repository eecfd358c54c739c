// A run's journal with the listeners that the command line would have, for tests to let things
// happen in it.
#ifndef TESTS_UNIT_HOST_REPORT_REPORTEDRUN_H
#define TESTS_UNIT_HOST_REPORT_REPORTEDRUN_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host/account/RunJournal.h"
#include "host/report/RunListeners.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

class ReportedRun : private IRunListener {
public:
    // bWatch: as watch has it, else as scan and replay.
    ReportedRun(Console& output, HostOptions& options, const VerdictService& service, bool bWatch,
                WatchOptions watch = {})
        : m_output(output),
          m_options(options),
          m_watch(std::move(watch)),
          m_bWatch(bWatch),
          m_journal(service, {}, bWatch) {
        m_journal.AddListener(*this);
        Listen();
    }

    // From now on as with --json; before the pass begins.
    void UseJson() {
        m_options.bJson = true;
        Listen();
    }

    void Begin(const std::string& strModule) { m_journal.Begin(strModule, 0); }
    void BeginPass(const PassInfo& pass) { m_journal.BeginPass(m_pass = pass); }
    void EndPass(bool bDrained) { m_journal.EndPass(bDrained); }
    void Summary(const RunEnd& end) { m_journal.End(end); }
    void AskForBalance() { m_journal.ShowBalance(); }
    void Progress(const std::string& strDoing) { m_journal.Progress(strDoing); }
    RunCounters PassCounters() const { return m_journal.PassCounters(); }

    void OnRemark(uint64_t nNumber, const std::string& strText) {
        m_journal.Record(InputUnusable{m_pass.strName, nNumber, strText});
    }
    void OnReported(const EventBatch& batch) {
        m_journal.Record(BatchTaken{batch, m_nTaken += batch.nEvents});
        m_journal.Record(BatchSent{batch});
    }
    void OnDelivered(const EventBatch& batch, uint32_t nResult) {
        m_journal.Record(BatchEnded{batch, nResult});
    }
    void OnQueue(const QueueLoad& load) { m_journal.Record(QueueChanged{load}); }
    void OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
        m_journal.Record(QueryReceived{query, eFate, verdict});
    }
    void OnModuleNote(const ModuleRecord& note) { m_journal.Record(ModuleNoted{note}); }
    void OnCentre(int64_t nMsgType, uint64_t nBytes) {
        m_journal.Record(CentreRecord{nMsgType, nBytes});
    }
    void OnLaunch(const Launch& launch) { m_journal.Record(LaunchReported{launch}); }
    void OnUnresolved(const LaunchEvent& event, const LaunchContext& context = {}) {
        m_journal.Record(LaunchUnresolved{event, context});
    }
    void OnLost(uint64_t nLost, uint64_t nTotal) { m_journal.Record(LaunchesLost{nLost, nTotal}); }
    void OnCounters(const LaunchCounters& counters) { m_journal.Record(counters); }
    void OnOperation(const FileOperation& operation) {
        m_journal.Record(FileOperationReported{operation});
    }
    void OnOverflow(uint64_t nTimes, uint64_t nTotal) {
        m_journal.Record(FileQueueOverflowed{nTimes, nTotal});
    }
    void OnFileCounters(const FileCounters& counters) { m_journal.Record(counters); }
    void OnNotice(const std::string& strText) { m_journal.Record(SensorNotice{strText}); }

private:
    void Listen() {
        m_listeners = m_bWatch ? MakeWatchListeners(m_output, m_options, m_journal, m_watch)
                               : MakeRunListeners(m_output, m_options, m_journal);
    }
    void OnEvent(const RunEvent& event, int64_t tmWhen) override {
        for (const auto& pListener : m_listeners) {
            pListener->OnEvent(event, tmWhen);
        }
    }

    Console& m_output;
    HostOptions& m_options;
    const WatchOptions m_watch;
    const bool m_bWatch;
    PassInfo m_pass;
    uint64_t m_nTaken = 0;
    RunJournal m_journal;
    RunListeners m_listeners;
};

// A run whose standard output is read.
class ReportedRunTest : public testing::Test {
protected:
    explicit ReportedRunTest(bool bWatch) : m_report(m_output, m_options, m_service, bWatch) {}

    std::string LastLine() const {
        const auto lines = m_standardOutput.Lines();
        return lines.empty() ? "" : lines.back();
    }

    const TestDir m_dir;
    const StdoutCapture m_standardOutput;
    Console m_output;
    HostOptions m_options;
    VerdictService m_service;
    ReportedRun m_report;
};

#endif
