#include "host/transport/SerialExecutor.h"

#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

struct SerialExecutor::State {
    struct Entry {
        size_t nBytes;
        Job job;
    };

    bool HasRoom(size_t nMore) const {
        return entries.empty() ||
               (entries.size() < limits.nJobs && nBytes + nMore <= limits.nBytes);
    }

    std::string strThreadName;
    Limits limits;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Entry> entries;
    size_t nBytes = 0;
    bool bWaiting = true;  // callers may wait for room
    bool bStopped = false;
    std::thread thread;  // guarded by mutex; joined by whoever takes it out
    std::thread::id threadId;
};

SerialExecutor::SerialExecutor(const std::string& strThreadName, const Limits& limits)
    : m_pState(std::make_shared<State>()) {
    m_pState->strThreadName = strThreadName;
    m_pState->limits = limits;
    const std::lock_guard<std::mutex> lock(m_pState->mutex);
    m_pState->thread = std::thread(&SerialExecutor::Run, m_pState);
    m_pState->threadId = m_pState->thread.get_id();
}

SerialExecutor::~SerialExecutor() {
    Stop();
}

bool SerialExecutor::Push(size_t nBytes, Job job) {
    State& state = *m_pState;
    std::unique_lock<std::mutex> lock(state.mutex);
    const bool bOwnThread = std::this_thread::get_id() == state.threadId;
    while (!state.bStopped && !bOwnThread && !state.HasRoom(nBytes)) {
        if (!state.bWaiting) {
            return false;
        }
        state.changed.wait(lock);
    }
    if (state.bStopped) {
        return false;
    }
    state.entries.push_back({nBytes, std::move(job)});
    state.nBytes += nBytes;
    state.changed.notify_all();
    return true;
}

void SerialExecutor::EndWaiting() {
    const std::lock_guard<std::mutex> lock(m_pState->mutex);
    m_pState->bWaiting = false;
    m_pState->changed.notify_all();
}

void SerialExecutor::Stop() {
    State& state = *m_pState;
    std::deque<State::Entry> dropped;
    std::thread thread;
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.bStopped = true;
        dropped.swap(state.entries);
        thread.swap(state.thread);
        state.changed.notify_all();
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

    std::unique_lock<std::mutex> lock(pState->mutex);
    for (;;) {
        pState->changed.wait(lock, [&] { return pState->bStopped || !pState->entries.empty(); });
        if (pState->bStopped) {
            return;
        }
        State::Entry entry = std::move(pState->entries.front());
        pState->entries.pop_front();
        pState->nBytes -= entry.nBytes;
        pState->changed.notify_all();
        lock.unlock();
        entry.job(true);
        entry.job = nullptr;  // what it holds goes before the lock is taken again
        lock.lock();
    }
}
