#include "host/kernel/script/FilesByProcess.h"

#include <utility>

void FilesByProcess::Add(uint32_t nPid, UniqueFd fd, Clock::time_point now) {
    m_numbers[nPid].push_back(m_nNext);
    m_files.push_back({nPid, std::move(fd), now, m_nNext});
    ++m_nNext;
    if (m_files.size() > m_nMost) {
        DropOldest();
    }
}

void FilesByProcess::DropBefore(Clock::time_point when) {
    while (!m_files.empty() && m_files.front().when < when) {
        DropOldest();
    }
}

void FilesByProcess::DropOldest() {
    const auto numbers = m_numbers.find(m_files.front().nPid);
    numbers->second.erase(numbers->second.begin());
    if (numbers->second.empty()) {
        m_numbers.erase(numbers);
    }
    m_files.pop_front();
}

std::vector<FilesByProcess::File*> FilesByProcess::Of(uint32_t nPid) {
    std::vector<File*> files;
    const auto found = m_numbers.find(nPid);
    if (found != m_numbers.end()) {
        const uint64_t nOldest = m_files.front().nNumber;
        for (const uint64_t nNumber : found->second) {
            files.push_back(&m_files[nNumber - nOldest]);
        }
    }
    return files;
}
