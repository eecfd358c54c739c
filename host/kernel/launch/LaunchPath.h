// Under which path a launch is reported. Never under one that names another file than the one that
// was started: a verdict on that one would be borrowed.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_LAUNCH_LAUNCHPATH_H
#define HOST_KERNEL_LAUNCH_LAUNCHPATH_H

#include <cstdint>
#include <optional>
#include <string>

#include "host/kernel/launch/LaunchEvent.h"
#include "host/program/FileLook.h"

enum LaunchPathOrigin {
    LAUNCH_PATH_NONE,      // no path names the file
    LAUNCH_PATH_INVOKED,   // the name it was started by, made absolute
    LAUNCH_PATH_RESOLVED,  // the kernel's spelling, links followed
    LAUNCH_PATH_PROC,      // /proc/PID/exe; good while the process lives
    LAUNCH_PATH_HELD       // a link to the held file: no name leads there
};

struct LaunchPath {
    std::string strPath;
    LaunchPathOrigin eOrigin = LAUNCH_PATH_NONE;
};

// The file that a launch started, and what leads to it now. Of the launch only the members about
// its file are tried. The launch and the look must outlive it.
class StartedFile {
public:
    // strExeLink: /proc/PID/exe of the process.
    StartedFile(const LaunchEvent& event, std::string strExeLink, const FileLook& fnLook);

    // Whether strPath, absolute, leads to it. A file that has changed since is only taken while the
    // process runs it; what it held at the start is not known then (HeldFile::IsSure).
    bool IsAt(const std::string& strPath);
    // Whether the process runs it still, by the first look: it may have been renamed or removed. An
    // inode that was born after the start is another file.
    bool IsRunning();
    // Likewise of a file already examined.
    bool Is(const FileStatus& status);
    // Whether it has the inode that was started, in whichever state it is now.
    bool IsInode(const FileStatus& status) const;
    // Of its inode: whether its times and size are those of the start.
    bool IsUnchanged(const FileStatus& status) const;

private:
    const LaunchEvent& m_event;
    const std::string m_strExeLink;
    const FileLook& m_fnLook;
    std::optional<bool> m_running;
};

// Whether the module knows an interpreter by this path: what it runs stands in the arguments.
bool IsInterpreter(const std::string& strPath);

// The name as invoked where stat says that it is the file started, else the resolved path where
// that is, else /proc/PID/exe. Only where the resolved name alone is one by which the module
// knows an interpreter, that comes first: sh is dash.
LaunchPath ChooseLaunchPath(const LaunchEvent& event, const FileLook& fnLook);

// A name of the start made absolute by its root and directory. "" when it means a file of whoever
// opens it, and when the directory is not known for sure.
std::string AbsoluteName(const std::string& strName, const LaunchEvent& event);

// The script that the launch runs by its first line, absolute. "" when it runs none, and when it
// cannot be known which file that is: with a root or mount namespace of its own (nOwnMountNs is
// HostMountNs), from a directory that may lead elsewhere, or by a name that means another file in
// every process.
std::string ScriptPath(const LaunchEvent& event, uint32_t nOwnMountNs, const FileLook& fnLook);

// The number of the mount namespace whose paths lead the host to the same files; 0: unknown. That
// is the first process's where both have one root: a service manager's sandbox gives the host a
// namespace of its own, in which paths lead where they do outside. Else it is the host's own.
uint32_t HostMountNs(const FileLook& fnLook);

#endif
