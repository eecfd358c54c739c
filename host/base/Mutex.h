// The lock of this host's classes, and the guard that holds it for a block. Both carry clang's
// thread-safety annotations: a member marked TEV_GUARDED_BY is touched only where the clang preset
// can see the lock held. The standard library's locks carry none, so members are not checked.
//
// Threads: any. Not recursive. Errors: none.
#ifndef HOST_BASE_MUTEX_H
#define HOST_BASE_MUTEX_H

#include <mutex>

#include "framework/base/ThreadAnnotations.h"

class TEV_CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;

    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // The analysis does not know that the standard mutex is the capability itself.
    void Lock() TEV_ACQUIRE() TEV_NO_THREAD_SAFETY_ANALYSIS { m_mutex.lock(); }
    void Unlock() TEV_RELEASE() TEV_NO_THREAD_SAFETY_ANALYSIS { m_mutex.unlock(); }

private:
    friend class MonotonicCondition;  // waits under it

    std::mutex m_mutex;
};

// Holds a lock from its construction to the end of the block, but for what lies between Unlock and
// Lock.
class TEV_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) TEV_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~MutexLock() TEV_RELEASE() TEV_NO_THREAD_SAFETY_ANALYSIS {
        if (m_bHeld) {
            m_mutex.Unlock();
        }
    }

    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void Unlock() TEV_RELEASE() TEV_NO_THREAD_SAFETY_ANALYSIS {
        m_bHeld = false;
        m_mutex.Unlock();
    }
    void Lock() TEV_ACQUIRE() TEV_NO_THREAD_SAFETY_ANALYSIS {
        m_mutex.Lock();
        m_bHeld = true;
    }

private:
    Mutex& m_mutex;
    bool m_bHeld = true;
};

#endif
