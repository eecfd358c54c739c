// What is mounted over, at and in the watched places.
//
// Threads: one. Errors: none but std::bad_alloc.
// Ownership: what it is given must outlive it.
#ifndef HOST_KERNEL_FILE_PLACEMOUNTS_H
#define HOST_KERNEL_FILE_PLACEMOUNTS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/base/MountTable.h"
#include "host/event/WatchedPaths.h"
#include "host/kernel/file/IMarkCalls.h"

class PlaceMounts {
public:
    PlaceMounts(IMarkCalls& calls, const WatchedPaths& places) : m_calls(calls), m_places(places) {}

    // Reads what is mounted; the places that have other mounts than at the last call.
    std::vector<std::string> Read();
    const std::vector<MountEntry>& All() const { return m_mounts; }

    // strPath, or the nearest directory above it that is there.
    std::string Existing(const std::string& strPath) const;
    // The mount that this directory lies on, or would lie on; null when it is not known.
    const MountEntry* At(const std::string& strPath) const;
    // False when its point leads to another mount.
    bool IsReached(const MountEntry& mount) const;

    // A file system's paths are reported by this mount of it, until the next Read.
    void SetWatched(const MountEntry& mount);
    // Where strPath, so reported, is by the mount of a place: a part of a file system may be
    // mounted over one. strPath when that is nowhere.
    std::string PathInPlace(const std::string& strPath) const;

private:
    std::string MountsOf(const std::string& strPlace) const;
    bool HoldsPlace(const MountEntry& mount) const;

    IMarkCalls& m_calls;
    const WatchedPaths& m_places;
    std::vector<MountEntry> m_mounts;
    std::map<std::string, std::string> m_byPlace;              // MountsOf
    std::vector<std::pair<std::string, std::string>> m_parts;  // path -> path in a place, no "/"
};

namespace place_mounts {

// True for the directory itself as well.
bool IsIn(const std::string& strPath, const std::string& strDirectory);

}  // namespace place_mounts

#endif
