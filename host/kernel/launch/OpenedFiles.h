// The files that were opened for starts of a moment ago, each with its descriptor: what a launch
// started is among them also when its process has ended and its name is gone.
//
// Threads: one. Errors: Open's text says what is missing; nothing throws but std::bad_alloc.
//
// A thousand are kept, for half a second: each start opens two, and those that fail one.
#ifndef HOST_KERNEL_LAUNCH_OPENEDFILES_H
#define HOST_KERNEL_LAUNCH_OPENEDFILES_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

#include "host/base/UniqueFd.h"
#include "host/kernel/launch/ExecNotices.h"
#include "host/kernel/launch/LaunchPath.h"

class OpenedFiles {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t MOST_FILES = 1024;
    static constexpr std::chrono::milliseconds KEPT{500};
    // At once: starts that fail are reported as well, and a flood of them is not to hold the
    // launches' reader.
    static constexpr int MOST_READS = 4;

    bool Open(std::string& strError) { return m_notices.Open(strError); }
    // Takes what was opened, and lets go what is old.
    void Read(Clock::time_point now);
    // A path of this process that leads to the file which event's process opened and started; ""
    // when there is none. Good until the next Read.
    std::string PathOf(const LaunchEvent& event, const FileLook& fnLook);
    const std::string& Unmarked() const { return m_notices.Unmarked(); }

private:
    struct File {
        uint32_t nPid;
        UniqueFd fd;
        Clock::time_point when;
    };

    std::string Find(const LaunchEvent& event, const FileLook& fnLook) const;

    ExecNotices m_notices;
    std::deque<File> m_files;  // oldest first
};

#endif
