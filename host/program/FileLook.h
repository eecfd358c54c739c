// How the sensors look at a file by its path, and the form in which others look for them.
//
// Threads: any; a ByMounts one at a time. Errors: none but std::bad_alloc.
#ifndef HOST_PROGRAM_FILELOOK_H
#define HOST_PROGRAM_FILELOOK_H

#include <fcntl.h>
#include <sys/stat.h>

#include <functional>
#include <string>

// What one look sees of a file; stat's members, and more.
struct FileStatus : stat {
    FileStatus() : stat() {}

    int64_t Changed() const { return st_ctim.tv_sec * int64_t{1000000000} + st_ctim.tv_nsec; }

    int64_t nBorn = 0;          // ns since 1970; 0: not known
    uint32_t nMountId = 0;      // of the mount that the path leads over; 0: not known
    uint32_t nMountDevice = 0;  // of its file system, as mountinfo and the kernel's records name it
};

// False when there is no such file.
using FileLook = std::function<bool(const std::string& strPath, FileStatus& status)>;

namespace file_look {

bool AtTarget(const std::string& strPath, FileStatus& status);  // of a link what it leads to
bool AtTargetIn(int nDir, const char* pszName, FileStatus& status);
bool AtItself(const std::string& strPath, FileStatus& status);  // a link is not followed
bool AtDescriptor(int nFd, FileStatus& status);
// AtTarget, which also knows the file system of the mount where stat names another device than the
// kernel's records do (an overlay's, that of btrfs) and the mount is one of this namespace.
FileLook ByMounts();

// Where a link leads, as it is written; "" when it cannot be read. A relative strLink is one of the
// directory nDir.
std::string LinkText(const std::string& strLink, int nDir = AT_FDCWD);

}  // namespace file_look

#endif
