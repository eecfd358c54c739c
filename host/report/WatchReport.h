// What watch tells: launches and file operations as they are judged, what could not be told or was
// lost, and the balance of it all.
//
// Threads: as RunReport; the calls of the two source observers on the control thread. The mutexes
// of the
//   base, of the ledger of the programs and of this class are never held together.
// Errors: nothing throws but std::bad_alloc. A recording that cannot be written is told once.
#ifndef HOST_REPORT_WATCHREPORT_H
#define HOST_REPORT_WATCHREPORT_H

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/account/EventLedger.h"
#include "host/account/WatchBalance.h"
#include "host/base/Mutex.h"
#include "host/event/FileOperation.h"
#include "host/kernel/launch/Launch.h"
#include "host/report/RunReport.h"
#include "host/report/metrics/MetricsFile.h"
#include "host/report/screen/LiveScreen.h"
#include "host/report/text/VerdictRow.h"
#include "host/verdict/ProgramVerdicts.h"
#include "host/verdict/VerdictService.h"

struct WatchOptions {
    std::shared_ptr<FILE> pRecord;  // gets every message, one a line; null for none
    std::string strMetricsFile;     // absolute; "" for none
    std::chrono::milliseconds metricsInterval{10000};
    bool bPlain = false;  // lines also on a terminal
};

class WatchReport : public RunReport, public ILaunchObserver, public IFileObserver {
public:
    WatchReport(Console& output, const HostOptions& options, const VerdictService& service,
                WatchOptions watch = {});

    void Begin(const std::string& strModule) override;
    void BeginPass(const PassInfo& pass) override;
    void Progress(const std::string& strDoing) override;
    void Summary(const RunEnd& end) override;
    void Balance() override;
    // bFinal: the module has stopped; files are looked at then for what was not heard of.
    WatchBalance Numbers(bool bFinal) const;

    void OnDelivered(const EventBatch& batch, uint32_t nResult) override;
    void OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) override;
    void OnModuleNote(const ModuleRecord& note) override;

    void OnLaunch(const Launch& launch) override;
    void OnUnresolvable(const LaunchEvent& event) override;
    void OnLost(uint64_t nLost, uint64_t nTotal) override;
    void OnBatch(const EventBatch& batch, std::vector<std::string> paths) override;
    void OnCounters(const LaunchCounters& counters) override;

    void OnOperation(const FileOperation& operation) override;
    void OnOverflow(uint64_t nTimes, uint64_t nTotal) override;
    void OnOperations(const EventBatch& batch, std::vector<FileOperation> operations) override;
    void OnFileCounters(const FileCounters& counters) override;
    void OnNotice(const std::string& strText) override;

private:
    struct Judgement;

    void Write(const WatchBalance& balance);
    void Keep(const EventBatch& batch);
    void BeginMetrics();
    void AnnounceLosses(bool bLast);
    void Announce(const char* pszRecord, const char* pszWhy, uint64_t nTotal, uint64_t& nAnnounced);
    void Show(const VerdictRow& row);
    ViewNumbers HeadNumbers() const;
    void ShowJudgement(const Judgement& judgement);
    void WriteQueryLine(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) override;
    void WriteNote(const ModuleRecord& note) override;
    bool IsKnownMaker(const std::string& strProgram) const;

    const VerdictService& m_service;
    ProgramVerdicts m_programs;
    EventLedger m_ledger;
    WatchOptions m_watch;
    const int64_t m_tmStart;
    std::atomic<bool> m_bEnded{false};
    // Of the control thread: losses of events that were told about.
    uint64_t m_nRefusedTold = 0;
    uint64_t m_nNotStoredTold = 0;
    std::chrono::steady_clock::time_point m_lossesTold;
    mutable Mutex m_watchMutex;
    LaunchCounters m_launches TEV_GUARDED_BY(m_watchMutex);
    FileCounters m_files TEV_GUARDED_BY(m_watchMutex);
    std::atomic<uint64_t> m_nBadSeen{0};
    // Last: their threads read the numbers.
    std::unique_ptr<MetricsFile> m_pMetrics;
    std::unique_ptr<LiveScreen> m_pView;  // while the terminal is drawn
};

#endif
