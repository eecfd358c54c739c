#include "framework/base/CMutex.h"

CMutex::CMutex() : m_mutex(PTHREAD_MUTEX_INITIALIZER) {}

CMutex::~CMutex() {
    (void)pthread_mutex_destroy(&m_mutex);
}  // fails only for a held one

// The analysis does not know that the POSIX mutex is the capability itself.
void CMutex::Lock() TEV_NO_THREAD_SAFETY_ANALYSIS {
    (void)pthread_mutex_lock(&m_mutex);
}

void CMutex::Unlock() TEV_NO_THREAD_SAFETY_ANALYSIS {
    (void)pthread_mutex_unlock(&m_mutex);
}
