#include "host/event/WatchedPaths.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "framework/base/file_utils.h"

namespace {

// The module's own list of watched places, which the host cannot include.
const std::vector<WatchedPaths::Place> PLACES = {
    {"/etc/cron.d/", nullptr},           {"/etc/cron.daily/", nullptr},
    {"/etc/cron.hourly/", nullptr},      {"/etc/cron.monthly/", nullptr},
    {"/etc/cron.weekly/", nullptr},      {"/var/spool/cron/crontabs/", nullptr},
    {"/etc/init.d/", nullptr},           {"/etc/rc.d/init.d/", nullptr},
    {"/etc/profile.d/", nullptr},        {"/var/spool/cron/", nullptr},
    {"/var/spool/at/", nullptr},         {"/etc/systemd/system/", "service"},
    {"/run/systemd/system/", "service"}, {"/etc/xdg/autostart/", "desktop"},
    {"/lib/systemd/system/", "service"},
};

// The root directory is "" then.
std::string WithoutSlash(std::string strPath) {
    while (!strPath.empty() && strPath.back() == '/') {
        strPath.pop_back();
    }
    return strPath;
}

// True when strPath is strDirectory, which ends in no slash, or below it.
bool IsIn(const std::string& strPath, const std::string& strDirectory) {
    return strPath.compare(0, strDirectory.size(), strDirectory) == 0 &&
           (strPath.size() == strDirectory.size() || strPath[strDirectory.size()] == '/');
}

std::string FollowLinks(const std::string& strPath) {
    const std::unique_ptr<char, void (*)(void*)> pReal(realpath(strPath.c_str(), nullptr), free);
    return pReal == nullptr ? "" : pReal.get();
}

WatchedPaths::Aliases Cleaned(const WatchedPaths::Aliases& aliases) {
    WatchedPaths::Aliases cleaned;
    for (const auto& alias : aliases) {
        cleaned.emplace_back(WithoutSlash(alias.first), WithoutSlash(alias.second));
    }
    return cleaned;
}

}  // namespace

const std::vector<WatchedPaths::Place>& WatchedPaths::All() {
    return PLACES;
}

WatchedPaths::WatchedPaths(const Aliases& aliases, RealPath fnReal)
    : m_given(Cleaned(aliases)), m_fnReal(fnReal ? std::move(fnReal) : FollowLinks) {
    Resolve();
}

// The links of a path whose last parts need not exist.
std::string WatchedPaths::Follow(const std::string& strPath) const {
    for (size_t nEnd = strPath.size(); nEnd > 1; nEnd = strPath.rfind('/', nEnd - 1)) {
        const std::string strReal = m_fnReal(strPath.substr(0, nEnd));
        if (!strReal.empty()) {
            return (strReal == "/" ? "" : strReal) + strPath.substr(nEnd);
        }
    }
    return strPath;
}

void WatchedPaths::AddDirectory(const std::string& strPath, const Place& place) {
    m_directories.push_back({strPath, place.pszSuffix != nullptr});
}

void WatchedPaths::Resolve() {
    m_aliases = m_given;
    m_directories.clear();
    for (const Place& place : PLACES) {
        const std::string strPlace = WithoutSlash(place.pszDirectory);
        const std::string strReal = Follow(strPlace);
        AddDirectory(strReal, place);
        if (strReal != strPlace) {
            m_aliases.emplace_back(strReal, strPlace);
        }
        for (const auto& alias : m_given) {
            if (IsIn(strPlace, alias.second)) {
                AddDirectory(alias.first + strPlace.substr(alias.second.size()), place);
            }
        }
    }
}

std::string WatchedPaths::Spelled(const std::string& strPath) const {
    for (const auto& alias : m_aliases) {
        if (IsIn(strPath, alias.first)) {
            std::string strOther = alias.second + strPath.substr(alias.first.size());
            if (IsWatched(FILE_CREATE, strOther)) {
                return strOther;
            }
        }
    }
    return strPath;
}

bool WatchedPaths::IsWatched(FileAct eAct, const std::string& strPath) {
    return std::any_of(PLACES.begin(), PLACES.end(), [&](const Place& place) {
        if (strPath.compare(0, std::strlen(place.pszDirectory), place.pszDirectory) != 0) {
            return false;
        }
        return place.pszSuffix == nullptr ||
               (eAct == FILE_CREATE && file_utils::GetFileSuffix(strPath) == place.pszSuffix);
    });
}
