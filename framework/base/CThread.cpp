// Owns the life of one POSIX thread: creating, pausing, waking, joining. What the thread does is
// the derived class's.
#include "framework/base/CThread.h"

#include <cxxabi.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <new>

#include "framework/base/CMutex.h"

namespace {

constexpr size_t STACK_SIZE = 8 * 1024 * 1024;

std::atomic<CThread::WaitHook> g_pfnWaitHook{nullptr};

// A lock that one can wait under. The condition variable reads the monotonic clock.
class TEV_CAPABILITY("mutex") CWaitLock : public CBasicLock {
public:
    CWaitLock() {
        pthread_condattr_t attributes;
        (void)pthread_condattr_init(&attributes);
        (void)pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        (void)pthread_cond_init(&m_condition, &attributes);
        (void)pthread_condattr_destroy(&attributes);
    }
    ~CWaitLock() override {
        (void)pthread_cond_destroy(&m_condition);
        (void)pthread_mutex_destroy(&m_mutex);
    }
    CWaitLock(const CWaitLock&) = delete;
    CWaitLock& operator=(const CWaitLock&) = delete;

    // The analysis does not know that the POSIX mutex is the capability itself.
    void Lock() TEV_ACQUIRE() TEV_NO_THREAD_SAFETY_ANALYSIS override {
        (void)pthread_mutex_lock(&m_mutex);
    }
    void Unlock() TEV_RELEASE() TEV_NO_THREAD_SAFETY_ANALYSIS override {
        (void)pthread_mutex_unlock(&m_mutex);
    }

    // Both may return early; the caller looks at its condition again.
    void Wait() TEV_REQUIRES(this) { (void)pthread_cond_wait(&m_condition, &m_mutex); }
    // False when the deadline has passed.
    bool WaitUntil(const timespec& deadline) TEV_REQUIRES(this) {
        return pthread_cond_timedwait(&m_condition, &m_mutex, &deadline) != ETIMEDOUT;
    }
    void WakeAll() TEV_REQUIRES(this) { (void)pthread_cond_broadcast(&m_condition); }

private:
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t m_condition;
};

// Nothing asks this thread to end half-way through a join that others wait for.
class NoCancel {
public:
    NoCancel() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nOldState); }
    ~NoCancel() { (void)pthread_setcancelstate(m_nOldState, nullptr); }
    NoCancel(const NoCancel&) = delete;
    NoCancel& operator=(const NoCancel&) = delete;

private:
    int m_nOldState = 0;
};

timespec After(uint32_t nMilliseconds) {
    timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += nMilliseconds / 1000;
    time.tv_nsec += static_cast<long>(nMilliseconds % 1000) * 1000000;
    if (time.tv_nsec >= 1000000000) {
        time.tv_nsec -= 1000000000;
        ++time.tv_sec;
    }
    return time;
}

// Linux keeps a nice value per thread; without the right to lower it this changes nothing.
void ApplyPriority(CThread::Priority ePriority) {
    constexpr int niceValues[] = {19, 10, 0, -5, -10};
    if (ePriority >= CThread::PriorityIdle && ePriority <= CThread::PriorityHighest) {
        (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceValues[ePriority]);
    }
}

// pthread_create with every signal blocked in the new thread and a stack of STACK_SIZE.
bool CreateThread(pthread_t& thread, void* (*pfnBody)(void*), void* pArg) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    sigset_t allSignals;
    sigset_t oldSignals;
    sigfillset(&allSignals);
    (void)pthread_attr_setstacksize(&attributes, STACK_SIZE);
    (void)pthread_sigmask(SIG_SETMASK, &allSignals, &oldSignals);
    const int nResult = pthread_create(&thread, &attributes, pfnBody, pArg);
    (void)pthread_sigmask(SIG_SETMASK, &oldSignals, nullptr);
    (void)pthread_attr_destroy(&attributes);
    return nResult == 0;
}

}  // namespace

// Everything that calls and the thread share. Whoever is in the middle of a call holds it too, so
// that a call in progress outlives the CThread that it was made on.
struct CThread::State {
    // What the new thread is given; it deletes it.
    struct Launch {
        std::shared_ptr<State> pState;
        CThread* pThread;
        Priority ePriority;
    };

    // Notes that run is over, also when the thread ends by unwinding.
    class EndMark {
    public:
        explicit EndMark(State& state) : m_state(state) {}
        ~EndMark() {
            const CAutoLock lock(m_state.monitor);
            m_state.bEnded = true;
        }
        EndMark(const EndMark&) = delete;
        EndMark& operator=(const EndMark&) = delete;

    private:
        State& m_state;
    };

    // The unwinding of a thread that ends itself is caught as a reference to nothing.
    __attribute__((no_sanitize("null"))) static void* Body(void* pArg);
    bool IsOwnThread() const TEV_REQUIRES(monitor) {
        return bJoinable && pthread_equal(thread, pthread_self()) != 0;
    }
    void Request() TEV_REQUIRES(monitor);
    void Join() TEV_REQUIRES(monitor);
    bool Stop() TEV_REQUIRES(monitor);
    void Abandon() TEV_REQUIRES(monitor);

