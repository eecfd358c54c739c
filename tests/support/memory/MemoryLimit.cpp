#include "tests/support/memory/MemoryLimit.h"

#include <dlfcn.h>

#include <limits>
#include <new>

namespace {

constexpr size_t NO_LIMIT = std::numeric_limits<size_t>::max();

thread_local size_t t_nLargest = NO_LIMIT;
thread_local long t_nPiecesBefore = -1;  // the piece that is refused; negative for none
thread_local long t_nRefused = 0;
thread_local long t_nKept = 0;
thread_local int t_nDepth = 0;  // one form of the operators may call another

class Depth {
public:
    Depth() { ++t_nDepth; }
    ~Depth() { --t_nDepth; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;

    bool IsOutermost() const { return t_nDepth == 1; }
};

// The definition that this program's own stands before.
template <class Function>
Function Next(const char* pszSymbol) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, pszSymbol));
}

bool Refuses(size_t nBytes) {
    const bool bRefused = nBytes > t_nLargest || t_nPiecesBefore == 0;
    t_nPiecesBefore -= t_nPiecesBefore >= 0 ? 1 : 0;
    t_nRefused += bRefused ? 1 : 0;
    return bRefused;
}

// next answers null or throws when there is none.
template <class Take>
void* Taken(Take next) {
    const Depth depth;
    void* pMemory = next();
    t_nKept += pMemory != nullptr && depth.IsOutermost() ? 1 : 0;
    return pMemory;
}

template <class Give>
void Given(const void* pMemory, Give next) {
    const Depth depth;
    t_nKept -= pMemory != nullptr && depth.IsOutermost() ? 1 : 0;
    next();
}

using New = void* (*)(size_t);
using NewOrNull = void* (*)(size_t, const std::nothrow_t&);
using Delete = void (*)(void*);
using DeleteSized = void (*)(void*, size_t);

}  // namespace

MemoryLimit::MemoryLimit(size_t nLargest) {
    t_nRefused = 0;
    t_nKept = 0;
    t_nLargest = nLargest;
}

MemoryLimit::MemoryLimit(PieceNumber number) : MemoryLimit(NO_LIMIT) {
    t_nPiecesBefore = number.nPiece;
}

MemoryLimit::~MemoryLimit() {
    t_nPiecesBefore = -1;
    t_nLargest = NO_LIMIT;
}

long MemoryLimit::Refused() const {
    return t_nRefused;
}

long MemoryLimit::Kept() const {
    return t_nKept;
}

// These stand before the libraries' own, for this program and every library it loads.
void* operator new(size_t nBytes) {
    static const auto pfnNext = Next<New>("_Znwm");
    if (Refuses(nBytes)) {
        throw std::bad_alloc();
    }
    return Taken([&] { return pfnNext(nBytes); });
}

void* operator new[](size_t nBytes) {
    static const auto pfnNext = Next<New>("_Znam");
    if (Refuses(nBytes)) {
        throw std::bad_alloc();
    }
    return Taken([&] { return pfnNext(nBytes); });
}

void* operator new(size_t nBytes, const std::nothrow_t& tag) noexcept {
    static const auto pfnNext = Next<NewOrNull>("_ZnwmRKSt9nothrow_t");
    return Refuses(nBytes) ? nullptr : Taken([&] { return pfnNext(nBytes, tag); });
}

void* operator new[](size_t nBytes, const std::nothrow_t& tag) noexcept {
    static const auto pfnNext = Next<NewOrNull>("_ZnamRKSt9nothrow_t");
    return Refuses(nBytes) ? nullptr : Taken([&] { return pfnNext(nBytes, tag); });
}

void operator delete(void* pMemory) noexcept {
    static const auto pfnNext = Next<Delete>("_ZdlPv");
    Given(pMemory, [&] { pfnNext(pMemory); });
}

void operator delete[](void* pMemory) noexcept {
    static const auto pfnNext = Next<Delete>("_ZdaPv");
    Given(pMemory, [&] { pfnNext(pMemory); });
}

void operator delete(void* pMemory, size_t nBytes) noexcept {
    static const auto pfnNext = Next<DeleteSized>("_ZdlPvm");
    Given(pMemory, [&] { pfnNext(pMemory, nBytes); });
}

void operator delete[](void* pMemory, size_t nBytes) noexcept {
    static const auto pfnNext = Next<DeleteSized>("_ZdaPvm");
    Given(pMemory, [&] { pfnNext(pMemory, nBytes); });
}
