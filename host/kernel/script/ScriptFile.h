// What is asked of a file that may be a script.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_SCRIPT_SCRIPTFILE_H
#define HOST_KERNEL_SCRIPT_SCRIPTFILE_H

#include <cstdint>
#include <string>

#include "host/program/FileLook.h"

namespace script_file {

// The path by which this process has a descriptor's file.
std::string LinkOf(int nFd);

// A relative name in its directory, without "./" before it.
std::string Joined(const std::string& strDirectory, std::string strName);

// A FileLook for names as others use them: one that leads over /proc/self/cwd or the like is
// another file for each process, and leads nowhere here.
bool LookWithoutMagic(const std::string& strPath, FileStatus& status);

bool IsSameFile(const FileStatus& left, const FileStatus& right);

// Whether its content may have changed around the start, both in ns since 1970, with no other
// change time than nChanged: its file system stamps by a coarse clock, or takes writes through a
// mapping unseen. As the kernel's records say it of programs; of a local file system only.
bool HasLooseTimes(int nFd, int64_t nChanged, int64_t nStarted);

// Its path as the kernel spells it, also when that name is gone; "" when it cannot be read.
std::string KernelName(int nFd);

}  // namespace script_file

#endif
