// Events as the kernel wrote them, taken from it and not decoded yet. What waits in it is known
// before what came earlier is decoded: a directory that is gone by now has its last place in its
// own removal.
//
// Threads: one object, one thread. Errors: none but std::bad_alloc.
//
// Memory is the caller's to bound, by Bytes.
#ifndef HOST_KERNEL_FILE_HELDEVENTS_H
#define HOST_KERNEL_FILE_HELDEVENTS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/kernel/file/FileEvent.h"

class HeldEvents {
public:
    // What one read gave, at tmRead, in seconds since 1970.
    void Add(const char* pBytes, size_t nBytes, int64_t tmRead);

    bool IsEmpty() const { return m_pieces.empty(); }
    size_t Bytes() const { return m_nBytes; }

    // Of the oldest read; the bytes are good until RemoveOldest. There must be one.
    std::string_view Oldest() const;
    int64_t OldestRead() const { return m_pieces.front().tmRead; }
    void RemoveOldest();

    // Where the directory was when it was removed, the oldest removal first; the views are good
    // until RemoveOldest. Nothing when no removal of it is held.
    std::optional<FileSpot> WhereRemoved(std::string_view strHandle);

private:
    struct Piece {
        std::vector<char> bytes;
        int64_t tmRead = 0;
        bool bSearched = false;
        // Directories removed in it, by handle, once one of them was looked for.
        std::unordered_map<std::string_view, FileSpot> removed;
    };

    static void FindRemoved(Piece& piece);

    std::deque<Piece> m_pieces;  // oldest first
    size_t m_nBytes = 0;
};

#endif
