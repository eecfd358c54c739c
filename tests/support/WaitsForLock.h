// Whether an operation takes a lock that somebody else holds.
#ifndef TESTS_SUPPORT_WAITSFORLOCK_H
#define TESTS_SUPPORT_WAITSFORLOCK_H

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

#include "framework/base/ThreadAnnotations.h"
#include "tests/support/Event.h"

// "S" for a thread that waits for something. Empty when there is no such thread.
inline std::string ThreadState(pid_t nThread) {
    std::ifstream file("/proc/self/task/" + std::to_string(nThread) + "/stat");
    std::string strStat;
    std::getline(file, strStat);
    const size_t nEnd = strStat.rfind(')');
    return nEnd == std::string::npos ? "" : strStat.substr(nEnd + 2, 1);
}

// Runs operation on a thread of its own while lock (of a class with Lock and Unlock) is held. True
// when it stood still until the lock was given back and then ended.
template <class TheLock, class Operation>
bool WaitsForLock(TheLock& lock, Operation operation) TEV_NO_THREAD_SAFETY_ANALYSIS {
    std::atomic<pid_t> nThread{0};
    std::atomic<bool> bEnded{false};
    lock.Lock();
    std::thread thread([&] {
        nThread = gettid();
        operation();
        bEnded = true;
    });
    const bool bSeen =
        Eventually([&] { return bEnded || (nThread != 0 && ThreadState(nThread) == "S"); });
    const bool bWaited = bSeen && !bEnded;
    lock.Unlock();
    thread.join();
    return bWaited;
}

#endif
