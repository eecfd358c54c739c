#include "framework/base/CThread.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/BodyThread.h"
#include "tests/support/Event.h"

namespace {
std::atomic<bool> g_bRefuseThreads{false};
}

// Stands before the C library's, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* pThread, const pthread_attr_t* pAttributes, void* (*pfnBody)(void*),
    void* pArg) noexcept {
    static auto* const pfnNext =
        reinterpret_cast<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
            dlsym(RTLD_NEXT, "pthread_create"));
    return g_bRefuseThreads ? EAGAIN : pfnNext(pThread, pAttributes, pfnBody, pArg);
}

// --- start and stop

TEST(CThreadTest, StartRunsTheBodyOnAThreadOfItsOwn) {
    pid_t nThread = 0;
    BodyThread thread([&](BodyThread&) { nThread = gettid(); });

    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    EXPECT_NE(0, nThread);
    EXPECT_NE(gettid(), nThread);
}

TEST(CThreadTest, TheBodyRunsEvenWhenStopFollowsAtOnce) {
    for (int i = 0; i < 100; ++i) {
        int nRuns = 0;
        BodyThread thread([&](BodyThread& self) {
            UntilStopped(self);
            ++nRuns;
        });

        EXPECT_TRUE(thread.Start());
        EXPECT_TRUE(thread.stop());

        EXPECT_EQ(1, nRuns);
    }
}

TEST(CThreadTest, StartOnARunningThreadReturnsTrueAndCreatesNothing) {
    std::atomic<int> nRuns{0};
    BodyThread thread([&](BodyThread& self) {
        ++nRuns;
        UntilStopped(self);
    });
    ASSERT_TRUE(thread.Start());

    g_bRefuseThreads = true;  // a creation would fail
    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.Start());
    g_bRefuseThreads = false;

    EXPECT_TRUE(thread.stop());
    EXPECT_EQ(1, nRuns);
}

TEST(CThreadTest, StartOnItselfWhileRunningReturnsTrue) {
    Event asked;
    bool bStarted = false;
    BodyThread thread([&](BodyThread& self) {
        bStarted = self.Start();
        asked.Set();
    });

    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(asked.Wait());
    EXPECT_TRUE(thread.stop());

    EXPECT_TRUE(bStarted);
}

TEST(CThreadTest, StartAfterAStopStartsAfreshAnyNumberOfTimes) {
    int nRuns = 0;
    BodyThread thread([&](BodyThread& self) {
        ++nRuns;
        UntilStopped(self);
    });

    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(thread.Start());
        ASSERT_TRUE(thread.stop());
    }

    EXPECT_EQ(100, nRuns);
}

TEST(CThreadTest, AThreadThatEndedByItselfIsFollowedByAFreshOneWithoutAStop) {
    std::atomic<pid_t> nThread{0};
    std::atomic<int> nRuns{0};
    BodyThread thread([&](BodyThread&) {
        ++nRuns;
        nThread = gettid();
    });
    for (int i = 1; i <= 3; ++i) {
        nThread = 0;
        ASSERT_TRUE(thread.Start());
        ASSERT_TRUE(Eventually([&] { return nThread != 0; }));
        ASSERT_TRUE(Vanishes(nThread));

        EXPECT_EQ(i, nRuns);
        EXPECT_FALSE(thread.isStoped());
    }
}

TEST(CThreadTest, AThreadThatTheSystemRefusesMakesStartFalse) {
    BodyThread thread(&UntilStopped);
    g_bRefuseThreads = true;

    EXPECT_FALSE(thread.Start());
    EXPECT_FALSE(thread.isJoinable());
    EXPECT_TRUE(thread.stop());
    g_bRefuseThreads = false;

    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());
}

TEST(CThreadTest, ARefusedStartAfterAStopLeavesTheThreadStopped) {
    BodyThread thread(&UntilStopped);
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(thread.stop());
    g_bRefuseThreads = true;

    EXPECT_FALSE(thread.Start());
    g_bRefuseThreads = false;

    EXPECT_TRUE(thread.isStoped());
}

TEST(CThreadTest, StopWithoutAThreadReturnsTrue) {
    BodyThread thread(&UntilStopped);

    EXPECT_TRUE(thread.stop());
    EXPECT_TRUE(thread.stop());
}

