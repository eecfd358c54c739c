#include "host/kernel/file/PlaceMounts.h"

#include <algorithm>

using place_mounts::IsIn;

namespace {

// What the paths below a directory begin with, before their "/".
std::string Bare(const std::string& strDirectory) {
    return strDirectory == "/" ? "" : strDirectory;
}

std::string Above(const std::string& strPath) {
    const size_t nSlash = strPath.rfind('/');
    return nSlash == 0 || nSlash == std::string::npos ? "/" : strPath.substr(0, nSlash);
}

}  // namespace

bool place_mounts::IsIn(const std::string& strPath, const std::string& strDirectory) {
    const size_t nSize = strDirectory == "/" ? 0 : strDirectory.size();
    return strPath.compare(0, nSize, strDirectory, 0, nSize) == 0 &&
           (strPath.size() == nSize || strPath[nSize] == '/');
}

std::vector<std::string> PlaceMounts::Read() {
    m_mounts = mount_table::Parse(m_calls.Mounts());
    m_parts.clear();
    std::map<std::string, std::string> byPlace;
    std::vector<std::string> changed;
    for (const WatchedPaths::Directory& place : m_places.Directories()) {
        const auto added = byPlace.emplace(place.strPath, "");
        if (!added.second) {
            continue;  // reached over a link as well
        }
        added.first->second = MountsOf(place.strPath);
        const auto before = m_byPlace.find(place.strPath);
        if (before != m_byPlace.end() && before->second != added.first->second) {
            changed.push_back(place.strPath);
        }
    }
    m_byPlace = std::move(byPlace);
    return changed;
}

// The texts of the mount of a place and of those in it.
std::string PlaceMounts::MountsOf(const std::string& strPlace) const {
    const MountEntry* const pMount = At(strPlace);
    std::string strText;
    for (const MountEntry& mount : m_mounts) {
        if (&mount == pMount || IsIn(mount.strPoint, strPlace)) {
            strText += std::to_string(mount.nId) + " " + std::to_string(mount.nDevice) + " " +
                       mount.strRoot + " " + mount.strPoint + "\n";
        }
    }
    return strText;
}

std::string PlaceMounts::Existing(const std::string& strPath) const {
    std::string strFound = strPath;
    while (strFound != "/" && !m_calls.IsDirectory(strFound)) {
        strFound = Above(strFound);
    }
    return strFound;
}

// By its number where that is known: a mount may be hidden by one above it.
const MountEntry* PlaceMounts::At(const std::string& strPath) const {
    const std::string strFound = Existing(strPath);
    const uint32_t nId = m_calls.MountIdOf(strFound);
    const auto found = std::find_if(m_mounts.begin(), m_mounts.end(),
                                    [nId](const auto& mount) { return mount.nId == nId; });
    return found == m_mounts.end() ? mount_table::MountOf(m_mounts, strFound) : &*found;
}

bool PlaceMounts::IsReached(const MountEntry& mount) const {
    const uint32_t nId = m_calls.MountIdOf(mount.strPoint);
    return nId == 0 || nId == mount.nId;
}

// Whether a place, or a part of one, lies on it.
bool PlaceMounts::HoldsPlace(const MountEntry& mount) const {
    const auto& places = m_places.Directories();
    return std::any_of(places.begin(), places.end(), [&](const auto& place) {
        if (!IsIn(place.strPath, mount.strPoint)) {
            return IsIn(mount.strPoint, place.strPath) && IsReached(mount);
        }
        const MountEntry* const pMount = At(place.strPath);
        return pMount != nullptr && pMount->nId == mount.nId;
    });
}

void PlaceMounts::SetWatched(const MountEntry& watched) {
    for (const MountEntry& mount : m_mounts) {
        if (mount.nDevice == watched.nDevice && mount.nId != watched.nId &&
            IsIn(mount.strRoot, watched.strRoot) && HoldsPlace(mount)) {
            const std::string strPart = Bare(mount.strRoot).substr(Bare(watched.strRoot).size());
            m_parts.emplace_back(Bare(watched.strPoint) + strPart, Bare(mount.strPoint));
        }
    }
    // A part of a part first.
    std::stable_sort(m_parts.begin(), m_parts.end(), [](const auto& left, const auto& right) {
        return left.first.size() > right.first.size();
    });
}

std::string PlaceMounts::PathInPlace(const std::string& strPath) const {
    for (const auto& part : m_parts) {
        if (IsIn(strPath, part.first.empty() ? "/" : part.first)) {
            const std::string strInPlace = part.second + Bare(strPath).substr(part.first.size());
            return strInPlace.empty() ? "/" : strInPlace;
        }
    }
    return strPath;
}
