// Holds back one signal that a failing call of this thread raises, so that the call's result is all
// that comes of it: a host that left SIGXFSZ at its default would end at a file that may not grow.
//
// Header only: it becomes part of whichever library uses it. Threads: any. Nothing throws.
#ifndef FRAMEWORK_BASE_CQUIETSIGNAL_H
#define FRAMEWORK_BASE_CQUIETSIGNAL_H

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

class CQuietSignal {
public:
    explicit CQuietSignal(int nSignal) {
        sigemptyset(&m_signal);
        sigaddset(&m_signal, nSignal);
        sigset_t oldMask;
        // A thread that blocks it already has its own reasons, and perhaps one pending.
        m_bHeld = pthread_sigmask(SIG_BLOCK, &m_signal, &oldMask) == 0 &&
                  sigismember(&oldMask, nSignal) == 0;
    }
    ~CQuietSignal() {
        if (!m_bHeld) {
            return;
        }
        const int nOldErrno = errno;
        const timespec none = {0, 0};
        // The C library's own function may be asked to cancel the thread, which no destructor may.
        while (syscall(SYS_rt_sigtimedwait, &m_signal, nullptr, &none, _NSIG / 8) < 0 &&
               errno == EINTR) {
        }
        (void)pthread_sigmask(SIG_UNBLOCK, &m_signal, nullptr);
        errno = nOldErrno;
    }
    CQuietSignal(const CQuietSignal&) = delete;
    CQuietSignal& operator=(const CQuietSignal&) = delete;

private:
    sigset_t m_signal;
    bool m_bHeld;
};

#endif
