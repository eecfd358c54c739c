#include "tests/faults/AllocFaults.h"

#include <cerrno>
#include <cstddef>

#if TESTS_ALLOC_FAULTS

namespace {

thread_local long t_nAt = 0;
thread_local long t_nCalls = 0;
thread_local bool t_bForGood = false;
thread_local bool t_bFailed = false;

bool Fails() {
    if (t_nAt == 0) {
        return false;
    }
    const long nCall = ++t_nCalls;
    if (nCall != t_nAt && !(t_bForGood && nCall > t_nAt)) {
        return false;
    }
    t_bFailed = true;
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" {

// The C library's own, under the names that it exports for this.
void* __libc_malloc(size_t nBytes);
void* __libc_calloc(size_t nCount, size_t nBytes);
void* __libc_realloc(void* pOld, size_t nBytes);

__attribute__((visibility("default"))) void* malloc(size_t nBytes) {
    return Fails() ? nullptr : __libc_malloc(nBytes);
}

__attribute__((visibility("default"))) void* calloc(size_t nCount, size_t nBytes) {
    return Fails() ? nullptr : __libc_calloc(nCount, nBytes);
}

__attribute__((visibility("default"))) void* realloc(void* pOld, size_t nBytes) {
    return Fails() ? nullptr : __libc_realloc(pOld, nBytes);
}
}

void AllocFaults::Arm(long nAt, bool bForGood) {
    t_nCalls = 0;
    t_bFailed = false;
    t_bForGood = bForGood;
    t_nAt = nAt;
}

bool AllocFaults::Disarm() {
    t_nAt = 0;
    return t_bFailed;
}

long AllocFaults::Calls() {
    return t_nCalls;
}

#else

void AllocFaults::Arm(long, bool) {}
bool AllocFaults::Disarm() {
    return false;
}
long AllocFaults::Calls() {
    return 0;
}

#endif
