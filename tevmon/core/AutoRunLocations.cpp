#include "tevmon/core/AutoRunLocations.h"

#include <cstring>

#include "framework/base/file_utils.h"

namespace {

// The monthly row stands four times. The repeats change no result and are kept.
constexpr const char* AUTORUN_LOCATIONS[] = {
    "/etc/cron.d/",       "/etc/cron.daily/",   "/etc/cron.hourly/",
    "/etc/cron.monthly/", "/etc/cron.monthly/", "/etc/cron.monthly/",
    "/etc/cron.monthly/", "/etc/cron.weekly/",  "/var/spool/cron/crontabs/",
    "/etc/init.d/",       "/etc/rc.d/init.d/",  "/etc/profile.d/",
    "/var/spool/cron/",   "/var/spool/at/",
};

struct UnitLocation {
    const char* pszPrefix;
    const char* pszSuffix;
};

constexpr UnitLocation UNIT_LOCATIONS[] = {
    {"/etc/systemd/system/", "service"},
    {"/run/systemd/system/", "service"},
    {"/etc/xdg/autostart/", "desktop"},
    {"/lib/systemd/system/", "service"},
};

bool BeginsWith(const std::string& strPath, const char* pszPrefix) {
    return strncmp(strPath.c_str(), pszPrefix, strlen(pszPrefix)) == 0;
}

}  // namespace

uint32_t GetPathClass(const std::string& strPath) {
    if (strPath.empty()) {
        return PathClassEmpty;
    }
    if (IsAutoRunLocation(strPath)) {
        return PathClassAutoRun;
    }
    return IsPathClassTwo(strPath) ? PathClassTwo : PathClassOther;
}

bool IsAutoRunLocation(const std::string& strPath) {
    for (const char* pszLocation : AUTORUN_LOCATIONS) {
        if (BeginsWith(strPath, pszLocation)) {
            return true;
        }
    }
    return false;
}

bool IsPathClassTwo(const std::string& /*strPath*/) {
    return false;
}

bool IsAutoRunUnitPath(const std::string& strPath) {
    for (const UnitLocation& location : UNIT_LOCATIONS) {
        if (BeginsWith(strPath, location.pszPrefix)) {
            return file_utils::GetFileSuffix(strPath) == location.pszSuffix;
        }
    }
    return false;
}
