#include "host/transport/TimerQueue.h"

#include <pthread.h>

#include <csignal>
#include <utility>

bool TimerQueue::Add(Clock::time_point due, std::function<void()> fnDue) {
    const MutexLock lock(m_mutex);
    if (m_bStopped) {
        return false;
    }
    m_due.emplace(due, std::move(fnDue));
    if (!m_thread.joinable()) {
        m_thread = std::thread(&TimerQueue::Run, this);
    }
    m_changed.NotifyAll();
    return true;
}

void TimerQueue::Stop() {
    std::multimap<Clock::time_point, std::function<void()>> left;
    std::thread thread;
    {
        const MutexLock lock(m_mutex);
        m_bStopped = true;
        left.swap(m_due);
        if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id()) {
            thread.swap(m_thread);
        }
        m_changed.NotifyAll();
    }
    if (thread.joinable()) {
        thread.join();
    }
    for (const auto& entry : left) {
        entry.second();
    }
}

void TimerQueue::Run() {
    sigset_t allSet;
    sigfillset(&allSet);
    pthread_sigmask(SIG_BLOCK, &allSet, nullptr);
    pthread_setname_np(pthread_self(), "host_deadlines");

    MutexLock lock(m_mutex);
    while (!m_bStopped) {
        if (m_due.empty()) {
            m_changed.Wait(m_mutex);
            continue;
        }
        const Clock::time_point due = m_due.begin()->first;
        if (Clock::now() < due) {
            m_changed.WaitUntil(m_mutex, due);
            continue;
        }
        const std::function<void()> fnDue = std::move(m_due.begin()->second);
        m_due.erase(m_due.begin());
        lock.Unlock();
        fnDue();
        lock.Lock();
    }
}
