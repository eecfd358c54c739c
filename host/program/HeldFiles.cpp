#include "host/program/HeldFiles.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace {

constexpr size_t LEAST_SWEEP = 1024;

size_t MostByDescriptors() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return LEAST_SWEEP / HeldFiles::DESCRIPTORS_PART;
    }
    rlimit raised = {limit.rlim_max, limit.rlim_max};
    if (limit.rlim_cur < limit.rlim_max && setrlimit(RLIMIT_NOFILE, &raised) == 0) {
        limit = raised;
    }
    return std::min<size_t>(limit.rlim_cur / HeldFiles::DESCRIPTORS_PART, HeldFiles::MOST_FILES);
}

std::string LinkOf(const UniqueFd& fd) {
    return "/proc/self/fd/" + std::to_string(fd.Get());
}

}  // namespace

HeldFiles::HeldFiles(size_t nMost) : m_nMost(nMost != 0 ? nMost : MostByDescriptors()) {}

std::shared_ptr<const HeldFile> HeldFiles::Find(const FileVersion& version) {
    const auto found = version.IsKnown() ? m_files.find(version) : m_files.end();
    return found == m_files.end() ? nullptr : found->second.lock();
}

std::shared_ptr<const HeldFile> HeldFiles::Hold(const FileVersion& version,
                                                const std::string& strPath,
                                                const std::string& strName,
                                                const MatchOf& fnMatchOf) {
    if (*m_pCount >= m_nMost) {
        ++m_nRefused;
        return nullptr;
    }
    // Examined before it is opened: opening a device may act, and a path may lead elsewhere by now.
    const UniqueFd path(open(strPath.c_str(), O_PATH | O_CLOEXEC));
    FileStatus status;
    const Match eMatch = path ? fnMatchOf(LinkOf(path), status) : MATCH_NONE;
    if (eMatch == MATCH_NONE) {
        return nullptr;
    }
    // Not blocking: somebody may hold a lease on it.
    constexpr int READ_FLAGS = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    UniqueFd fd(open(LinkOf(path).c_str(), READ_FLAGS | O_NOATIME));
    if (!fd && errno == EPERM) {
        fd.Reset(open(LinkOf(path).c_str(), READ_FLAGS));
    }
    if (!fd) {
        return nullptr;
    }
    const auto* const pHeld =
        new HeldFile(std::move(fd), version, status, strName, eMatch == MATCH_SURE);
    ++*m_pCount;
    std::shared_ptr<const HeldFile> pFile(pHeld, [pCount = m_pCount](const HeldFile* pGone) {
        delete pGone;
        --*pCount;
    });
    if (version.IsKnown() && eMatch == MATCH_SURE) {
        Sweep();
        m_files[version] = pFile;
    }
    return pFile;
}

// What nobody has any more.
void HeldFiles::Sweep() {
    if (m_files.size() < m_nSweepAt) {
        return;
    }
    for (auto it = m_files.begin(); it != m_files.end();) {
        it = it->second.expired() ? m_files.erase(it) : std::next(it);
    }
    m_nSweepAt = std::max(LEAST_SWEEP, 2 * m_files.size());
}
