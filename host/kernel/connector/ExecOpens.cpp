#include "host/kernel/connector/ExecOpens.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace {

constexpr size_t HEAD_BYTES = 2048;  // of a file: its first line, or its table of segments

}  // namespace

void ExecOpens::Read() {
    m_notices.Read([this](uint32_t nPid, const UniqueFd& fd) {
        if (fd) {
            TakeFile(nPid, fd.Get());
        } else {
            m_files.clear();  // what is missing would be taken for other starts
        }
    });
}

void ExecOpens::TakeFile(uint32_t nPid, int nFd) {
    FileStatus status;
    if (!file_look::AtDescriptor(nFd, status) || !S_ISREG(status.st_mode)) {
        return;
    }
    OpenedFile file;
    file.id = process_look::IdOf(status);
    if (status.st_nlink > 0) {
        file.strPath =
            process_look::LinkOf(AT_FDCWD, ("/proc/self/fd/" + std::to_string(nFd)).c_str());
    }
    char head[HEAD_BYTES];
    const ssize_t nRead = pread(nFd, head, sizeof(head), 0);
    ReadHead(std::string(head, nRead > 0 ? static_cast<size_t>(nRead) : 0), file);
    if (m_files.size() >= MOST_PROCESSES && m_files.count(nPid) == 0) {
        m_files.clear();
    }
    std::vector<OpenedFile>& files = m_files[nPid];
    if (files.size() >= MOST_FILES) {
        files.erase(files.begin());
    }
    files.push_back(std::move(file));
}

std::vector<OpenedFile> ExecOpens::Take(uint32_t nPid) {
    const auto found = m_files.find(nPid);
    if (found == m_files.end()) {
        return {};
    }
    std::vector<OpenedFile> files = std::move(found->second);
    m_files.erase(found);
    return files;
}
