#include "host/transport/SerialExecutor.h"

#include <pthread.h>

#include <csignal>
#include <deque>
#include <thread>
#include <utility>

#include "host/base/MonotonicCondition.h"
#include "host/base/Mutex.h"

struct SerialExecutor::State {
    struct Entry {
        size_t nBytes;
        Job job;
    };

    bool HasRoom(size_t nMore) const TEV_REQUIRES(mutex) {
        return entries.empty() ||
               (entries.size() < limits.nJobs && nBytes + nMore <= limits.nBytes);
    }

    std::string strThreadName;
    Limits limits;
    Mutex mutex;
    MonotonicCondition changed;
    std::deque<Entry> entries TEV_GUARDED_BY(mutex);
    size_t nBytes TEV_GUARDED_BY(mutex) = 0;
    bool bWaiting TEV_GUARDED_BY(mutex) = true;  // callers may wait for room
    bool bStopped TEV_GUARDED_BY(mutex) = false;
    std::thread thread TEV_GUARDED_BY(mutex);  // joined by whoever takes it out
    std::thread::id threadId TEV_GUARDED_BY(mutex);
};

SerialExecutor::SerialExecutor(const std::string& strThreadName, const Limits& limits)
    : m_pState(std::make_shared<State>()) {
    m_pState->strThreadName = strThreadName;
    m_pState->limits = limits;
    const MutexLock lock(m_pState->mutex);
    m_pState->thread = std::thread(&SerialExecutor::Run, m_pState);
    m_pState->threadId = m_pState->thread.get_id();
}

SerialExecutor::~SerialExecutor() {
    Stop();
}

bool SerialExecutor::Push(size_t nBytes, Job job) {
    State& state = *m_pState;
    MutexLock lock(state.mutex);
    const bool bOwnThread = std::this_thread::get_id() == state.threadId;
    while (!state.bStopped && !bOwnThread && !state.HasRoom(nBytes)) {
        if (!state.bWaiting) {
            return false;
        }
        state.changed.Wait(state.mutex);
    }
    if (state.bStopped) {
        return false;
    }
    state.entries.push_back({nBytes, std::move(job)});
    state.nBytes += nBytes;
    state.changed.NotifyAll();
    return true;
}

void SerialExecutor::EndWaiting() {
    const MutexLock lock(m_pState->mutex);
    m_pState->bWaiting = false;
    m_pState->changed.NotifyAll();
}

void SerialExecutor::Stop() {
    State& state = *m_pState;
    std::deque<State::Entry> dropped;
    std::thread thread;
    {
        const MutexLock lock(state.mutex);
        state.bStopped = true;
        dropped.swap(state.entries);
        thread.swap(state.thread);
        state.changed.NotifyAll();
    }
    // Before the wait for the job in hand, which may be a long one.
    for (State::Entry& entry : dropped) {
        entry.job(false);
    }
    if (thread.joinable()) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();  // it holds the state and ends after the job in hand
        } else {
            thread.join();
        }
    }
}

void SerialExecutor::Run(const std::shared_ptr<State>& pState) {
    sigset_t allSet;
    sigfillset(&allSet);
    pthread_sigmask(SIG_BLOCK, &allSet, nullptr);
    pthread_setname_np(pthread_self(), pState->strThreadName.substr(0, 15).c_str());

    MutexLock lock(pState->mutex);
    for (;;) {
        while (!pState->bStopped && pState->entries.empty()) {
            pState->changed.Wait(pState->mutex);
        }
        if (pState->bStopped) {
            return;
        }
        State::Entry entry = std::move(pState->entries.front());
        pState->entries.pop_front();
        pState->nBytes -= entry.nBytes;
        pState->changed.NotifyAll();
        lock.Unlock();
        entry.job(true);
        entry.job = nullptr;  // what it holds goes before the lock is taken again
        lock.Lock();
    }
}
