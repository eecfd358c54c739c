// Paths that a user named, opened without asking whoever may serve them: a program that serves a
// file system (FUSE) or another machine may answer late or never, and the sensors' thread waits for
// nobody. What is opened is a place (O_PATH), not the content.
//
// Threads: any; no state. Errors: a place that cannot be had without asking is none, so is every
// one on Linux before 5.12; nothing throws but std::bad_alloc.
#ifndef HOST_KERNEL_SCRIPT_QUIETOPEN_H
#define HOST_KERNEL_SCRIPT_QUIETOPEN_H

#include <fcntl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/base/MountTable.h"
#include "host/base/UniqueFd.h"
#include "host/program/FileLook.h"

namespace quiet_open {

enum Inside {
    INSIDE_ALL,        // a path of this process
    INSIDE_ROOT,       // the directory is its root
    INSIDE_DIRECTORY,  // it must not lead out of the directory
};

// The place of strPath, in directory nDir; over no link of /proc, whatever that leads to. What the
// kernel does not know by heart is looked up on local file systems of these mounts only.
UniqueFd Place(const std::string& strPath, const std::vector<MountEntry>& mounts,
               int nDir = AT_FDCWD, Inside eInside = INSIDE_ALL);

// What process nPid finds under a name by which it started a script: /dev/fd/N and /proc/self
// are its own, and so are its root and current directory.
UniqueFd PlaceOf(uint32_t nPid, const std::string& strName, const std::vector<MountEntry>& mounts);

// The status that the kernel knows by heart.
bool Look(int nFd, FileStatus& status);

// Whether the place lies on a local file system that is mounted there.
bool IsLocal(int nFd, const std::vector<MountEntry>& mounts);

// The mounts of a process in a mount namespace of its own; overlays, which may be over anything,
// are left out. Empty when it has ended.
std::vector<MountEntry> MountsOf(uint32_t nPid);

}  // namespace quiet_open

// A file known by a path alone.
struct PlacedFile {
    UniqueFd fd;  // its place; none when there is no such file, or it cannot be known
    FileStatus status;
    std::string strName;  // the path for people
    bool bLocal = false;  // opening and reading it asks nobody
};

namespace placed_file {

PlacedFile Here(const std::string& strPath);  // an absolute path of this process
// What process nPid finds under strName, absolute in its root or relative to its directory.
PlacedFile OfProcess(uint32_t nPid, const std::string& strName);

}  // namespace placed_file

#endif
