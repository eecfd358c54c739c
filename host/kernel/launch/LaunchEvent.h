// What the kernel reports of processes, decoded from the sensors' records.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_LAUNCH_LAUNCHEVENT_H
#define HOST_KERNEL_LAUNCH_LAUNCHEVENT_H

#include <cstddef>
#include <cstdint>
#include <string>

enum LaunchKind { LAUNCH_KIND_EXEC, LAUNCH_KIND_FORK, LAUNCH_KIND_EXIT };

struct LaunchEvent {
    LaunchKind eKind = LAUNCH_KIND_EXEC;
    uint32_t nPid = 0;
    uint32_t nPpid = 0;
    // What follows is filled for LAUNCH_KIND_EXEC only.
    uint32_t nUid = 0;
    uint32_t nMountNs = 0;
    uint64_t nCgroup = 0;  // number of the control group in the unified hierarchy; 0: not known
    uint32_t nDevice = 0;  // in the kernel's form: major << 20 | minor
    uint64_t nInode = 0;
    uint32_t nMountId = 0;  // of the mount it was started from, as statx names it; 0: not known
    uint64_t nSize = 0;     // in bytes
    int64_t nChanged = 0;   // change time, ns since 1970; 0: neither that nor the size is known
    int64_t nStarted = 0;   // when, ns since 1970; 0: not known
    // A change after the start may have the same time: the file was changed just before, or its
    // file system stamps loosely.
    bool bFresh = false;
    bool bArgsCut = false;
    bool bArgsUnreadable = false;
    bool bPathCut = false;  // strPath, strDirectory or strRoot may lead elsewhere
    bool bServed = false;   // a reader of the file may wait for whoever serves its content
    std::string strPath;    // as its mount namespace spells it; "" for a file that is in no tree
    std::string strName;    // as invoked: absolute or relative, a script where there is one
    std::string strInterp;  // a script's interpreter as the script names it; "" without one
    // The current directory; "" when neither name is relative and the program no ELF loader.
    std::string strDirectory;
    std::string strRoot;       // the process's own root directory; "" when it has none
    std::string strCommand;    // the arguments with one blank between
    std::string strArguments;  // the same, each ending in a NUL

    // Whether a file that was changed at this time may have been changed again with the same one:
    // the kernel stamps files by a clock that goes on up to ten milliseconds at once. Also when the
    // time of the start is not known.
    bool IsJustAfter(int64_t nChange) const {
        constexpr int64_t LONGEST_TICK = 20 * 1000000;
        // Records may hold any number: differences wrap.
        return static_cast<int64_t>(static_cast<uint64_t>(nStarted) -
                                    static_cast<uint64_t>(nChange)) < LONGEST_TICK;
    }
    // What names it for people.
    const std::string& PathOrName() const { return strPath.empty() ? strName : strPath; }
};

// False for bytes that are no whole record; event is then untouched.
bool DecodeLaunch(const void* pData, size_t nSize, LaunchEvent& event);

// The record that is decoded as event: how a sensor outside the kernel writes. A path too long for
// a record is left out, arguments too long for it are cut and flagged.
std::string EncodeLaunch(const LaunchEvent& event);

#endif
