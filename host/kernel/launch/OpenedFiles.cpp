#include "host/kernel/launch/OpenedFiles.h"

#include <algorithm>
#include <utility>

namespace {

std::string PathOfDescriptor(const UniqueFd& fd) {
    return "/proc/self/fd/" + std::to_string(fd.Get());
}

}  // namespace

void OpenedFiles::Read(Clock::time_point now) {
    const auto fnTake = [this, now](uint32_t nPid, UniqueFd fd) {
        m_files.push_back({nPid, std::move(fd), now});
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
        if (it->nPid != event.nPid || !it->fd) {
            continue;
        }
        std::string strPath = PathOfDescriptor(it->fd);
        FileStatus status;
        if (fnLook(strPath, status) && StartedFile(event, "", fnLook).IsInode(status)) {
            return strPath;
        }
    }
    return "";
}

// The first one of the process that is its program, of those of no start handled before.
OpenedFiles::FileAt OpenedFiles::FindStart(const LaunchEvent& event, const FileLook& fnLook) {
    return std::find_if(m_files.begin(), m_files.end(), [&](const File& file) {
        FileStatus status;
        return file.nPid == event.nPid && !file.bStarted && file.fd &&
               fnLook(PathOfDescriptor(file.fd), status) &&
               StartedFile(event, "", fnLook).IsInode(status);
    });
}

std::vector<OpenedForStart> OpenedFiles::FilesOf(const LaunchEvent& event, const FileLook& fnLook) {
    if (FindStart(event, fnLook) == m_files.end()) {
        Read(Clock::now());
    }
    std::vector<OpenedForStart> files;
    for (const File& file : m_files) {
        if (!file.fd) {
            files.clear();  // what is missing would be taken for another start's
            continue;
        }
        OpenedForStart opened;
        if (file.nPid != event.nPid || file.bStarted ||
            !fnLook(PathOfDescriptor(file.fd), opened.status)) {
            continue;
        }
        opened.nFd = file.fd.Get();
        opened.bInterpreter = StartedFile(event, "", fnLook).IsInode(opened.status);
        files.push_back(opened);
    }
    return files;
}

void OpenedFiles::Started(const LaunchEvent& event, const FileLook& fnLook) {
    auto start = FindStart(event, fnLook);
    if (start == m_files.end()) {
        Read(Clock::now());
        start = FindStart(event, fnLook);
    }
    if (start == m_files.end()) {
        return;
    }
    for (auto it = m_files.begin(); it <= start; ++it) {
        it->bStarted = it->bStarted || it->nPid == event.nPid;
    }
}
