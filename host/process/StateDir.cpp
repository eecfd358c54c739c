#include "host/process/StateDir.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "framework/base/CDir.h"
#include "host/base/StateLayout.h"

namespace {

constexpr mode_t PRIVATE_DIR = 0700;
constexpr mode_t PRIVATE_FILE = 0600;
const char* const REMEDY = "choose another with --state-dir";

std::string SystemError(const std::string& strWhat, const std::string& strPath) {
    return strWhat + " " + strPath + ": " + std::strerror(errno) + "; " + REMEDY;
}

std::string Environment(const char* pszName) {
    const char* pszValue = std::getenv(pszName);
    return pszValue == nullptr ? "" : pszValue;
}

bool MakeWithParents(const std::string& strPath, std::string& strError) {
    for (size_t nSlash = strPath.find('/', 1);; nSlash = strPath.find('/', nSlash + 1)) {
        const std::string strDir = strPath.substr(0, nSlash);
        if (mkdir(strDir.c_str(), PRIVATE_DIR) != 0 && errno != EEXIST) {
            strError = SystemError("cannot make the state directory", strDir);
            return false;
        }
        if (nSlash == std::string::npos) {
            return true;
        }
    }
}

bool IsPrivate(int nDirFd, const std::string& strPath, std::string& strError) {
    struct stat status = {};
    if (fstat(nDirFd, &status) != 0) {
        strError = SystemError("cannot look at", strPath);
        return false;
    }
    if (status.st_uid != geteuid()) {
        strError = "the state directory " + strPath + " belongs to another user; " + REMEDY;
        return false;
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        strError = "others may write to the state directory " + strPath +
                   "; take that away with chmod 700, or " + REMEDY;
        return false;
    }
    return true;
}

// The directory strPath, whose parent nParent is, made when missing. None with strError set.
UniqueFd OpenPart(int nParent, const std::string& strPath, std::string& strError) {
    const std::string strName = strPath.substr(strPath.rfind('/') + 1);
    if (mkdirat(nParent, strName.c_str(), PRIVATE_DIR) != 0 && errno != EEXIST) {
        strError = SystemError("cannot make", strPath);
        return UniqueFd();
    }
    UniqueFd fd(openat(nParent, strName.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        strError = SystemError("cannot open", strPath);
    } else if (!IsPrivate(fd.Get(), strPath, strError)) {
        fd.Reset();
    }
    return fd;
}

// Whether nobody else can put another directory or link in the place of strPath. In a directory
// with the sticky bit, as /tmp is, others can make entries but not take ours away.
bool IsSafeEntry(const std::string& strPath, std::string& strError) {
    struct stat status = {};
    if (lstat(strPath.c_str(), &status) != 0) {
        strError = SystemError("cannot look at", strPath);
        return false;
    }
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
        strError = strPath +
                   ", on the way to the state directory, belongs to another user, who could swap "
                   "it; " +
                   REMEDY;
        return false;
    }
    const bool bShared = S_ISDIR(status.st_mode) && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 &&
                         (status.st_mode & S_ISVTX) == 0;
    if (bShared) {
        strError = "others may write to " + strPath +
                   ", on the way to the state directory, and could swap it; take that away with "
                   "chmod go-w, or " +
                   REMEDY;
    }
    return !bShared;
}

bool AreParentsSafe(const std::string& strPath, std::string& strError) {
    if (!IsSafeEntry("/", strError)) {
        return false;
    }
    for (size_t nSlash = strPath.find('/', 1); nSlash != std::string::npos;
         nSlash = strPath.find('/', nSlash + 1)) {
        if (!IsSafeEntry(strPath.substr(0, nSlash), strError)) {
            return false;
        }
    }
    return true;
}

// The way as it is written, with its links, and the way that it leads.
bool IsWaySafe(const std::string& strPath, std::string& strError) {
    char szReal[PATH_MAX] = "";
    if (realpath(strPath.c_str(), szReal) == nullptr) {
        strError = SystemError("cannot find the state directory", strPath);
        return false;
    }
    return AreParentsSafe(strPath, strError) && AreParentsSafe(szReal, strError);
}

}  // namespace