TEST(CThreadTest, StopTwiceReturnsTrueTwice) {
    BodyThread thread(&UntilStopped);
    ASSERT_TRUE(thread.Start());

    EXPECT_TRUE(thread.stop());
    EXPECT_TRUE(thread.stop());
}

TEST(CThreadTest, StopReturnsOnlyWhenRunHasReturned) {
    Event running;
    bool bReturned = false;
    BodyThread thread([&](BodyThread& self) {
        running.Set();
        UntilStopped(self);
        bReturned = true;
    });
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(running.Wait());

    EXPECT_TRUE(thread.stop());

    EXPECT_TRUE(bReturned);
}

TEST(CThreadTest, StopFromAnotherThreadThanStart) {
    BodyThread thread(&UntilStopped);
    std::thread([&] { EXPECT_TRUE(thread.Start()); }).join();
    std::thread([&] { EXPECT_TRUE(thread.stop()); }).join();

    EXPECT_FALSE(thread.isJoinable());
}

TEST(CThreadTest, StopOnTheThreadItselfRequestsAndDoesNotJoin) {
    Event stopped;
    Event gate;
    bool bResult = true;
    bool bSecondResult = true;
    BodyThread thread([&](BodyThread& self) {
        bResult = self.stop();
        bSecondResult = self.stop();
        stopped.Set();
        gate.Wait();
    });
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(stopped.Wait());

    EXPECT_TRUE(thread.isStoped());
    EXPECT_TRUE(thread.isJoinable());
    gate.Set();
    EXPECT_TRUE(thread.stop());

    EXPECT_FALSE(bResult);
    EXPECT_FALSE(bSecondResult);
    EXPECT_FALSE(thread.isJoinable());
}

TEST(CThreadTest, StartAfterAStopOnTheThreadItselfWaitsForTheOldThread) {
    Event stopped;
    Event gate;
    std::atomic<int> nRuns{0};
    std::atomic<bool> bFirstReturned{false};
    bool bSecondCameAfter = false;
    BodyThread thread([&](BodyThread& self) {
        if (++nRuns == 1) {
            (void)self.stop();
            stopped.Set();
            gate.Wait();
            bFirstReturned = true;
        } else {
            bSecondCameAfter = bFirstReturned;
            UntilStopped(self);
        }
    });
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(stopped.Wait());
    std::thread starter([&] { EXPECT_TRUE(thread.Start()); });

    gate.Set();
    starter.join();

    EXPECT_FALSE(thread.isStoped());
    EXPECT_TRUE(thread.stop());
    EXPECT_EQ(2, nRuns);
    EXPECT_TRUE(bSecondCameAfter);
}

TEST(CThreadTest, StartOnTheThreadItselfAfterItsStopIsRefused) {
    bool bStarted = true;
    std::atomic<int> nRuns{0};
    BodyThread thread([&](BodyThread& self) {
        ++nRuns;
        (void)self.stop();
        bStarted = self.Start();
    });

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    EXPECT_FALSE(bStarted);
    EXPECT_EQ(1, nRuns);
}

// --- several threads at once

TEST(CThreadTest, TwoStopsAtOnceBothReturnOnlyOnceTheThreadIsGone) {
    Event running;
    Event gate;
    std::atomic<bool> bReturned{false};
    BodyThread thread([&](BodyThread&) {
        running.Set();
        gate.Wait();
        bReturned = true;
    });
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(running.Wait());
    std::atomic<int> nStopping{0};
    std::atomic<int> nGoneAtReturn{0};
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 2; ++i) {
        stoppers.emplace_back([&] {
            ++nStopping;
            EXPECT_TRUE(thread.stop());
            nGoneAtReturn += bReturned ? 1 : 0;
        });
    }

    ASSERT_TRUE(Eventually([&] { return nStopping == 2 && thread.isStoped(); }));
    gate.Set();
    for (std::thread& stopper : stoppers) {
        stopper.join();
    }

    EXPECT_EQ(2, nGoneAtReturn);
    EXPECT_FALSE(thread.isJoinable());
}

