#include "host/kernel/connector/LaunchRecords.h"

#include <utility>

void LaunchRecords::Put(const LaunchEvent& event) {
    const bool bExec = event.eKind == LAUNCH_KIND_EXEC;
    std::string strRecord = EncodeLaunch(event);
    const MutexLock lock(m_mutex);
    m_counts.nCaptured += bExec ? 1 : 0;
    if (m_nBytes + strRecord.size() > m_nMostBytes) {
        ++(bExec ? m_counts.nLost : m_counts.nOthersLost);
        return;
    }
    m_nBytes += strRecord.size();
    m_records.push_back(std::move(strRecord));
}

void LaunchRecords::Lose(uint64_t nLaunches, uint64_t nOthers) {
    const MutexLock lock(m_mutex);
    m_counts.nCaptured += nLaunches;
    m_counts.nLost += nLaunches;
    m_counts.nOthersLost += nOthers;
}

void LaunchRecords::SetDropped(uint64_t nLaunches, uint64_t nOthers) {
    const MutexLock lock(m_mutex);
    m_dropped.nLost = nLaunches;
    m_dropped.nOthersLost = nOthers;
}

void LaunchRecords::Drain(const ILaunchSensor::Sink& fnSink) {
    bool bMore = true;
    while (bMore) {
        std::string strRecord;
        {
            const MutexLock lock(m_mutex);
            if (m_records.empty()) {
                return;
            }
            strRecord = std::move(m_records.front());
            m_records.pop_front();
            m_nBytes -= strRecord.size();
        }
        bMore = fnSink(strRecord.data(), strRecord.size());
    }
}

SensorCounts LaunchRecords::Counts() const {
    const MutexLock lock(m_mutex);
    SensorCounts counts = m_counts;
    counts.nCaptured += m_dropped.nLost;
    counts.nLost += m_dropped.nLost;
    counts.nOthersLost += m_dropped.nOthersLost;
    return counts;
}
