#include "host/kernel/file/FanotifyMarks.h"

#include <sys/fanotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

constexpr uint64_t ON_CHILDREN = FAN_EVENT_ON_CHILD | FAN_ONDIR;

}  // namespace

FanotifyMarks::FanotifyMarks(IMarkCalls& calls, WatchedPaths& places, uint64_t nEvents, bool bAll)
    : m_calls(calls), m_places(places), m_nEvents(nEvents), m_bAll(bAll), m_mounts(calls, places) {}

std::vector<std::string> FanotifyMarks::TakeNotices() {
    return std::exchange(m_notices, {});
}

// For each device the mount to mark it by: of the whole of it where there is one.
std::map<uint32_t, MountEntry> FanotifyMarks::Wanted() const {
    std::map<uint32_t, MountEntry> wanted;
    for (const WatchedPaths::Directory& place : m_places.Directories()) {
        const MountEntry* const pMount = m_mounts.At(place.strPath);
        if (pMount != nullptr) {
            wanted.emplace(pMount->nDevice, *pMount);
        }
    }
    for (const MountEntry& mount : m_mounts.All()) {
        const auto found = wanted.find(mount.nDevice);
        if (found == wanted.end() && m_bAll && mount_table::IsLocal(mount.strType)) {
            wanted.emplace(mount.nDevice, mount);
        } else if (found != wanted.end() && found->second.strRoot != "/" && mount.strRoot == "/" &&
                   m_mounts.IsReached(mount)) {
            found->second = mount;
        }
    }
    return wanted;
}

bool FanotifyMarks::ReadMounts() {
    std::string strChanged;
    for (const std::string& strPlace : m_mounts.Read()) {
        strChanged += (strChanged.empty() ? "" : ", ") + strPlace;
    }
    if (!strChanged.empty()) {
        m_notices.push_back(
            "mounts over or in watched places have changed, the files there are "
            "compared with what was known: " +
            strChanged);
    }
    return !strChanged.empty();
}

void FanotifyMarks::ForgetUnmounted() {
    const std::vector<MountEntry>& mounts = m_mounts.All();
    for (auto at = m_systems.begin(); at != m_systems.end();) {
        const bool bThere = std::any_of(mounts.begin(), mounts.end(), [&](const auto& mount) {
            return mount.nDevice == at->first;
        });
        if (!bThere) {
            m_notices.push_back(at->second.mount.strPoint + " is unmounted and watched no more");
        }
        at = bThere ? std::next(at) : m_systems.erase(at);
    }
}

bool FanotifyMarks::Refresh() {
    m_places.Resolve();
    const bool bChanged = ReadMounts();
    ForgetUnmounted();
    for (const auto& entry : Wanted()) {
        MarkSystem(entry.second);
        m_mounts.SetWatched(entry.second);
    }
    m_marked.clear();
    m_files.clear();
    for (const WatchedPaths::Directory& place : m_places.Directories()) {
        MarkPlace(place);
    }
    return bChanged;
}

// Also one that is known: between two looks it may have been unmounted, its marks gone with it, and
// another one mounted that has its place, its number and the same text in every respect.
void FanotifyMarks::MarkSystem(const MountEntry& mount) {
    System system;
    system.mount = mount;
    system.strFsid = m_calls.FsidOf(mount.strPoint);
    const int nError = m_calls.Mark(true, m_nEvents, mount.strPoint);
    system.bWhole = nError == 0;
    const auto known = m_systems.find(mount.nDevice);
    const bool bSaid = known != m_systems.end() && !known->second.bWhole &&
                       known->second.strFsid == system.strFsid;
    if (!system.bWhole && !bSaid) {
        m_notices.push_back("the file system at " + mount.strPoint + " (" + mount.strType +
                            ") cannot be watched whole: " + std::strerror(nError) +
                            "; pipes: listed directories only");
    }
    m_systems[mount.nDevice] = std::move(system);
}

bool FanotifyMarks::IsWhole(uint32_t nDevice) const {
    const auto found = m_systems.find(nDevice);
    return found != m_systems.end() && found->second.bWhole;
}

uint64_t FanotifyMarks::MaskFor(const WatchedPaths::Directory& place) const {
    const MountEntry* const pMount = m_mounts.At(place.strPath);
    const bool bWhole = pMount != nullptr && IsWhole(pMount->nDevice);
    return (place.bUnits ? 0 : FAN_MODIFY) | (bWhole ? 0 : m_nEvents);
}