TEST(CThreadTest, StartsAtOnceCreateOneThread) {
    std::atomic<int> nRuns{0};
    BodyThread thread([&](BodyThread& self) {
        ++nRuns;
        UntilStopped(self);
    });
    std::vector<std::thread> starters;
    for (int i = 0; i < 4; ++i) {
        starters.emplace_back([&] { EXPECT_TRUE(thread.Start()); });
    }

    for (std::thread& starter : starters) {
        starter.join();
    }
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ(1, nRuns);
}

TEST(CThreadTest, StartsAndStopsFromSeveralThreadsNeverRunTwoBodies) {
    std::atomic<int> nInside{0};
    std::atomic<int> nMostInside{0};
    BodyThread thread([&](BodyThread& self) {
        const int nNow = ++nInside;
        if (nNow > nMostInside) {
            nMostInside = nNow;
        }
        UntilStopped(self);
        --nInside;
    });
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&thread, i] {
            for (int j = 0; j < 100; ++j) {
                EXPECT_TRUE((i + j) % 2 == 0 ? thread.Start() : thread.stop());
                thread.pause();
                thread.recovery();
            }
        });
    }

    for (std::thread& caller : callers) {
        caller.join();
    }

    EXPECT_TRUE(thread.stop());
    EXPECT_FALSE(thread.isJoinable());
    EXPECT_EQ(0, nInside);
    EXPECT_EQ(1, nMostInside);
}

// --- isStoped and isJoinable

TEST(CThreadTest, IsStopedFromTheRequestUntilTheNextStart) {
    BodyThread thread(&UntilStopped);
    EXPECT_FALSE(thread.isStoped());

    ASSERT_TRUE(thread.Start());
    EXPECT_FALSE(thread.isStoped());
    ASSERT_TRUE(thread.stop());
    EXPECT_TRUE(thread.isStoped());
    ASSERT_TRUE(thread.stop());
    EXPECT_TRUE(thread.isStoped());

    ASSERT_TRUE(thread.Start());
    EXPECT_FALSE(thread.isStoped());
    ASSERT_TRUE(thread.stop());
}

TEST(CThreadTest, AStopThatFindsNoThreadRequestsNothing) {
    BodyThread thread(&UntilStopped);

    ASSERT_TRUE(thread.stop());

    EXPECT_FALSE(thread.isStoped());
}

TEST(CThreadTest, IsJoinableUntilTheThreadIsJoinedEvenWhenItHasEnded) {
    std::atomic<pid_t> nThread{0};
    BodyThread thread([&](BodyThread&) { nThread = gettid(); });
    EXPECT_FALSE(thread.isJoinable());

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.isJoinable());
    ASSERT_TRUE(Eventually([&] { return nThread != 0; }));
    ASSERT_TRUE(Vanishes(nThread));
    EXPECT_TRUE(thread.isJoinable());
    ASSERT_TRUE(thread.stop());

    EXPECT_FALSE(thread.isJoinable());
}

// --- the interface's slots

namespace {

// Shows which of its operations was called.
class SlotThread : public CThread {
public:
    bool start(Priority /*ePriority*/) override { return Called("start"); }
    bool stop() override { return Called("stop"); }
    void pause() override { (void)Called("pause"); }
    void recovery() override { (void)Called("recovery"); }
    bool doPauseOrQuit() override { return Called("doPauseOrQuit"); }
    void pausedWaitCallback(void* /*pArg*/) override { (void)Called("pausedWaitCallback"); }

    std::string strCalled;

protected:
    void run() override { (void)Called("run"); }

private:
    bool Called(const char* pszName) {
        strCalled = pszName;
        return true;
    }
};

}  // namespace

TEST(CThreadTest, TheVirtualOperationsStandInTheInterfacesOrder) {
    using Slot = void (*)(CThread*, void*);
    SlotThread thread;
    CThread* pThread = &thread;
    Slot const* pSlots = *reinterpret_cast<Slot const* const*>(pThread);

    // 0 and 1 are the destructors.
    const char* const names[] = {
        "start", "stop", "pause", "recovery", "doPauseOrQuit", "pausedWaitCallback", "run"};
    for (int i = 0; i < 7; ++i) {
        pSlots[2 + i](pThread, nullptr);

        EXPECT_EQ(names[i], thread.strCalled) << 2 + i;
    }
}
