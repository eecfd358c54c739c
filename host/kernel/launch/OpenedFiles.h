// The files that were opened for starts of a moment ago, each with its descriptor: what a launch
// started is among them also when its process has ended and its name is gone.
//
// Threads: one. Errors: Open's text says what is missing; nothing throws but std::bad_alloc.
//
// A thousand are kept, for half a second: each start opens two, a script's three, and those that
// fail one.
#ifndef HOST_KERNEL_LAUNCH_OPENEDFILES_H
#define HOST_KERNEL_LAUNCH_OPENEDFILES_H

#include <chrono>
#include <string>
#include <vector>

#include "host/kernel/launch/ExecNotices.h"
#include "host/kernel/launch/LaunchPath.h"
#include "host/kernel/script/FilesByProcess.h"
#include "host/kernel/script/OpenedScript.h"

class OpenedFiles {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t MOST_FILES = 1024;
    static constexpr size_t MOST_OF_ONE = 64;
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
    // What event's process opened to start it, oldest first; also what it could not start before,
    // and what it has started since; the newest MOST_OF_ONE. Without that of its earlier starts, by
    // Started. Good until the next Read.
    std::vector<OpenedForStart> FilesOf(const LaunchEvent& event);
    // Event has been handled: what its process opened up to its program is of no later start.
    void Started(const LaunchEvent& event);
    const std::string& Unmarked() const { return m_notices.Unmarked(); }
    // As ExecNotices.
    bool IsMarked(uint32_t nDevice) const { return m_notices.IsMarked(nDevice); }

private:
    using File = FilesByProcess::File;

    static bool IsProgramOf(const LaunchEvent& event, File& file);
    std::string Find(const LaunchEvent& event, const FileLook& fnLook);
    bool MarkStarted(const LaunchEvent& event);

    ExecNotices m_notices;
    FilesByProcess m_files{MOST_FILES};
};

#endif
