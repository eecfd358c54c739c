#include "host/process/ShutdownSignal.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "host/process/Privileges.h"

namespace {

constexpr int SIGNAL_END = SIGUSR1;  // sent by End to the thread; from a user it asks a balance

sigset_t StopSet() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    return set;
}

}  // namespace

void ShutdownSignal::Begin(void (*pBeforeEnd)()) {
    m_pBeforeEnd = pBeforeEnd;
    // A reader that left and a file that grew too long are error codes, not deaths.
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    sigset_t blockSet = StopSet();
    sigaddset(&blockSet, SIGNAL_END);
    pthread_sigmask(SIG_BLOCK, &blockSet, nullptr);
    m_thread = std::thread(&ShutdownSignal::TakeSignals, this);
}

void ShutdownSignal::End() {
    if (!m_thread.joinable()) {
        return;
    }
    {
        const MutexLock lock(m_mutex);
        m_bEnd = true;
    }
    pthread_kill(m_thread.native_handle(), SIGNAL_END);
    m_thread.join();
}

void ShutdownSignal::Request() {
    const MutexLock lock(m_mutex);
    m_bRequested = true;
    m_changed.NotifyAll();
}

bool ShutdownSignal::IsRequested() const {
    const MutexLock lock(m_mutex);
    return m_bRequested;
}

bool ShutdownSignal::TakeBalanceRequest() {
    const MutexLock lock(m_mutex);
    return std::exchange(m_bBalance, false);
}

int ShutdownSignal::Signal() const {
    const MutexLock lock(m_mutex);
    return m_nSignal;
}

bool ShutdownSignal::WaitFor(std::chrono::milliseconds wait) const {
    MutexLock lock(m_mutex);
    const auto end = MonotonicCondition::Clock::now() + wait;
    while (!m_bRequested && MonotonicCondition::Clock::now() < end) {
        m_changed.WaitUntil(m_mutex, end);
    }
    return m_bRequested;
}

void ShutdownSignal::TakeSignals() {
    pthread_setname_np(pthread_self(), "host_signals");
    privileges::DropAll();
    sigset_t waitSet = StopSet();
    sigaddset(&waitSet, SIGNAL_END);
    for (;;) {
        int nSignal = 0;
        if (sigwait(&waitSet, &nSignal) != 0) {
            continue;
        }
        const MutexLock lock(m_mutex);
        if (m_bEnd) {
            return;
        }
        if (nSignal == SIGNAL_END) {
            m_bBalance = true;
            continue;
        }
        if (m_nSignal != 0) {
            if (m_pBeforeEnd != nullptr) {
                m_pBeforeEnd();
            }
            _exit(128 + nSignal);
        }
        m_nSignal = nSignal;
        m_bRequested = true;
        m_changed.NotifyAll();
    }
}
