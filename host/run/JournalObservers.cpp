#include "host/run/JournalObservers.h"

void ModuleObserver::OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    m_journal.Record(QueryReceived{query, eFate, verdict});
}

void ModuleObserver::OnAnswerEnded(const std::string& strKey, int nLevel, bool bDelivered) {
    m_journal.Record(AnswerEnded{strKey, nLevel, bDelivered});
}

void ModuleObserver::OnModuleLine(const ModuleLine& line) {
    m_journal.Record(ModuleLogged{line});
}

void ModuleObserver::OnPrinted(const std::string& strLine) {
    m_journal.Record(ModulePrinted{strLine});
}

void ModuleObserver::OnModuleNote(const ModuleRecord& note) {
    m_journal.Record(ModuleNoted{note});
}

std::string ModuleObserver::OnMessage(const Guid& /*sender*/, int64_t nMsgType,
                                      const std::string& strBody) {
    m_journal.Record(CentreRecord{nMsgType, strBody.size()});
    return "";
}

void DigestRun::Begin() {
    m_lanes.Begin([this](const FileVersion& version, const ProgramDigest& digest) {
        m_journal.Digested(version, digest);
    });
    m_bBegun = true;
    SetDigestObserver(this);
}

void DigestRun::End() {
    if (m_bBegun) {
        m_bBegun = false;
        SetDigestObserver(nullptr);
        m_lanes.End();
    }
}

void DigestRun::OnDigest(const std::string& strPath, const struct stat& status,
                         const std::string& strMd5, const std::string& strSha1) noexcept {
    try {
        m_journal.Hashed(strPath, status, strSha1 + strMd5);
    } catch (...) {
        // No memory: the launch counts as hashed as it was started.
    }
}

void SensorObserver::OnLaunch(const Launch& launch) {
    m_journal.Record(LaunchReported{launch});
}

void SensorObserver::OnUnresolved(const LaunchEvent& event, const LaunchContext& context,
                                  const std::shared_ptr<const HeldFile>& pFile) {
    m_journal.Record(LaunchUnresolved{event, context, pFile});
}

void SensorObserver::OnRepeat(const Launch& launch) {
    m_journal.Record(LaunchRepeated{launch});
}

void SensorObserver::OnLost(uint64_t nLost, uint64_t nTotal) {
    m_journal.Record(LaunchesLost{nLost, nTotal});
}

void SensorObserver::OnCounters(const LaunchCounters& counters) {
    m_journal.Record(counters);
}

void SensorObserver::OnOperation(const FileOperation& operation) {
    m_journal.Record(FileOperationReported{operation});
}

void SensorObserver::OnOverflow(uint64_t nTimes, uint64_t nTotal) {
    m_journal.Record(FileQueueOverflowed{nTimes, nTotal});
}

void SensorObserver::OnFileCounters(const FileCounters& counters) {
    m_journal.Record(counters);
}

void SensorObserver::OnNotice(const std::string& strText) {
    m_journal.Record(SensorNotice{strText});
}