std::string StateDir::DefaultPath() {
    if (geteuid() == 0) {
        return "/var/lib/tevmon";
    }
    const std::string strState = Environment("XDG_STATE_HOME");
    if (!strState.empty() && strState[0] == '/') {
        return strState + "/tevmon";
    }
    const std::string strHome = Environment("HOME");
    return strHome.empty() || strHome[0] != '/' ? "" : strHome + "/.local/state/tevmon";
}

std::string StateDir::Absolute(const std::string& strPath) {
    std::string strAbsolute = strPath;
    if (!strPath.empty() && strPath[0] != '/') {
        strAbsolute = CDir::currentDir() + strPath;
    }
    while (strAbsolute.size() > 1 && strAbsolute.back() == '/') {
        strAbsolute.pop_back();
    }
    return strAbsolute;
}

bool StateDir::Enter(const std::string& strPath, std::string& strError) {
    umask(077);
    if (strPath.empty()) {
        strError =
            "no state directory: neither XDG_STATE_HOME nor HOME is set; name one with "
            "--state-dir";
        return false;
    }
    if (!MakeWithParents(strPath, strError) || !IsWaySafe(strPath, strError)) {
        return false;
    }
    const UniqueFd dir(open(strPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir) {
        strError = SystemError("cannot open the state directory", strPath);
        return false;
    }
    if (!IsPrivate(dir.Get(), strPath, strError) || !TakeLock(dir.Get(), strPath, strError)) {
        return false;
    }
    const UniqueFd data = OpenPart(dir.Get(), state_layout::Data(strPath), strError);
    if (!data || !OpenPart(data.Get(), state_layout::Databases(strPath), strError)) {
        return false;
    }
    const std::string strRun = state_layout::Run(strPath);
    const UniqueFd run = OpenPart(dir.Get(), strRun, strError);
    if (!run) {
        return false;
    }
    if (fchdir(run.Get()) != 0) {
        strError = SystemError("cannot change into", strRun);
        return false;
    }
    return true;
}

bool StateDir::IsUsable(const std::string& strPath, std::string& strText) {
    std::string strExisting = strPath;
    struct stat status = {};  // of the entry itself: a link that leads nowhere is in the way
    while (strExisting.size() > 1 && lstat(strExisting.c_str(), &status) != 0 && errno == ENOENT) {
        strExisting.resize(std::max<size_t>(strExisting.rfind('/'), 1));
    }
    if (!IsWaySafe(strExisting, strText)) {
        return false;
    }
    const bool bMade = strExisting == strPath;
    if (!bMade && !IsSafeEntry(strExisting, strText)) {
        return false;
    }
    if (!bMade && access(strExisting.c_str(), W_OK | X_OK) != 0) {
        strText = SystemError("cannot make the state directory in", strExisting);
        return false;
    }
    const UniqueFd dir(open(strExisting.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir) {
        strText = SystemError("cannot open the state directory", strExisting);
        return false;
    }
    const bool bUsable = !bMade || IsPrivate(dir.Get(), strPath, strText);
    if (bUsable) {
        strText = strPath + (bMade ? ", private" : ", not there yet, a run makes it");
    }
    return bUsable;
}

bool StateDir::TakeLock(int nDirFd, const std::string& strPath, std::string& strError) {
    UniqueFd lock(openat(nDirFd, "lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                         PRIVATE_FILE));
    if (!lock) {
        strError = SystemError("cannot open the lock", strPath + "/lock");
        return false;
    }
    if (flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        char szHolder[32] = "";
        const ssize_t nRead = read(lock.Get(), szHolder, sizeof(szHolder) - 1);
        const std::string strHolder(szHolder, nRead > 0 ? static_cast<size_t>(nRead) : 0);
        strError = "the state directory " + strPath + " is in use by process " +
                   std::to_string(std::atol(strHolder.c_str())) + "; stop that one, or " + REMEDY;
        return false;
    }
    const std::string strPid = std::to_string(getpid()) + "\n";
    // The number only makes the other host's message better; the lock is what counts.
    if (ftruncate(lock.Get(), 0) == 0) {
        (void)!write(lock.Get(), strPid.data(), strPid.size());
    }
    m_lock = std::move(lock);
    return true;
}
