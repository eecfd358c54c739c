// Calls that are due at a point in time, made by one thread of their own.
//
// Threads: any; a call is made without the lock.
#ifndef HOST_TRANSPORT_TIMERQUEUE_H
#define HOST_TRANSPORT_TIMERQUEUE_H

#include <chrono>
#include <functional>
#include <map>
#include <thread>

#include "host/base/MonotonicCondition.h"
#include "host/base/Mutex.h"

class TimerQueue {
public:
    using Clock = MonotonicCondition::Clock;

    TimerQueue() = default;
    ~TimerQueue() { Stop(); }

    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    // fnDue is called at due, or by Stop if that comes first. After Stop it is not taken: false.
    bool Add(Clock::time_point due, std::function<void()> fnDue);

    // Makes the calls that are left. When it has returned none is running; called from fnDue it
    // does not wait for that one.
    void Stop();

private:
    void Run();

    Mutex m_mutex;
    MonotonicCondition m_changed;
    std::multimap<Clock::time_point, std::function<void()>> m_due TEV_GUARDED_BY(m_mutex);
    bool m_bStopped TEV_GUARDED_BY(m_mutex) = false;
    std::thread m_thread TEV_GUARDED_BY(m_mutex);  // started by the first Add
};

#endif