void FanotifyMarks::MarkPlace(const WatchedPaths::Directory& place) {
    const uint64_t nMask = MaskFor(place);
    if (m_calls.IsDirectory(place.strPath)) {
        MarkTree(place.strPath, nMask);
    } else if ((nMask & m_nEvents) != 0) {
        MarkDirectory(m_mounts.Existing(place.strPath), m_nEvents);
    }
}

void FanotifyMarks::MarkTree(const std::string& strPath, uint64_t nMask) {
    std::vector<std::string> directories = {strPath};
    while (!directories.empty() && nMask != 0) {
        const std::string strDirectory = std::move(directories.back());
        directories.pop_back();
        MarkDirectory(strDirectory, nMask);
        for (const std::string& strName : m_calls.DirectoriesIn(strDirectory)) {
            directories.push_back(strDirectory + "/" + strName);
        }
        if (m_bFullSaid) {
            return;
        }
    }
}

// Directories that are gone, or whose name leads to another one now.
void FanotifyMarks::ForgetGone() {
    for (auto entry = m_marked.begin(); entry != m_marked.end();) {
        entry = m_calls.HandleOf(entry->second) == entry->first ? std::next(entry)
                                                                : m_marked.erase(entry);
    }
    m_bFullSaid = m_bFullSaid && m_marked.size() >= MOST_DIRECTORIES;
}

void FanotifyMarks::MarkDirectory(const std::string& strPath, uint64_t nMask) {
    if (m_marked.size() >= MOST_DIRECTORIES) {
        ForgetGone();
    }
    if (m_marked.size() >= MOST_DIRECTORIES) {
        if (!std::exchange(m_bFullSaid, true)) {
            m_notices.push_back("more than " + std::to_string(MOST_DIRECTORIES) +
                                " directories in watched places: the others are not marked");
        }
        return;
    }
    const int nError = m_calls.Mark(false, nMask | ON_CHILDREN, strPath);
    if (nError == 0) {
        m_marked[m_calls.HandleOf(strPath)] = strPath;
    } else if (nError != ENOENT) {
        m_notices.push_back(strPath + " cannot be watched by itself: " + std::strerror(nError));
    }
}

void FanotifyMarks::OnDirectory(const std::string& strPath) {
    for (const WatchedPaths::Directory& place : m_places.Directories()) {
        if (place_mounts::IsIn(place.strPath, strPath)) {
            MarkPlace(place);
        } else if (place_mounts::IsIn(strPath, place.strPath) && m_calls.IsDirectory(strPath)) {
            MarkTree(strPath, MaskFor(place));
        }
    }
}

// On a file system that is watched whole the closing after writing is reported anyway.
void FanotifyMarks::OnLinked(const std::string& strPath) {
    std::string strHandle = m_calls.HandleOf(strPath);
    if (strHandle.empty() || m_files.count(strHandle) != 0) {
        return;
    }
    if (m_files.size() >= MOST_FILES) {
        if (!std::exchange(m_bFilesSaid, true)) {
            m_notices.push_back("more than " + std::to_string(MOST_FILES) +
                                " files in watched places have further names: of the others those "
                                "writes are reported at the closing at most");
        }
        return;
    }
    if (m_calls.MarkFile(FAN_MODIFY | FAN_CLOSE_WRITE, strPath) == 0) {
        m_files.insert(std::move(strHandle));
    }
}

bool FanotifyMarks::System::Is(std::string_view strWanted, bool bOverlay) const {
    return strFsid == strWanted && (mount.strType == "overlay") == bOverlay;
}

std::vector<std::string> FanotifyMarks::PointsOf(std::string_view strFsid, bool bOverlay) const {
    std::vector<std::string> points;
    for (const auto& entry : m_systems) {
        if (entry.second.Is(strFsid, bOverlay)) {
            points.push_back(entry.second.mount.strPoint);
        }
    }
    return points;
}

std::string FanotifyMarks::TypeOf(std::string_view strFsid, bool bOverlay) const {
    for (const auto& entry : m_systems) {
        if (entry.second.Is(strFsid, bOverlay)) {
            return entry.second.mount.strType;
        }
    }
    return "";
}

std::string FanotifyMarks::TypeAt(const std::string& strPath) const {
    const MountEntry* const pMount = m_mounts.At(strPath);
    return pMount == nullptr ? "" : pMount->strType;
}

std::string FanotifyMarks::MarkedPath(std::string_view strHandle) const {
    const auto found = m_marked.find(strHandle);
    return found == m_marked.end() ? "" : found->second;
}
