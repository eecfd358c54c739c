// The files that the kernel opens to execute them, as fanotify gives them: each with a descriptor,
// which stays with its file whatever becomes of the name or the process. Notifications only:
// nothing ever waits for this reader.
//
// Threads: one. Errors: Open's text says what is missing; nothing throws but std::bad_alloc and
// what a sink throws.
//
// The kernel's queue holds 16,384 and says when it was full.
#ifndef HOST_KERNEL_LAUNCH_EXECNOTICES_H
#define HOST_KERNEL_LAUNCH_EXECNOTICES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "host/base/UniqueFd.h"

class ExecNotices {
public:
    // One file, opened by process nPid; no descriptor: some are missing from here on.
    using Sink = std::function<void(uint32_t nPid, UniqueFd fd)>;

    ExecNotices() = default;

    ExecNotices(const ExecNotices&) = delete;
    ExecNotices& operator=(const ExecNotices&) = delete;

    // Marks every local file system that is mounted.
    bool Open(std::string& strError);
    static constexpr int MOST_READS = 64;  // more than the kernel keeps; some hundred files each

    // Takes what waits in the kernel's queue, and marks what was mounted since.
    void Read(const Sink& fnSink, int nMostReads = MOST_READS);
    // File systems that could not be marked, for people; "" when there is none.
    const std::string& Unmarked() const { return m_strUnmarked; }
    // Whether what is executed on the file system of this device (as stat's, in the kernel's form)
    // is reported.
    bool IsMarked(uint32_t nDevice) const { return m_devices.count(nDevice) != 0; }

private:
    void Mark();
    static void TakeEvents(const char* pBytes, size_t nSize, const Sink& fnSink);

    UniqueFd m_group;
    UniqueFd m_mounts;  // the mount table
    std::string m_strUnmarked;
    std::set<uint32_t> m_devices;
};

#endif