    CWaitLock monitor;
    pthread_t thread TEV_GUARDED_BY(monitor) = {};        // means something while bJoinable
    bool bJoinable TEV_GUARDED_BY(monitor) = false;       // created, neither joined nor detached
    bool bJoining TEV_GUARDED_BY(monitor) = false;        // one caller is inside pthread_join
    bool bEnded TEV_GUARDED_BY(monitor) = false;          // run has returned
    bool bStopRequested TEV_GUARDED_BY(monitor) = false;  // from stop to the next start
    bool bPaused TEV_GUARDED_BY(monitor) = false;
    bool bDestroyed TEV_GUARDED_BY(monitor) = false;  // the CThread is going or gone
    uint64_t nJoins TEV_GUARDED_BY(monitor) = 0;
};

void* CThread::State::Body(void* pArg) {
    const std::unique_ptr<Launch> pLaunch(static_cast<Launch*>(pArg));
    const EndMark mark(*pLaunch->pState);
    ApplyPriority(pLaunch->ePriority);
    try {
        pLaunch->pThread->run();
    } catch (const abi::__forced_unwind&) {
        throw;  // pthread_exit and pthread_cancel; the C library aborts when it is swallowed
    } catch (...) {
        // Nobody is left to report to; the thread ends as if run had returned.
    }
    return nullptr;
}

void CThread::State::Request() {
    bStopRequested = true;
    monitor.WakeAll();
}

// Returns when the thread that stands there now is joined, by this caller or by another one.
void CThread::State::Join() {
    const uint64_t nJoinsBefore = nJoins;
    if (bJoining) {
        while (nJoins == nJoinsBefore) {
            monitor.Wait();
        }
        return;
    }

    const NoCancel noCancel;
    const pthread_t joined = thread;
    bJoining = true;
    monitor.Unlock();
    (void)pthread_join(joined, nullptr);
    monitor.Lock();
    bJoining = false;
    bJoinable = false;
    ++nJoins;
    monitor.WakeAll();
}

bool CThread::State::Stop() {
    if (!bJoinable) {
        return true;
    }
    Request();
    if (IsOwnThread()) {
        return false;
    }
    Join();
    return true;
}

// The CThread goes and no later call can join the thread that still runs this.
void CThread::State::Abandon() {
    if (!bJoining) {
        (void)pthread_detach(thread);
        bJoinable = false;
    }
}

CThread::CThread() : m_pState(std::make_shared<State>()) {}

CThread::~CThread() {
    const CAutoLock lock(m_pState->monitor);
    m_pState->bDestroyed = true;
    if (!m_pState->Stop()) {
        m_pState->Abandon();
    }
}

bool CThread::start(Priority ePriority) {
    const std::shared_ptr<State> pState = m_pState;
    const CAutoLock lock(pState->monitor);
    while (pState->bJoinable) {
        if (!pState->bEnded && !pState->bStopRequested) {
            return true;
        }
        if (pState->IsOwnThread()) {
            return false;
        }
        pState->Join();
    }
    if (pState->bDestroyed) {
        return false;
    }

    std::unique_ptr<State::Launch> pLaunch(new (std::nothrow)
                                               State::Launch{pState, this, ePriority});
    if (pLaunch == nullptr ||
        !CreateThread(pState->thread, &State::Body, static_cast<void*>(pLaunch.get()))) {
        return false;
    }
    // The thread owns it now. Its first look at the state waits for this lock.
    (void)pLaunch.release();
    pState->bJoinable = true;
    pState->bEnded = false;
    pState->bStopRequested = false;
    return true;
}

bool CThread::stop() {
    const std::shared_ptr<State> pState = m_pState;
    const CAutoLock lock(pState->monitor);
    return pState->Stop();
}

void CThread::pause() {
    const CAutoLock lock(m_pState->monitor);
    m_pState->bPaused = true;
}

void CThread::recovery() {
    const CAutoLock lock(m_pState->monitor);
    m_pState->bPaused = false;
    m_pState->monitor.WakeAll();
}

bool CThread::doPauseOrQuit() {
    const std::shared_ptr<State> pState = m_pState;
    {
        const CAutoLock lock(pState->monitor);
        if (pState->bStopRequested || !pState->bPaused) {
            return pState->bStopRequested;
        }
    }
    // Without the lock: the callback is foreign and may ask for a stop or a recovery.
    pausedWaitCallback(nullptr);
    const CAutoLock lock(pState->monitor);
    while (pState->bPaused && !pState->bStopRequested) {
        pState->monitor.Wait();
    }
    return pState->bStopRequested;
}

void CThread::pausedWaitCallback(void* /*pArg*/) {}

void CThread::Wait(uint32_t nMilliseconds) {
    const std::shared_ptr<State> pState = m_pState;
    const WaitHook pfnHook = g_pfnWaitHook.load(std::memory_order_acquire);
    if (pfnHook != nullptr && !isStoped()) {
        nMilliseconds = pfnHook(nMilliseconds);
    }
    const timespec deadline = After(nMilliseconds);
    const CAutoLock lock(pState->monitor);
    while (!pState->bStopRequested && pState->monitor.WaitUntil(deadline)) {
    }
}

void CThread::SetWaitHook(WaitHook pfnHook) {
    g_pfnWaitHook.store(pfnHook, std::memory_order_release);
}

bool CThread::isStoped() const {
    const CAutoLock lock(m_pState->monitor);
    return m_pState->bStopRequested;
}

bool CThread::isJoinable() const {
    const CAutoLock lock(m_pState->monitor);
    return m_pState->bJoinable;
}

void CThread::setCurThreadName(const char* pszName) {
    if (pszName != nullptr) {
        (void)prctl(PR_SET_NAME, pszName, 0, 0, 0);
    }
}
