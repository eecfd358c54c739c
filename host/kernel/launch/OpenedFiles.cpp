#include "host/kernel/launch/OpenedFiles.h"

#include <algorithm>
#include <utility>

void OpenedFiles::Read(Clock::time_point now) {
    m_notices.Read(
        [this, now](uint32_t nPid, UniqueFd fd) {
            if (fd) {
                m_files.Add(nPid, std::move(fd), now);
            } else {
                m_files.AddGap();
            }
        },
        MOST_READS);
    m_files.DropBefore(now - KEPT);
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
std::string OpenedFiles::Find(const LaunchEvent& event, const FileLook& fnLook) {
    const std::vector<File*> files = m_files.Of(event.nPid);
    for (auto it = files.rbegin(); it != files.rend(); ++it) {
        std::string strPath = "/proc/self/fd/" + std::to_string((*it)->fd.Get());
        FileStatus status;
        if (fnLook(strPath, status) && StartedFile(event, "", fnLook).IsInode(status)) {
            return strPath;
        }
    }
    return "";
}

// By its mount where its file system has several devices: it was opened over the one that it was
// started from.
bool OpenedFiles::IsProgramOf(const LaunchEvent& event, File& file) {
    FileStatus status;
    if (file.nInode == 0 && file_look::AtDescriptor(file.fd.Get(), status)) {
        file.nInode = status.st_ino;
    }
    return file.nInode == event.nInode && file_look::AtDescriptor(file.fd.Get(), status) &&
           StartedFile(event, "", {}).IsInode(status);
}

std::vector<OpenedForStart> OpenedFiles::FilesOf(const LaunchEvent& event) {
    const auto fnIsProgram = [&](File* pFile) {
        return !pFile->bStarted && IsProgramOf(event, *pFile);
    };
    std::vector<File*> all = m_files.Of(event.nPid);
    if (std::none_of(all.begin(), all.end(), fnIsProgram)) {
        Read(Clock::now());
        all = m_files.Of(event.nPid);
    }
    all.erase(all.begin(), all.end() - static_cast<long>(std::min(all.size(), MOST_OF_ONE)));
    std::vector<OpenedForStart> files;
    for (File* const pFile : all) {
        OpenedForStart opened;
        // Before one that is missing nothing is known to be of this start.
        if (!pFile->bStarted && m_files.IsComplete(*pFile) &&
            file_look::AtDescriptor(pFile->fd.Get(), opened.status)) {
            opened.nFd = pFile->fd.Get();
            opened.bInterpreter = IsProgramOf(event, *pFile);
            files.push_back(opened);
        }
    }
    return files;
}

void OpenedFiles::Started(const LaunchEvent& event) {
    if (!MarkStarted(event)) {
        Read(Clock::now());
        (void)MarkStarted(event);  // one that was not reported leaves nothing to mark
    }
}

// Up to the first that is its program, of those of no start handled before.
bool OpenedFiles::MarkStarted(const LaunchEvent& event) {
    const std::vector<File*> files = m_files.Of(event.nPid);
    const auto start = std::find_if(files.begin(), files.end(), [&](File* pFile) {
        return !pFile->bStarted && IsProgramOf(event, *pFile);
    });
    if (start == files.end()) {
        return false;
    }
    std::for_each(files.begin(), start + 1, [](File* pFile) { pFile->bStarted = true; });
    return true;
}
