// Adds the processor time that a thread takes while one lives, in nanoseconds, to a sum.
//
// Threads: the one that made it. Errors: none.
#ifndef HOST_KERNEL_FILE_THREADTIMER_H
#define HOST_KERNEL_FILE_THREADTIMER_H

#include <cstdint>
#include <ctime>

class ThreadTimer {
public:
    explicit ThreadTimer(uint64_t& nNanos) : m_nNanos(nNanos), m_nBegin(Now()) {}
    ~ThreadTimer() { m_nNanos += Now() - m_nBegin; }

    ThreadTimer(const ThreadTimer&) = delete;
    ThreadTimer& operator=(const ThreadTimer&) = delete;

private:
    static uint64_t Now() {
        timespec time = {};
        (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<uint64_t>(time.tv_sec) * 1000000000 +
               static_cast<uint64_t>(time.tv_nsec);
    }

    uint64_t& m_nNanos;
    const uint64_t m_nBegin;
};

#endif
