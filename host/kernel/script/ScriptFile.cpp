#include "host/kernel/script/ScriptFile.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

#include "host/base/UniqueFd.h"

std::string script_file::LinkOf(int nFd) {
    return "/proc/self/fd/" + std::to_string(nFd);
}

std::string script_file::Joined(const std::string& strDirectory, std::string strName) {
    while (strName.rfind("./", 0) == 0) {
        strName.erase(0, strName.find_first_not_of('/', 2));
    }
    return strDirectory + "/" + strName;
}

bool script_file::LookWithoutMagic(const std::string& strPath, FileStatus& status) {
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_MAGICLINKS;
    const UniqueFd fd(
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, strPath.c_str(), &how, sizeof(how))));
    if (!fd) {
        return errno == ENOSYS && file_look::AtTarget(strPath, status);  // before Linux 5.6
    }
    return file_look::AtDescriptor(fd.Get(), status);
}

bool script_file::IsSameFile(const FileStatus& left, const FileStatus& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// A stamp of a coarse clock has no part of a millisecond, and no such clock stands still for longer
// than two seconds. An older stamp like that is of whoever made the file system's image.
bool script_file::HasLooseTimes(int nFd, int64_t nChanged, int64_t nStarted) {
    constexpr int64_t MILLISECOND = 1000000;
    constexpr int64_t COARSEST = 3000 * MILLISECOND;
    struct statfs fileSystem = {};
    const bool bCoarse = nChanged % MILLISECOND == 0 && nStarted - nChanged < COARSEST;
    if (fstatfs(nFd, &fileSystem) != 0 || bCoarse) {
        return true;
    }
    switch (static_cast<uint32_t>(fileSystem.f_type)) {
        case 0x01021994:  // tmpfs, memfd
        case 0x858458f6:  // ramfs
        case 0x958458f6:  // hugetlbfs
        case 0x4d44:      // FAT
        case 0x2011bab0:  // exFAT
            return true;
        default:
            return false;
    }
}

std::string script_file::KernelName(int nFd) {
    static const std::string DELETED = " (deleted)";
    std::string strName = file_look::LinkText(LinkOf(nFd));
    const bool bDeleted =
        strName.size() > DELETED.size() &&
        strName.compare(strName.size() - DELETED.size(), DELETED.size(), DELETED) == 0;
    strName.resize(strName.size() - (bDeleted ? DELETED.size() : 0));
    return strName;
}
