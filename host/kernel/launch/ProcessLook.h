// What /proc says of a process that has just started a program.
//
// Threads: any; no state. Errors: none but std::bad_alloc; what could not be read is empty.
#ifndef HOST_KERNEL_LAUNCH_PROCESSLOOK_H
#define HOST_KERNEL_LAUNCH_PROCESSLOOK_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/program/FileLook.h"

// Which file, and in which state; a device in the kernel's form: major << 20 | minor. 0, 0: not
// known. The rest is as LaunchEvent has it.
struct FileId {
    uint64_t nInode = 0;
    uint32_t nDevice = 0;
    uint32_t nMountId = 0;
    uint64_t nSize = 0;
    int64_t nChanged = 0;

    bool IsKnown() const { return nInode != 0; }
    // Whether both are the same file, in whichever state.
    bool operator==(const FileId& other) const {
        return nInode == other.nInode && nDevice == other.nDevice;
    }
};

struct ProcessState {
    FileId exe;           // read after the arguments, so that they are this program's
    std::string strExe;   // the kernel's spelling; "" for a file that has no name
    std::string strArgs;  // each ends in a NUL; at most LAUNCH_ARGS_MOST bytes
    bool bArgsCut = false;
    std::string strDirectory;  // the current one
    uint32_t nMountNs = 0;
    uint32_t nParent = 0;
    uint32_t nUid = 0;
};

namespace process_look {

FileId IdOf(const FileStatus& status);
// Of the file that a path leads to; not known when it leads to none.
FileId FileOf(const std::string& strPath);

// A file below nDir, at most nMost bytes of it.
std::string ReadFile(int nDir, const char* pszName, size_t nMost);

// A link below /proc: "" when it cannot be read or its file has no name any more.
std::string LinkOf(int nDir, const char* pszName);

// strProc is /proc, unless a test brings its own.
ProcessState Look(uint32_t nPid, const std::string& strProc = "/proc");

}  // namespace process_look

#endif
