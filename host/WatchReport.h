// What watch tells: launches and file operations as they are judged, what could not be told or was
// lost, and the balance of it all.
//
// Threads: as RunReport; the calls of the two source observers on the control thread. The mutexes
// of the
//   base, of the ledger and of this class are never held together.
// Errors: nothing throws but std::bad_alloc. A recording that cannot be written is told once.
#ifndef HOST_WATCHREPORT_H
#define HOST_WATCHREPORT_H

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/LaunchLedger.h"
#include "host/RunReport.h"
#include "host/source/FileOperation.h"
#include "host/source/LaunchSource.h"
#include "host/verdict/VerdictService.h"

// All numbers of a balance: how many launches the kernel had, and what became of each.
struct WatchBalance {
    LaunchCounters launches;
    FileCounters files;
    LedgerState events;
    RunCounters module;
    bool bFinal = false;  // nothing is on its way any more

    // Launches, events and queries that no cause was found for.
    uint64_t Unexplained() const;
};

class WatchReport : public RunReport, public ILaunchObserver, public IFileObserver {
public:
    // Programs whose starter and verdict are remembered at most.
    static constexpr size_t MOST_PROGRAMS = 8192;

    // pRecord gets every message, one a line; null for none.
    WatchReport(Output& output, const GlobalOptions& options, const VerdictService& service,
                std::shared_ptr<FILE> pRecord);

    void Begin(const std::string& strModule) override;
    void Summary(const RunEnd& end) override;
    void Balance() override;
    WatchBalance Numbers(bool bFinal) const;

    void OnDelivered(const EventBatch& batch, uint32_t nResult) override;
    void OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) override;
    void OnModuleNote(ModuleNote eNote, const std::string& strPath, bool bProgram) override;

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
    struct Program {
        std::string strStarter;
        int nLevel = 0;  // 0: not known
    };

    void Write(const WatchBalance& balance);
    void Keep(const EventBatch& batch);
    void WriteQueryLine(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) override;
    std::string StarterText(const std::string& strPath) const;
    int LevelOf(const std::string& strPath);
    void SetLevel(const std::string& strPath, int nLevel);

    const VerdictService& m_service;
    LaunchLedger m_ledger;
    std::shared_ptr<FILE> m_pRecord;
    mutable std::mutex m_watchMutex;  // guards what follows
    LaunchCounters m_launches;
    FileCounters m_files;
    std::unordered_map<std::string, Program> m_programs;  // by path
};

#endif
