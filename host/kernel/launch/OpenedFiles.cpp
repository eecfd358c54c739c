#include "host/kernel/launch/OpenedFiles.h"

#include <utility>

void OpenedFiles::Read(Clock::time_point now) {
    const auto fnTake = [this, now](uint32_t nPid, UniqueFd fd) {
        if (fd) {
            m_files.push_back({nPid, std::move(fd), now});
        }
        if (m_files.size() > MOST_FILES) {
            m_files.pop_front();
        }
    };
    m_notices.Read(fnTake, MOST_READS);
    while (!m_files.empty() && now - m_files.front().when > KEPT) {
        m_files.pop_front();
    }
}

std::string OpenedFiles::PathOf(const LaunchEvent& event, const FileLook& fnLook) {
    std::string strPath = Find(event, fnLook);
    if (strPath.empty()) {
        Read(Clock::now());  // it was opened before it was started
        strPath = Find(event, fnLook);
    }
    return strPath;
}

// The last one of the process: an inode that is held is nobody else's.
std::string OpenedFiles::Find(const LaunchEvent& event, const FileLook& fnLook) const {
    for (auto it = m_files.rbegin(); it != m_files.rend(); ++it) {
        if (it->nPid != event.nPid) {
            continue;
        }
        std::string strPath = "/proc/self/fd/" + std::to_string(it->fd.Get());
        FileStatus status;
        if (fnLook(strPath, status) && StartedFile(event, "", fnLook).IsInode(status)) {
            return strPath;
        }
    }
    return "";
}
