// A CThread whose body is a test's, and what tests of threads ask.
#ifndef TESTS_SUPPORT_BODYTHREAD_H
#define TESTS_SUPPORT_BODYTHREAD_H

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "framework/base/CThread.h"
#include "tests/support/Event.h"

constexpr uint32_t TEN_MINUTES = 600000;  // a Wait that only a stop ends within a test's time

class BodyThread : public CThread {
public:
    explicit BodyThread(std::function<void(BodyThread&)> body) : m_body(std::move(body)) {}
    ~BodyThread() override { stop(); }

    void pausedWaitCallback(void* pArg) override {
        EXPECT_EQ(nullptr, pArg);
        ++nPausedWaits;
        if (onPaused) {
            onPaused();
        }
        paused.Set();
    }

    bool Start() { return start(PriorityNormal); }

    std::function<void()> onPaused;  // set before start
    std::atomic<int> nPausedWaits{0};
    Event paused;

protected:
    void run() override { m_body(*this); }

private:
    const std::function<void(BodyThread&)> m_body;
};

inline void UntilStopped(BodyThread& thread) {
    while (!thread.isStoped()) {
        thread.Wait(TEN_MINUTES);
    }
}

// True once the kernel has no such thread any more; false when that takes too long.
inline bool Vanishes(pid_t nThread) {
    const std::string strPath = "/proc/self/task/" + std::to_string(nThread);
    return Eventually([&] { return access(strPath.c_str(), F_OK) != 0; });
}

#endif
