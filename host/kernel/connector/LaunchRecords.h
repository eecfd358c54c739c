// Records of launches between the thread that makes them and the one that drains them, and the
// counters of what was captured and lost.
//
// Threads: any. Errors: none but std::bad_alloc.
//
// Memory is bounded: a record that finds no room is counted as lost.
#ifndef HOST_KERNEL_CONNECTOR_LAUNCHRECORDS_H
#define HOST_KERNEL_CONNECTOR_LAUNCHRECORDS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "host/base/Mutex.h"
#include "host/kernel/launch/ILaunchSensor.h"
#include "host/kernel/launch/LaunchEvent.h"

class LaunchRecords {
public:
    explicit LaunchRecords(size_t nMostBytes) : m_nMostBytes(nMostBytes) {}

    LaunchRecords(const LaunchRecords&) = delete;
    LaunchRecords& operator=(const LaunchRecords&) = delete;

    void Put(const LaunchEvent& event);
    // Launches, and copies and ends of processes, that were captured and have no record.
    void Lose(uint64_t nLaunches, uint64_t nOthers);
    // What was dropped before it could be read, since the start.
    void SetDropped(uint64_t nLaunches, uint64_t nOthers);

    // As ILaunchSensor.
    void Drain(const ILaunchSensor::Sink& fnSink);
    SensorCounts Counts() const;

private:
    const size_t m_nMostBytes;
    mutable Mutex m_mutex;  // not held while the sink is called
    std::deque<std::string> m_records TEV_GUARDED_BY(m_mutex);
    size_t m_nBytes TEV_GUARDED_BY(m_mutex) = 0;
    SensorCounts m_counts TEV_GUARDED_BY(m_mutex);   // without what was dropped
    SensorCounts m_dropped TEV_GUARDED_BY(m_mutex);  // but for nCaptured
};

#endif
