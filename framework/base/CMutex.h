// The framework's lock: an interface, one POSIX mutex behind it, and the guard that holds it for
// the length of a block.
//
// Threads: any. Not recursive: a thread that holds a CMutex must not lock it again.
// Errors: none; nothing throws.
#ifndef FRAMEWORK_BASE_CMUTEX_H
#define FRAMEWORK_BASE_CMUTEX_H

#include <pthread.h>

#include "framework/abi/Export.h"
#include "framework/base/ThreadAnnotations.h"

class HOSTFRAMEWORK_API TEV_CAPABILITY("mutex") CBasicLock {
public:
    virtual ~CBasicLock() = default;
    virtual void Lock() TEV_ACQUIRE() = 0;
    virtual void Unlock() TEV_RELEASE() = 0;
};

class HOSTFRAMEWORK_API TEV_CAPABILITY("mutex") CMutex : public CBasicLock {
public:
    CMutex();            // creates the POSIX mutex
    ~CMutex() override;  // destroys it; nobody may hold it then

    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;

    void Lock() TEV_ACQUIRE() override;
    void Unlock() TEV_RELEASE() override;

private:
    pthread_mutex_t m_mutex;
};

// Holds a lock from its construction to the end of the block.
class TEV_SCOPED_CAPABILITY CAutoLock {
public:
    explicit CAutoLock(CBasicLock& lock) TEV_ACQUIRE(lock) : m_lock(lock) { m_lock.Lock(); }
    ~CAutoLock() TEV_RELEASE() { m_lock.Unlock(); }

    CAutoLock(const CAutoLock&) = delete;
    CAutoLock& operator=(const CAutoLock&) = delete;

private:
    CBasicLock& m_lock;
};

#endif
