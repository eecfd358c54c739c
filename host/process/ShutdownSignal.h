// Ctrl-C, SIGTERM and SIGUSR1 as something to wait for or to ask about. A thread of its own takes
// the signals; every other thread has them blocked.
//
// The first signal, or a call of Request, asks for a clean stop. The second signal ends the
// process at once with 128 + its number.
//
// Threads: Begin and End on the control thread, Begin before any other thread exists; the rest
//   from any thread.
#ifndef HOST_PROCESS_SHUTDOWNSIGNAL_H
#define HOST_PROCESS_SHUTDOWNSIGNAL_H

#include <chrono>
#include <thread>

#include "host/base/MonotonicCondition.h"
#include "host/base/Mutex.h"

class ShutdownSignal {
public:
    ShutdownSignal() = default;
    ~ShutdownSignal() { End(); }

    ShutdownSignal(const ShutdownSignal&) = delete;
    ShutdownSignal& operator=(const ShutdownSignal&) = delete;

    // Blocks SIGINT, SIGTERM and SIGHUP, ignores SIGPIPE and SIGXFSZ, starts the thread. A second
    // signal ends the process at once; pBeforeEnd, null for nothing, is called before that.
    void Begin(void (*pBeforeEnd)() = nullptr);
    void End();  // ends the thread; the signals stay blocked

    void Request();
    bool IsRequested() const;
    // True when SIGUSR1 came since the last call.
    bool TakeBalanceRequest();
    int Signal() const;  // the signal that asked; 0 for Request, or when nothing asked

    // Waits; true at once when the stop is or becomes requested.
    bool WaitFor(std::chrono::milliseconds wait) const;

private:
    void TakeSignals();

    mutable Mutex m_mutex;
    mutable MonotonicCondition m_changed;
    bool m_bRequested TEV_GUARDED_BY(m_mutex) = false;
    bool m_bEnd TEV_GUARDED_BY(m_mutex) = false;
    bool m_bBalance TEV_GUARDED_BY(m_mutex) = false;
    int m_nSignal TEV_GUARDED_BY(m_mutex) = 0;
    void (*m_pBeforeEnd)() = nullptr;  // written before the thread starts
    std::thread m_thread;
};

#endif
