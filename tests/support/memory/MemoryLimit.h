// While one lives, operator new refuses this thread any piece of more than nLargest bytes, and the
// pieces that the thread takes and gives back are counted. Malloc, of C libraries, goes on.
//
// The program that links this folder answers operator new and delete itself and hands them on. One
// at a time on a thread.
#ifndef TESTS_SUPPORT_MEMORY_MEMORYLIMIT_H
#define TESTS_SUPPORT_MEMORY_MEMORYLIMIT_H

#include <cstddef>

struct PieceNumber {
    long nPiece;
};

class MemoryLimit {
public:
    explicit MemoryLimit(size_t nLargest);  // 0: nothing is to be had
    // Refuses one piece only, of that number, counted from 0.
    explicit MemoryLimit(PieceNumber number);
    ~MemoryLimit();

    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

    long Refused() const;  // pieces asked for in vain so far
    long Kept() const;     // pieces taken and not given back so far
};

#endif
