// What observers of the module, the cloud and the sensors are called with, recorded in the journal.
//
// Threads: as the observers. Errors: none but std::bad_alloc.
// Ownership: the journal must outlive them.
#ifndef HOST_RUN_JOURNALOBSERVERS_H
#define HOST_RUN_JOURNALOBSERVERS_H

#include <string>
#include <vector>

#include "framework/digest/DigestObserver.h"
#include "host/account/RunJournal.h"
#include "host/cloud/CloudEndpoint.h"
#include "host/program/DigestLanes.h"
#include "host/transport/IEndpoint.h"

// Of the module: its log and output, its queries and their answers, and what it sends to the
// centre, which answers nothing.
class ModuleObserver : public ICloudObserver, public IModuleLogObserver, public IEndpoint {
public:
    explicit ModuleObserver(RunJournal& journal) : m_journal(journal) {}

    void OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) override;
    void OnAnswerEnded(const std::string& strKey, int nLevel, bool bDelivered) override;
    void OnModuleNote(const ModuleRecord& note) override;
    void OnModuleLine(const ModuleLine& line) override;
    void OnPrinted(const std::string& strLine);
    std::string OnMessage(const Guid& sender, int64_t nMsgType,
                          const std::string& strBody) override;

private:
    RunJournal& m_journal;
};

// Of the programs: the digests that the host computes of started ones, and those that the module
// does. Begin and End on the control thread; Begin throws std::system_error where no thread can be
// made.
class DigestRun : public IDigestObserver {
public:
    DigestRun(DigestLanes& lanes, RunJournal& journal) : m_lanes(lanes), m_journal(journal) {}
    ~DigestRun() override { End(); }

    DigestRun(const DigestRun&) = delete;
    DigestRun& operator=(const DigestRun&) = delete;

    void Begin();
    void End();

    // [any]
    void OnDigest(const std::string& strPath, const struct stat& status, const std::string& strMd5,
                  const std::string& strSha1) noexcept override;

private:
    DigestLanes& m_lanes;
    RunJournal& m_journal;
    bool m_bBegun = false;
};

// Of the sensors. Their batches are recorded where they are delivered.
class SensorObserver : public ILaunchObserver, public IFileObserver {
public:
    explicit SensorObserver(RunJournal& journal) : m_journal(journal) {}

    void OnLaunch(const Launch& launch) override;
    void OnUnresolved(const LaunchEvent& event, const LaunchContext& context,
                      const std::shared_ptr<const HeldFile>& pFile) override;
    void OnRepeat(const Launch& launch) override;
    void OnLost(uint64_t nLost, uint64_t nTotal) override;
    void OnCounters(const LaunchCounters& counters) override;

    void OnOperation(const FileOperation& operation) override;
    void OnOverflow(uint64_t nTimes, uint64_t nTotal) override;
    void OnFileCounters(const FileCounters& counters) override;
    void OnNotice(const std::string& strText) override;

private:
    RunJournal& m_journal;
};

#endif
