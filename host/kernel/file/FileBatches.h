// File operations on their way into messages: the batch that is being filled, and the full ones.
//
// Threads: one object, one thread. Errors: none but std::bad_alloc.
//
// Memory is bounded by how soon the caller takes the full ones.
#ifndef HOST_KERNEL_FILE_FILEBATCHES_H
#define HOST_KERNEL_FILE_FILEBATCHES_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/event/FileOperation.h"

class FileBatches {
public:
    using Clock = std::chrono::steady_clock;

    struct Limits {
        size_t nMostOperations = 256;              // in one batch
        size_t nMostBytes = 1024 * 1024;           // of paths, passed by one operation at most
        std::chrono::milliseconds batchTime{200};  // from its first operation until it is due
    };

    explicit FileBatches(const Limits& limits) : m_limits(limits) {}

    void Add(FileOperation operation, Clock::time_point now);
    // False when that process's write of that file is in the batch that is being filled already.
    bool IsFirstWrite(uint32_t nPid, const std::string& strPath);

    // True when a batch is full or due; bAny: or holds anything.
    bool HasBatch(Clock::time_point now, bool bAny) const;
    bool IsFilling() const { return !m_filling.operations.empty(); }
    // The oldest batch, full or not.
    std::vector<FileOperation> TakeOldest();

private:
    struct Batch {
        std::vector<FileOperation> operations;
        size_t nBytes = 0;
        Clock::time_point due;
    };

    void Close();

    const Limits m_limits;
    Batch m_filling;
    std::unordered_set<std::string> m_written;  // in the batch that is being filled
    std::deque<Batch> m_full;                   // oldest first
};

#endif
