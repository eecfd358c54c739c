#include "tests/support/FakeClock.h"

#include <time.h>

#include <atomic>

namespace {
std::atomic<bool> g_bFake{false};
std::atomic<int64_t> g_tmNow{0};
}  // namespace

// Stands before the C library's, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) time_t time(time_t* pResult) noexcept {
    time_t tmNow = g_tmNow.load();
    if (!g_bFake.load()) {
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        tmNow = now.tv_sec;
    }
    if (pResult != nullptr) {
        *pResult = tmNow;
    }
    return tmNow;
}

FakeClock::FakeClock(int64_t tmNow) {
    g_tmNow = tmNow;
    g_bFake = true;
}

FakeClock::~FakeClock() {
    g_bFake = false;
}

void FakeClock::Set(int64_t tmNow) {
    g_tmNow = tmNow;
}

void FakeClock::Advance(int64_t nSeconds) {
    g_tmNow += nSeconds;
}
