// What captures launches: the kernel's own program, a fallback, or records made by a test.
//
// Threads: one; a sensor may have a thread of its own behind these calls.
// Errors: Open's text says what is missing and how to get it; nothing throws but std::bad_alloc.
#ifndef HOST_KERNEL_LAUNCH_ILAUNCHSENSOR_H
#define HOST_KERNEL_LAUNCH_ILAUNCHSENSOR_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

struct SensorCounts {
    uint64_t nCaptured = 0;    // launches, the lost ones included
    uint64_t nLost = 0;        // launches that no record could be written of
    uint64_t nOthersLost = 0;  // copies and ends of processes, likewise
};

class ILaunchSensor {
public:
    // One record (host/kernel/bpf/launch_record.h); false to get no more for now.
    using Sink = std::function<bool(const void* pData, size_t nSize)>;

    virtual ~ILaunchSensor() = default;

    virtual bool Open(std::string& strError) = 0;
    // Returns the records that wait, in the order in which they were written.
    virtual void Drain(const Sink& fnSink) = 0;
    // Waits until records stand for whatever the kernel reported before the call, at most that
    // long; false: not all of them do. Where the kernel writes the records itself they do.
    virtual bool CatchUp(std::chrono::milliseconds /*wait*/) { return true; }
    // Whether each record names the file that was started, in the order of the starts; else it may
    // name one that the same process started later.
    virtual bool IsExact() const { return true; }
    // Readable when a launch came while the reader slept (SetSleeping); below 0 where there is no
    // such one. The sensor owns it.
    virtual int Descriptor() const { return -1; }
    // Before and after the reader sleeps: only while it does a launch makes the descriptor
    // readable. One that was written before does not: the reader drains once more in between.
    virtual void SetSleeping(bool /*bSleeping*/) {}
    // No new launches from now on; records that wait can still be drained.
    virtual void Detach() = 0;
    virtual SensorCounts Counts() const = 0;

    // For people, once it is open: what captures, and what it cannot see.
    virtual std::string Name() const = 0;
    virtual std::string Limits() const = 0;
};

#endif
