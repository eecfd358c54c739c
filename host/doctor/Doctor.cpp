#include "host/doctor/Doctor.h"

#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "host/base/HumanText.h"
#include "host/database/SqliteConnection.h"
#include "host/doctor/DoctorSensors.h"
#include "host/module/PluginLoader.h"
#include "host/process/Privileges.h"
#include "host/process/StateDir.h"
#include "host/verdict/PackageSource.h"

namespace doctor {

namespace {

struct Capability {
    int nNumber;
    const char* pszName;
};

constexpr Capability NEEDED[] = {
    {39, "CAP_BPF"},        {38, "CAP_PERFMON"},        {21, "CAP_SYS_ADMIN"},
    {19, "CAP_SYS_PTRACE"}, {2, "CAP_DAC_READ_SEARCH"},
};

constexpr int64_t YEAR_2020 = 1577836800;
constexpr int64_t CLOCK_SLACK = 120;  // seconds
constexpr uint64_t LITTLE_SPACE = 64ULL << 20;
constexpr uint64_t ENOUGH_SPACE = 1ULL << 30;  // the queue at its limit, and room to tidy it up
constexpr uint64_t LITTLE_INODES = 100;
constexpr int BUSY_MS = 1000;

// strPath or the nearest directory above it that exists.
std::string Existing(std::string strPath) {
    while (strPath.size() > 1 && access(strPath.c_str(), F_OK) != 0) {
        strPath.resize(std::max<size_t>(strPath.rfind('/'), 1));
    }
    return strPath;
}

Finding SpaceBelow(const std::string& strDirectory) {
    const std::string strPlace = Existing(strDirectory);
    struct statvfs space = {};
    if (statvfs(strPlace.c_str(), &space) != 0) {
        return {FINDING_WARNING, "free space",
                "cannot be determined for " + strPlace + ": " + std::strerror(errno),
                "look at that directory"};
    }
    return OfSpace(strPlace, uint64_t{space.f_bavail} * space.f_frsize, space.f_favail,
                   space.f_files);
}

int64_t ModifiedAt(const std::string& strFile) {
    struct stat status = {};
    return stat(strFile.c_str(), &status) == 0 ? status.st_mtime : 0;
}

// SQLite's code of the check; strAnswer is "ok", or what is wrong.
int QuickCheck(const std::string& strFile, std::string& strAnswer) {
    SqliteConnection connection;
    int nCode = connection.Open(strFile, SQLITE_OPEN_READONLY, BUSY_MS);
    if (nCode == SQLITE_OK) {
        nCode = connection.Execute("pragma quick_check(1)", strAnswer);
    }
    if (nCode != SQLITE_OK) {
        strAnswer = connection.Text();
    }
    return nCode;
}

}  // namespace

Finding OfPrivilege(const std::function<bool(int nCapability)>& fnHas) {
    std::string strMissing;
    for (const Capability& capability : NEEDED) {
        if (!fnHas(capability.nNumber)) {
            strMissing += (strMissing.empty() ? "" : ", ") + std::string(capability.pszName);
        }
    }
    if (strMissing.empty()) {
        return {FINDING_OK, "privilege", "everything that the sensors need", ""};
    }
    return {FINDING_FAILED, "privilege", "missing " + strMissing + ": watch cannot capture",
            "run as root or with these capabilities; scan and replay work without"};
}

Finding OfKernel(const std::string& strRelease) {
    int nMajor = 0, nMinor = 0;
    (void)std::sscanf(strRelease.c_str(), "%d.%d", &nMajor, &nMinor);
    const int nVersion = nMajor * 1000 + nMinor;
    if (nVersion < 5008) {
        return {FINDING_FAILED, "kernel", "Linux " + strRelease + " is older than 5.8",
                "use a newer kernel, as Debian 12 has it"};
    }
    if (nVersion < 5017) {
        return {FINDING_WARNING, "kernel",
                "Linux " + strRelease +
                    " is older than 5.17: a rename is reported as two operations that nothing ties "
                    "together",
                "use a newer kernel, as Debian 12 has it"};
    }
    return {FINDING_OK, "kernel", "Linux " + strRelease, ""};
}

Finding OfClock(int64_t tmNow, int64_t tmNewestFile) {
    const std::string strNow = text::LocalTime(tmNow);
    if (tmNow < YEAR_2020) {
        return {FINDING_FAILED, "clock",
                "it shows " + strNow +
                    ": verdicts expire by it, and would live too long or not "
                    "at all",
                "set the clock, or let systemd-timesyncd do it"};
    }
    if (tmNewestFile > tmNow + CLOCK_SLACK) {
        return {FINDING_WARNING, "clock",
                "it shows " + strNow + ", but a database was written at " +
                    text::LocalTime(tmNewestFile) +
                    ": it has been set back, and verdicts of "
                    "that time live longer",
                "look whether the clock is right now"};
    }
    return {FINDING_OK, "clock", strNow, ""};
}

Finding OfSpace(const std::string& strPlace, uint64_t nFreeBytes, uint64_t nFreeInodes,
                uint64_t nInodes) {
    const std::string strText = text::Bytes(nFreeBytes) + " free below " + strPlace;
    const bool bNoInodes = nInodes > 0 && nFreeInodes < LITTLE_INODES;  // some have no number
    const char* const pszRemedy = "make room there, or choose another --state-dir";
    if (bNoInodes || nFreeBytes < LITTLE_SPACE) {
        return {FINDING_FAILED, "free space",
                strText + (bNoInodes ? ", and no room for more files" : "") +
                    ": messages would be lost",
                pszRemedy};
    }
    if (nFreeBytes < ENOUGH_SPACE) {
        return {FINDING_WARNING, "free space",
                strText + ": too little for a queue at its limit of 512 MiB", pszRemedy};
    }
    return {FINDING_OK, "free space", strText, ""};
}

// Who the directory belongs to, when root looks at one of another user to which only that user may
// write, as the service's is; "" otherwise.
std::string OtherOwner(const std::string& strPath) {
    struct stat status = {};
    if (geteuid() != 0 || lstat(strPath.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        status.st_uid == 0 || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "";
    }
    const passwd* const pUser = getpwuid(status.st_uid);
    return pUser == nullptr ? "number " + std::to_string(status.st_uid) : pUser->pw_name;
}

Finding OfStateDirectory(const std::string& strPath) {
    std::string strText;
    const std::string strOwner = OtherOwner(strPath);
    if (!strOwner.empty()) {
        return {FINDING_OK, "state directory",
                strPath + ", of the user " + strOwner + ", as whom the host works there; not root",
                ""};
    }
    if (!StateDir::IsUsable(strPath, strText)) {
        return {FINDING_FAILED, "state directory", strText, "do that, then look again"};
    }
    return {FINDING_OK, "state directory", strText, ""};
}

Finding OfDatabase(const std::string& strFile) {
    const std::string strName = "database " + strFile.substr(strFile.rfind('/') + 1);
    if (access(strFile.c_str(), F_OK) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return {FINDING_OK, strName, "none yet, a run makes it", ""};
        }
        return {FINDING_FAILED, strName, strFile + ": " + std::strerror(errno),
                "run as the user who runs the host"};
    }
    std::string strAnswer;
    const int nCode = QuickCheck(strFile, strAnswer);
    if (nCode == SQLITE_OK && strAnswer == "ok") {
        return {FINDING_OK, strName,
                text::Bytes(static_cast<uint64_t>([&strFile] {
                    struct stat status = {};
                    (void)stat(strFile.c_str(), &status);
                    return status.st_size;
                }())) +
                    ", whole",
                ""};
    }
    if (nCode == SQLITE_BUSY || nCode == SQLITE_LOCKED) {
        return {FINDING_WARNING, strName, strFile + " is being written: not examined",
                "look again"};
    }
    if (nCode == SQLITE_READONLY || nCode == SQLITE_CANTOPEN) {
        return {FINDING_WARNING, strName, strFile + " cannot be read: " + strAnswer,
                "run as the user who runs the host; what a killed host left is completed by the "
                "next run"};
    }
    if ((nCode & 0xFF) == SQLITE_IOERR) {
        return {FINDING_FAILED, strName, strFile + " cannot be read: " + strAnswer,
                "look at what lies there and at its disk"};
    }
    return {FINDING_FAILED, strName, strFile + " is damaged: " + strAnswer,
            "stop the host and move the file away; the module makes a new one"};
}

Finding OfModule(const std::string& strFile) {
    PluginLoader loader;
    std::string strError;
    if (!loader.Load(strFile, strError)) {
        return {FINDING_FAILED, "module", strError, "name the module with --module"};
    }
    return {FINDING_OK, "module", strFile + " loads and has its functions", ""};
}

Finding OfPackages(const std::string& strInfoDir) {
    const std::unique_ptr<PackageSource> pPackages = PackageSource::Load(strInfoDir);
    if (pPackages->PackageCount() == 0) {
        return {FINDING_WARNING, "packages",
                pPackages->Note().empty() ? "the package database is empty" : pPackages->Note(),
                "on a machine without dpkg use good lists; every program is unknown without"};
    }
    return {FINDING_OK, "packages",
            text::Count(pPackages->Count(), "program") + " of " +
                text::Count(pPackages->PackageCount(), "package"),
            ""};
}

Machine ThisMachine() {
    utsname system = {};
    (void)uname(&system);
    return {privileges::Has, system.release, [] { return OfSensors(); },
            [] { return static_cast<int64_t>(time(nullptr)); }, "/var/lib/dpkg/info"};
}

std::vector<Finding> Examine(const HostOptions& options, const Machine& machine) {
    std::vector<Finding> findings = {OfPrivilege(machine.fnHas), OfKernel(machine.strRelease)};
    for (Finding& finding : machine.fnSensors()) {
        findings.push_back(std::move(finding));
    }
    const std::string strModule =
        options.strModule.empty() ? PluginLoader::DefaultPath() : options.strModule;
    findings.push_back(OfModule(strModule));
    findings.push_back(OfStateDirectory(options.strStateDir));
    findings.push_back(OfDatabase(options.ChannelDatabase()));
    findings.push_back(OfDatabase(options.CacheDatabase()));
    findings.push_back(SpaceBelow(options.DatabaseDir()));
    const int64_t tmNewest =
        std::max(ModifiedAt(options.ChannelDatabase()), ModifiedAt(options.CacheDatabase()));
    findings.push_back(OfClock(machine.fnNow(), tmNewest));
    findings.push_back(OfPackages(machine.strPackages));
    return findings;
}

}  // namespace doctor
