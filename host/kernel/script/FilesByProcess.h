// Files that processes opened to execute them, each with a descriptor, in their order; the newest
// of them.
//
// Threads: one. Errors: none but std::bad_alloc. Ownership: owns the descriptors.
#ifndef HOST_KERNEL_SCRIPT_FILESBYPROCESS_H
#define HOST_KERNEL_SCRIPT_FILESBYPROCESS_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

#include "host/base/UniqueFd.h"

class FilesByProcess {
public:
    using Clock = std::chrono::steady_clock;

    struct File {
        uint32_t nPid;
        UniqueFd fd;
        Clock::time_point when;
        uint64_t nNumber;
        ino_t nInode = 0;       // for the owner; 0: not examined yet
        bool bStarted = false;  // likewise: of a start that has been handled
    };

    explicit FilesByProcess(size_t nMost) : m_nMost(nMost) {}

    // The oldest goes when there are too many.
    void Add(uint32_t nPid, UniqueFd fd, Clock::time_point now);
    // Here some are missing.
    void AddGap() { m_nComplete = m_nNext; }
    void DropBefore(Clock::time_point when);

    // Those of a process, oldest first; good until the next change.
    std::vector<File*> Of(uint32_t nPid);
    size_t Processes() const { return m_numbers.size(); }  // that have files here
    // Whether none is missing since.
    bool IsComplete(const File& file) const { return file.nNumber >= m_nComplete; }

private:
    void DropOldest();

    const size_t m_nMost;
    std::deque<File> m_files;  // oldest first, by numbers without a gap
    std::unordered_map<uint32_t, std::vector<uint64_t>> m_numbers;  // of each process's files
    uint64_t m_nNext = 0;
    uint64_t m_nComplete = 0;
};

#endif
