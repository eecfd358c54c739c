#include "host/kernel/launch/LaunchPath.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <iterator>

#include "host/kernel/launch/ProcessLook.h"
#include "host/kernel/script/ScriptFile.h"

namespace {

// The names by which the module knows interpreters.
constexpr const char* INTERPRETERS[] = {"bash", "dash", "python", "python2", "python3", "php"};

// Names that mean a file of whoever opens them.
constexpr const char* OWN_PLACES[] = {"/dev/fd/", "/dev/std", "/proc/self/", "/proc/thread-self/"};

// Of some file systems stat names another device than the kernel's records do: there the mount
// decides. Its number may be one of another namespace.
bool IsOfFileSystem(const FileStatus& status, const LaunchEvent& event) {
    return process_look::IdOf(status).nDevice == event.nDevice ||
           (event.nMountId != 0 &&
            (status.nMountId == event.nMountId ||
             (status.nMountDevice != 0 && status.nMountDevice == event.nDevice)));
}

bool IsFile(const FileStatus& status, const LaunchEvent& event) {
    return S_ISREG(status.st_mode) && status.st_ino == event.nInode &&
           IsOfFileSystem(status, event);
}

// An inode's number is given to another file when it is free, and its content may be another one:
// both change its time, which nobody can set back.
bool HasTimesOf(const FileStatus& status, const LaunchEvent& event) {
    return event.nChanged == 0 || (status.Changed() == event.nChanged &&
                                   static_cast<uint64_t>(status.st_size) == event.nSize);
}

// "" when there is none, or when it means another file here than there.
std::string Absolute(const std::string& strName, const LaunchEvent& event) {
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
    return script_file::Joined(event.strDirectory, strName);
}

}  // namespace

StartedFile::StartedFile(const LaunchEvent& event, std::string strExeLink, const FileLook& fnLook)
    : m_event(event), m_strExeLink(std::move(strExeLink)), m_fnLook(fnLook) {}

bool StartedFile::IsAt(const std::string& strPath) {
    FileStatus status;
    return !strPath.empty() && strPath[0] == '/' && m_fnLook(strPath, status) && Is(status);
}

bool StartedFile::Is(const FileStatus& status) {
    return IsFile(status, m_event) && (HasTimesOf(status, m_event) || IsRunning());
}

bool StartedFile::IsInode(const FileStatus& status) const {
    return IsFile(status, m_event);
}

bool StartedFile::IsUnchanged(const FileStatus& status) const {
    return HasTimesOf(status, m_event);
}

bool StartedFile::IsRunning() {
    if (!m_running) {
        FileStatus status;
        m_running =
            m_fnLook(m_strExeLink, status) && IsFile(status, m_event) &&
            (HasTimesOf(status, m_event) || status.nBorn == 0 || status.nBorn <= m_event.nChanged);
    }
    return *m_running;
}

bool IsInterpreter(const std::string& strPath) {
    const std::string strName = strPath.substr(strPath.rfind('/') + 1);
    return std::find(std::begin(INTERPRETERS), std::end(INTERPRETERS), strName) !=
           std::end(INTERPRETERS);
}

LaunchPath ChooseLaunchPath(const LaunchEvent& event, const FileLook& fnLook) {
    const std::string strProc = "/proc/" + std::to_string(event.nPid) + "/exe";
    StartedFile file(event, strProc, fnLook);
    const std::string& strName = event.strInterp.empty() ? event.strName : event.strInterp;
    const std::string strInvoked = Absolute(strName, event);
    const bool bInvoked = file.IsAt(strInvoked);
    const bool bBetter = IsInterpreter(event.strPath) && !IsInterpreter(strInvoked);
    if (bInvoked && !bBetter) {
        return {strInvoked, LAUNCH_PATH_INVOKED};
    }
    if (file.IsAt(event.strPath)) {
        return {event.strPath, LAUNCH_PATH_RESOLVED};
    }
    if (bInvoked) {
        return {strInvoked, LAUNCH_PATH_INVOKED};
    }
    if (file.IsRunning()) {
        return {strProc, LAUNCH_PATH_PROC};
    }
    return {};
}

std::string AbsoluteName(const std::string& strName, const LaunchEvent& event) {
    // Which file was executed is not known, so a doubtful directory is one too many.
    return event.bPathCut && strName.rfind('/', 0) != 0 ? "" : Absolute(strName, event);
}

std::string ScriptPath(const LaunchEvent& event, uint32_t nOwnMountNs, const FileLook& fnLook) {
    if (event.strInterp.empty() || event.nMountNs != nOwnMountNs || !event.strRoot.empty()) {
        return "";
    }
    const std::string strPath = AbsoluteName(event.strName, event);
    FileStatus status;
    return !strPath.empty() && fnLook(strPath, status) && S_ISREG(status.st_mode) ? strPath : "";
}

uint32_t HostMountNs(const FileLook& fnLook) {
    FileStatus root, firstRoot, space;
    const bool bSameRoot = fnLook("/", root) && fnLook("/proc/1/root/", firstRoot) &&
                           root.st_dev == firstRoot.st_dev && root.st_ino == firstRoot.st_ino;
    if (bSameRoot && fnLook("/proc/1/ns/mnt", space)) {
        return static_cast<uint32_t>(space.st_ino);
    }
    // The inode of what the link "mnt:[4026531841]" leads to is that number.
    return fnLook("/proc/self/ns/mnt", space) ? static_cast<uint32_t>(space.st_ino) : 0;
}
