#include "tests/support/clocks/LeapingClocks.h"

#include <dlfcn.h>
#include <time.h>

#include <atomic>

namespace {

std::atomic<int64_t> g_nWallLeap{0};
std::atomic<int64_t> g_nProcessorLeap{0};
std::atomic<int> g_nWallLooks{0};
std::atomic<int> g_nProcessorLooks{0};

}  // namespace

// Stands before the C library's, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t eClock,
                                                                    timespec* pTime) noexcept {
    using Function = int (*)(clockid_t, timespec*);
    static const auto pfnNext = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int nResult = pfnNext(eClock, pTime);
    if (eClock == CLOCK_MONOTONIC_COARSE) {
        pTime->tv_sec += g_nWallLeap.load() * ++g_nWallLooks;
    } else if (eClock == CLOCK_THREAD_CPUTIME_ID) {
        pTime->tv_sec += g_nProcessorLeap.load() * ++g_nProcessorLooks;
    }
    return nResult;
}

LeapingClocks::LeapingClocks(int64_t nWallSeconds, int64_t nProcessorSeconds) {
    g_nWallLooks = 0;
    g_nProcessorLooks = 0;
    g_nWallLeap = nWallSeconds;
    g_nProcessorLeap = nProcessorSeconds;
}

LeapingClocks::~LeapingClocks() {
    g_nWallLeap = 0;
    g_nProcessorLeap = 0;
}

int LeapingClocks::WallLooks() {
    return g_nWallLooks;
}
