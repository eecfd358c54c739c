// A condition variable whose waits with an end go by the monotonic clock: setting the system's
// clock neither cuts nor stretches them.
//
// std::condition_variable does the same through a call that the thread sanitizer of our compilers
// does not know.
//
// Threads: any. Errors: none.
#ifndef HOST_BASE_MONOTONICCONDITION_H
#define HOST_BASE_MONOTONICCONDITION_H

#include <pthread.h>

#include <chrono>
#include <ctime>

#include "host/base/Mutex.h"

class MonotonicCondition {
public:
    using Clock = std::chrono::steady_clock;

    MonotonicCondition() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&m_condition, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~MonotonicCondition() { pthread_cond_destroy(&m_condition); }

    MonotonicCondition(const MonotonicCondition&) = delete;
    MonotonicCondition& operator=(const MonotonicCondition&) = delete;

    void NotifyAll() { pthread_cond_broadcast(&m_condition); }

    // Both give mutex up while they wait and have it again when they return. They may return
    // early; callers test what they wait for.
    void Wait(Mutex& mutex) TEV_REQUIRES(mutex) {
        pthread_cond_wait(&m_condition, mutex.m_mutex.native_handle());
    }
    void WaitUntil(Mutex& mutex, Clock::time_point end) TEV_REQUIRES(mutex) {
        const auto sinceStart = end.time_since_epoch();
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
        timespec when = {};
        when.tv_sec = static_cast<time_t>(seconds.count());
        when.tv_nsec = static_cast<long>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(sinceStart - seconds).count());
        pthread_cond_timedwait(&m_condition, mutex.m_mutex.native_handle(), &when);
    }

private:
    pthread_cond_t m_condition;
};

#endif
