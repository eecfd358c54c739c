#include "host/program/FileLook.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <unordered_map>

#include "host/base/MountTable.h"

namespace {

constexpr int64_t NANOS = 1000000000;

timespec TimeOf(const statx_timestamp& stamp) {
    return {static_cast<time_t>(stamp.tv_sec), static_cast<long>(stamp.tv_nsec)};
}

bool Look(int nDir, const char* pszPath, int nFlags, FileStatus& status) {
    struct statx found = {};
    const unsigned int nWanted = STATX_BASIC_STATS | STATX_BTIME | STATX_MNT_ID;
    if (statx(nDir, pszPath, nFlags, nWanted, &found) != 0) {
        return false;
    }
    status = FileStatus();
    status.st_dev = makedev(found.stx_dev_major, found.stx_dev_minor);
    status.st_rdev = makedev(found.stx_rdev_major, found.stx_rdev_minor);
    status.st_ino = found.stx_ino;
    status.st_mode = found.stx_mode;
    status.st_nlink = found.stx_nlink;
    status.st_uid = found.stx_uid;
    status.st_gid = found.stx_gid;
    status.st_size = static_cast<off_t>(found.stx_size);
    status.st_mtim = TimeOf(found.stx_mtime);
    status.st_ctim = TimeOf(found.stx_ctime);
    if ((found.stx_mask & STATX_BTIME) != 0) {
        status.nBorn = found.stx_btime.tv_sec * NANOS + found.stx_btime.tv_nsec;
    }
    if ((found.stx_mask & STATX_MNT_ID) != 0) {
        status.nMountId = static_cast<uint32_t>(found.stx_mnt_id);
    }
    return true;
}

// The devices of this namespace's mounts, by their numbers; read again when mounts have changed.
class MountDevices {
public:
    uint32_t DeviceOf(uint32_t nMountId) {
        if (!m_table || mount_table::HasChanged(m_table)) {
            if (!m_table) {
                m_table = mount_table::Open();
            }
            m_devices.clear();
            for (const MountEntry& entry : mount_table::Parse(mount_table::Text())) {
                m_devices[entry.nId] = entry.nDevice;
            }
        }
        const auto found = m_devices.find(nMountId);
        return found == m_devices.end() ? 0 : found->second;
    }

private:
    UniqueFd m_table;
    std::unordered_map<uint32_t, uint32_t> m_devices;
};

}  // namespace

bool file_look::AtTarget(const std::string& strPath, FileStatus& status) {
    return AtTargetIn(AT_FDCWD, strPath.c_str(), status);
}

bool file_look::AtTargetIn(int nDir, const char* pszName, FileStatus& status) {
    return Look(nDir, pszName, 0, status);
}

bool file_look::AtItself(const std::string& strPath, FileStatus& status) {
    return Look(AT_FDCWD, strPath.c_str(), AT_SYMLINK_NOFOLLOW, status);
}

bool file_look::AtDescriptor(int nFd, FileStatus& status) {
    return Look(nFd, "", AT_EMPTY_PATH, status);
}

FileLook file_look::ByMounts() {
    return [pMounts = std::make_shared<MountDevices>()](const std::string& strPath,
                                                        FileStatus& status) {
        if (!AtTarget(strPath, status)) {
            return false;
        }
        if (major(status.st_dev) == 0) {
            status.nMountDevice = pMounts->DeviceOf(status.nMountId);
        }
        return true;
    };
}

std::string file_look::LinkText(const std::string& strLink, int nDir) {
    char szPath[PATH_MAX];
    const ssize_t nLength = readlinkat(nDir, strLink.c_str(), szPath, sizeof(szPath));
    return std::string(szPath, nLength > 0 ? static_cast<size_t>(nLength) : 0);
}
