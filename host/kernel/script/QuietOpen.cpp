#include "host/kernel/script/QuietOpen.h"

#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/kernel/script/ScriptFile.h"

namespace {

constexpr size_t MOST_TABLE = size_t{64} << 10;  // of a process's mounts, which a user makes

UniqueFd Open(int nDir, const std::string& strPath, uint64_t nResolve, int nFlags = 0) {
    open_how how = {};
    how.flags = static_cast<uint64_t>(O_PATH | O_CLOEXEC | nFlags);
    how.resolve = nResolve | RESOLVE_NO_MAGICLINKS;
    return UniqueFd(
        static_cast<int>(syscall(SYS_openat2, nDir, strPath.c_str(), &how, sizeof(how))));
}

uint64_t ResolveOf(quiet_open::Inside eInside) {
    switch (eInside) {
        case quiet_open::INSIDE_ROOT:
            return RESOLVE_IN_ROOT;
        case quiet_open::INSIDE_DIRECTORY:
            return RESOLVE_BENEATH;
        case quiet_open::INSIDE_ALL:
            break;
    }
    return 0;
}

std::string ReadAll(const std::string& strPath) {
    const UniqueFd fd(open(strPath.c_str(), O_RDONLY | O_CLOEXEC));
    std::string strText;
    char bytes[4096];
    ssize_t nRead = 0;
    while (fd && strText.size() < MOST_TABLE &&
           (nRead = read(fd.Get(), bytes, sizeof(bytes))) > 0) {
        strText.append(bytes, static_cast<size_t>(nRead));
    }
    return strText;
}

// "/dev/fd/3/a" and "/proc/self/fd/3/a" as "fd/3" and "a", "/proc/self/cwd/a" as "cwd" and "a".
bool SplitOwn(const std::string& strName, std::string& strLink, std::string& strRest) {
    std::string strOwn;
    for (const char* const pszBegin : {"/proc/self/", "/proc/thread-self/", "/dev/"}) {
        const std::string strBegin = pszBegin;
        if (strName.compare(0, strBegin.size(), strBegin) == 0) {
            strOwn = strName.substr(strBegin.size());
            break;
        }
    }
    const bool bNumber = strOwn.compare(0, 3, "fd/") == 0;
    const bool bFolder = strOwn.compare(0, 5, "root/") == 0 || strOwn.compare(0, 4, "cwd/") == 0;
    if (!bNumber && !bFolder) {
        return false;
    }
    const size_t nSlash = std::min(strOwn.find('/', bNumber ? 3 : 0), strOwn.size());
    strLink = strOwn.substr(0, nSlash);
    strRest = strOwn.substr(std::min(nSlash + 1, strOwn.size()));
    return !bNumber ||
           (strLink.size() > 3 && strLink.find_first_not_of("0123456789", 3) == std::string::npos);
}

}  // namespace

UniqueFd quiet_open::Place(const std::string& strPath, const std::vector<MountEntry>& mounts,
                           int nDir, Inside eInside) {
    const uint64_t nResolve = ResolveOf(eInside);
    UniqueFd fd = Open(nDir, strPath, nResolve | RESOLVE_CACHED);
    if (!fd && errno == EAGAIN && eInside != INSIDE_ALL && IsLocal(nDir, mounts)) {
        fd = Open(nDir, strPath, nResolve | RESOLVE_NO_XDEV);
        errno = errno == EXDEV ? EAGAIN : errno;
    }
    // From the last directory that is known by heart on: nothing leads to another mount from there.
    for (size_t nEnd = strPath.rfind('/'); !fd && errno == EAGAIN && nEnd != std::string::npos;
         nEnd = nEnd == 0 ? std::string::npos : strPath.rfind('/', nEnd - 1)) {
        const UniqueFd directory = Open(nDir, nEnd == 0 ? "/" : strPath.substr(0, nEnd),
                                        nResolve | RESOLVE_CACHED, O_DIRECTORY);
        const size_t nRest = strPath.find_first_not_of('/', nEnd);
        if (directory) {
            const uint64_t nStay = eInside == INSIDE_ALL ? 0 : RESOLVE_BENEATH;
            const bool bLocal = nRest != std::string::npos && IsLocal(directory.Get(), mounts);
            return bLocal ? Open(directory.Get(), strPath.substr(nRest), nStay | RESOLVE_NO_XDEV)
                          : UniqueFd();
        }
    }
    return fd;
}

