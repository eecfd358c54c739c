// The processor time of the calling thread: what tests and proofs compare, because neighbours on
// the machine do not add to it.
#ifndef TESTS_SUPPORT_THREADTIME_H
#define TESTS_SUPPORT_THREADTIME_H

#include <ctime>

inline double SecondsOf(clockid_t eClock) {
    timespec used = {};
    (void)clock_gettime(eClock, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

inline double ThreadSeconds() {
    return SecondsOf(CLOCK_THREAD_CPUTIME_ID);
}

// Of all threads of the process.
inline double ProcessSeconds() {
    return SecondsOf(CLOCK_PROCESS_CPUTIME_ID);
}

// Of processor time. Only what goes on for minutes or for ever takes so much, sanitizers included.
constexpr double HANGS_SECONDS = 30;

#endif
