#include "host/kernel/launch/LaunchPath.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <iterator>

#include "host/kernel/launch/ProcessLook.h"

namespace {

// The names by which the module knows interpreters.
constexpr const char* INTERPRETERS[] = {"bash", "dash", "python", "python2", "python3", "php"};

// Names that mean a file of whoever opens them.
constexpr const char* OWN_PLACES[] = {"/dev/fd/", "/dev/std", "/proc/self/", "/proc/thread-self/"};

// File systems whose stat names another device than the kernel's own records do: one without a
// driver, so that a file on a disk is never taken for theirs.
constexpr uint64_t MAGIC_OVERLAY = 0x794c7630;
constexpr uint64_t MAGIC_BTRFS = 0x9123683e;

bool IsExecuted(const struct stat& status, const LaunchEvent& event) {
    if (!S_ISREG(status.st_mode) || status.st_ino != event.nInode) {
        return false;
    }
    if (process_look::IdOf(status).nDevice == event.nDevice) {
        return true;
    }
    return major(status.st_dev) == 0 &&
           (event.nMagic == MAGIC_OVERLAY || event.nMagic == MAGIC_BTRFS);
}

bool IsInterpreter(const std::string& strPath) {
    const std::string strName = strPath.substr(strPath.rfind('/') + 1);
    return std::find(std::begin(INTERPRETERS), std::end(INTERPRETERS), strName) !=
           std::end(INTERPRETERS);
}

// "" when there is none, or when it means another file here than there.
std::string Absolute(std::string strName, const LaunchEvent& event) {
    if (strName.empty()) {
        return "";
    }
    if (strName[0] == '/') {
        for (const char* const pszPlace : OWN_PLACES) {
            if (strName.rfind(pszPlace, 0) == 0) {
                return "";
            }
        }
        return event.strRoot + strName;
    }
    while (strName.rfind("./", 0) == 0) {
        strName.erase(0, strName.find_first_not_of('/', 2));
    }
    return event.strDirectory + "/" + strName;
}

}  // namespace

bool LeadsTo(const std::string& strPath, const LaunchEvent& event, const FileLook& fnLook) {
    struct stat status = {};
    return !strPath.empty() && fnLook(strPath, status) && IsExecuted(status, event);
}

LaunchPath ChooseLaunchPath(const LaunchEvent& event, const FileLook& fnLook) {
    const std::string& strName = event.strInterp.empty() ? event.strName : event.strInterp;
    const std::string strInvoked = Absolute(strName, event);
    const bool bInvoked = LeadsTo(strInvoked, event, fnLook);
    const bool bBetter = IsInterpreter(event.strPath) && !IsInterpreter(strInvoked);
    if (bInvoked && !bBetter) {
        return {strInvoked, LAUNCH_PATH_INVOKED};
    }
    if (LeadsTo(event.strPath, event, fnLook)) {
        return {event.strPath, LAUNCH_PATH_RESOLVED};
    }
    if (bInvoked) {
        return {strInvoked, LAUNCH_PATH_INVOKED};
    }
    const std::string strProc = "/proc/" + std::to_string(event.nPid) + "/exe";
    if (LeadsTo(strProc, event, fnLook)) {
        return {strProc, LAUNCH_PATH_PROC};
    }
    return {};
}

std::string ScriptPath(const LaunchEvent& event, uint32_t nOwnMountNs, const FileLook& fnLook) {
    if (event.strInterp.empty() || event.nMountNs != nOwnMountNs || !event.strRoot.empty()) {
        return "";
    }
    // Which file was executed is not known, so a doubtful directory is one too many.
    if (event.bPathCut && event.strName.rfind('/', 0) != 0) {
        return "";
    }
    const std::string strPath = Absolute(event.strName, event);
    struct stat status = {};
    return !strPath.empty() && fnLook(strPath, status) && S_ISREG(status.st_mode) ? strPath : "";
}

uint32_t HostMountNs(const FileLook& fnLook) {
    struct stat root = {}, firstRoot = {}, space = {};
    const bool bSameRoot = fnLook("/", root) && fnLook("/proc/1/root/", firstRoot) &&
                           root.st_dev == firstRoot.st_dev && root.st_ino == firstRoot.st_ino;
    if (bSameRoot && fnLook("/proc/1/ns/mnt", space)) {
        return static_cast<uint32_t>(space.st_ino);
    }
    // The inode of what the link "mnt:[4026531841]" leads to is that number.
    return fnLook("/proc/self/ns/mnt", space) ? static_cast<uint32_t>(space.st_ino) : 0;
}