UniqueFd quiet_open::PlaceOf(uint32_t nPid, const std::string& strName,
                             const std::vector<MountEntry>& mounts) {
    const std::string strProc = "/proc/" + std::to_string(nPid) + "/";
    const bool bAbsolute = !strName.empty() && strName[0] == '/';
    std::string strLink = bAbsolute ? "root" : "cwd";
    std::string strRest = strName;
    const bool bOwn = bAbsolute && SplitOwn(strName, strLink, strRest);
    UniqueFd base(open((strProc + strLink).c_str(), O_PATH | O_CLOEXEC));
    if (!base || (bOwn && strRest.empty())) {
        return base;
    }
    const bool bRoot = bAbsolute && strLink == "root";
    return Place(strRest, mounts, base.Get(), bRoot ? INSIDE_ROOT : INSIDE_DIRECTORY);
}

bool quiet_open::Look(int nFd, FileStatus& status) {
    struct statx found = {};
    if (statx(nFd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_BASIC_STATS | STATX_MNT_ID,
              &found) != 0) {
        return false;
    }
    status = FileStatus();
    status.st_dev = makedev(found.stx_dev_major, found.stx_dev_minor);
    status.st_ino = found.stx_ino;
    status.st_mode = found.stx_mode;
    status.st_size = static_cast<off_t>(found.stx_size);
    status.st_ctim = {static_cast<time_t>(found.stx_ctime.tv_sec),
                      static_cast<long>(found.stx_ctime.tv_nsec)};
    status.nMountId =
        (found.stx_mask & STATX_MNT_ID) != 0 ? static_cast<uint32_t>(found.stx_mnt_id) : 0;
    return true;
}

bool quiet_open::IsLocal(int nFd, const std::vector<MountEntry>& mounts) {
    FileStatus status;
    return Look(nFd, status) &&
           std::any_of(mounts.begin(), mounts.end(), [&](const MountEntry& mount) {
               return mount.nId == status.nMountId && mount_table::IsLocal(mount.strType);
           });
}

std::vector<MountEntry> quiet_open::MountsOf(uint32_t nPid) {
    std::vector<MountEntry> mounts =
        mount_table::Parse(ReadAll("/proc/" + std::to_string(nPid) + "/mountinfo"));
    mounts.erase(std::remove_if(mounts.begin(), mounts.end(),
                                [](const MountEntry& mount) { return mount.strType == "overlay"; }),
                 mounts.end());
    return mounts;
}

PlacedFile placed_file::Here(const std::string& strPath) {
    const std::vector<MountEntry> mounts = mount_table::Parse(mount_table::Text());
    PlacedFile place;
    place.fd = quiet_open::Place(strPath, mounts);
    place.strName = strPath;
    place.bLocal = place.fd && quiet_open::Look(place.fd.Get(), place.status) &&
                   quiet_open::IsLocal(place.fd.Get(), mounts);
    return place;
}

PlacedFile placed_file::OfProcess(uint32_t nPid, const std::string& strName) {
    const std::vector<MountEntry> mounts = quiet_open::MountsOf(nPid);
    PlacedFile place;
    place.fd = quiet_open::PlaceOf(nPid, strName, mounts);
    place.strName = place.fd ? script_file::KernelName(place.fd.Get()) : "";
    place.bLocal = place.fd && quiet_open::Look(place.fd.Get(), place.status) &&
                   quiet_open::IsLocal(place.fd.Get(), mounts);
    return place;
}
