// What is mounted where, from the text of /proc/self/mountinfo.
//
// Threads: any; no state. Errors: lines that are none are left out; nothing throws but
// std::bad_alloc.
#ifndef HOST_BASE_MOUNTTABLE_H
#define HOST_BASE_MOUNTTABLE_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/base/UniqueFd.h"

struct MountEntry {
    uint32_t nId = 0;      // as statx names it
    uint32_t nDevice = 0;  // in the kernel's form: major << 20 | minor
    std::string strRoot;   // the part of the file system that is mounted; "/" for all of it
    std::string strPoint;
    std::string strType;
};

namespace mount_table {

// The table of this process, for HasChanged; none when it cannot be opened.
UniqueFd Open();
// Whether something was mounted or unmounted since Open, or since the last call that said so.
bool HasChanged(const UniqueFd& table);

// That table now, as the kernel writes it; "" when it cannot be read.
std::string Text();

std::vector<MountEntry> Parse(const std::string& strText);

// The mount that strPath (absolute, no links in it) lies on; null when there is none.
const MountEntry* MountOf(const std::vector<MountEntry>& mounts, const std::string& strPath);

// A file system with files of this machine's own: no network, nothing the kernel makes up.
bool IsLocal(const std::string& strType);

// "disk", "memory" or "network".
const char* DiskType(const std::string& strType);

}  // namespace mount_table

#endif
