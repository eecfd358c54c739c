// What fanotify is asked to watch: the file systems that hold the watched places, whole; and
// directory by directory what a mark on a whole file system cannot cover.
//
//   file system   every creation, removal, rename, close after writing and start of a program
//   directory     each write in the autostart locations, subdirectories included; on a file
//                 system that cannot be watched whole, everything in the watched places, or in the
//                 nearest directory above one that does not exist yet
//   file          in the watched places, one that has further names elsewhere: each write
//
// Threads: one. Errors: what cannot be watched is a notice.
#ifndef HOST_KERNEL_FILE_FANOTIFYMARKS_H
#define HOST_KERNEL_FILE_FANOTIFYMARKS_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/MountTable.h"
#include "host/event/WatchedPaths.h"
#include "host/kernel/file/IMarkCalls.h"
#include "host/kernel/file/PlaceMounts.h"

class FanotifyMarks {
public:
    static constexpr size_t MOST_DIRECTORIES = 4096;  // marked one by one
    static constexpr size_t MOST_FILES = 1024;        // likewise

    // nEvents is the mask of a whole file system. bAll: every local file system.
    FanotifyMarks(IMarkCalls& calls, WatchedPaths& places, uint64_t nEvents, bool bAll);

    // Reads what is mounted, marks it and forgets what is gone. True when watched places have other
    // mounts than before, which a notice names.
    bool Refresh();
    // A directory has appeared: marks it when it is a place, or above or in one.
    void OnDirectory(const std::string& strPath);
    // A file in a place has more than one name.
    void OnLinked(const std::string& strPath);

    bool IsEmpty() const { return m_systems.empty(); }  // nothing could be marked
    std::vector<std::string> TakeNotices();

    // A mount point of each file system with this identifier, and their type; empty when not known.
    // Before Linux 6.6 an overlayfs has the identifier of its upper layer's file system: bOverlay
    // says which of the two is meant. Several overlayfs may have their layers on the same one.
    std::vector<std::string> PointsOf(std::string_view strFsid, bool bOverlay) const;
    std::string TypeOf(std::string_view strFsid, bool bOverlay) const;
    // That of the file system that strPath lies on; "" when not known.
    std::string TypeAt(const std::string& strPath) const;
    // The path of a directory marked by itself; "" for others.
    std::string MarkedPath(std::string_view strHandle) const;
    bool IsWhole(uint32_t nDevice) const;
    // As PlaceMounts has it.
    std::string PathInPlace(const std::string& strPath) const {
        return m_mounts.PathInPlace(strPath);
    }

private:
    struct System {
        MountEntry mount;
        std::string strFsid;
        bool bWhole = false;
        bool Is(std::string_view strWanted, bool bOverlay) const;
    };

    bool ReadMounts();
    std::map<uint32_t, MountEntry> Wanted() const;
    void ForgetUnmounted();
    void MarkSystem(const MountEntry& mount);
    void MarkPlace(const WatchedPaths::Directory& place);
    void MarkTree(const std::string& strPath, uint64_t nMask);
    void MarkDirectory(const std::string& strPath, uint64_t nMask);
    void ForgetGone();
    uint64_t MaskFor(const WatchedPaths::Directory& place) const;

    IMarkCalls& m_calls;
    WatchedPaths& m_places;
    const uint64_t m_nEvents;
    const bool m_bAll;
    PlaceMounts m_mounts;
    std::map<uint32_t, System> m_systems;                      // by device
    std::map<std::string, std::string, std::less<>> m_marked;  // handle -> path
    std::vector<std::string> m_notices;
    std::set<std::string> m_files;  // marked by themselves, handles
    bool m_bFullSaid = false;
    bool m_bFilesSaid = false;
};

#endif
