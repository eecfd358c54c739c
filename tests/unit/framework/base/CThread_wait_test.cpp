#include "framework/base/CThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>
#include <vector>

#include "tests/support/BodyThread.h"
#include "tests/support/Event.h"

// --- Wait

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

std::atomic<uint32_t> g_nAskedFor{0};
std::atomic<int> g_nHookCalls{0};

uint32_t NoWait(uint32_t nMilliseconds) {
    g_nAskedFor = nMilliseconds;
    ++g_nHookCalls;
    return 0;
}

uint32_t LongWait(uint32_t /*nMilliseconds*/) {
    ++g_nHookCalls;
    return TEN_MINUTES;
}

// Takes the hook back whatever happens.
class WaitHookScope {
public:
    explicit WaitHookScope(CThread::WaitHook pfnHook) {
        g_nAskedFor = 0;
        g_nHookCalls = 0;
        CThread::SetWaitHook(pfnHook);
    }
    ~WaitHookScope() { CThread::SetWaitHook(nullptr); }
    WaitHookScope(const WaitHookScope&) = delete;
    WaitHookScope& operator=(const WaitHookScope&) = delete;
};

}  // namespace

TEST(CThreadWaitTest, WaitLastsAsLongAsAskedFor) {
    BodyThread thread(&UntilStopped);
    const Clock::time_point begin = Clock::now();

    thread.Wait(0);
    thread.Wait(30);

    EXPECT_LE(Milliseconds(30), Clock::now() - begin);
}

TEST(CThreadWaitTest, AStopEndsTheLongestWaitAtOnce) {
    Event waiting;
    BodyThread thread([&](BodyThread& self) {
        waiting.Set();
        self.Wait(std::numeric_limits<uint32_t>::max());
    });
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(waiting.Wait());

    EXPECT_TRUE(thread.stop());  // would take 49 days
}

TEST(CThreadWaitTest, AStopOnTheThreadItselfMakesItsWaitsReturnAtOnce) {
    BodyThread thread([&](BodyThread& self) {
        (void)self.stop();
        self.Wait(TEN_MINUTES);
        self.Wait(TEN_MINUTES);
    });

    ASSERT_TRUE(thread.Start());

    EXPECT_TRUE(thread.stop());
}

TEST(CThreadWaitTest, AStopAlsoEndsAWaitOnAnotherThread) {
    BodyThread thread(&UntilStopped);
    ASSERT_TRUE(thread.Start());
    std::thread other([&] { thread.Wait(TEN_MINUTES); });

    EXPECT_TRUE(thread.stop());

    other.join();
}

TEST(CThreadWaitTest, WakeUpsWithoutAStopDoNotShortenAWait) {
    std::atomic<bool> bOver{false};
    Clock::duration lasted = {};
    BodyThread thread([&](BodyThread& self) {
        const Clock::time_point begin = Clock::now();
        self.Wait(60);
        lasted = Clock::now() - begin;
        bOver = true;
    });
    ASSERT_TRUE(thread.Start());

    EXPECT_TRUE(Eventually([&] {
        thread.recovery();  // wakes whoever waits
        return bOver.load();
    }));
    EXPECT_TRUE(thread.stop());

    EXPECT_LE(Milliseconds(60), lasted);
}

TEST(CThreadWaitTest, TheWaitHookSaysHowLongAWaitReallyLasts) {
    BodyThread thread([](BodyThread& self) { self.Wait(TEN_MINUTES); });
    const WaitHookScope hook(&NoWait);

    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(Eventually([] { return g_nHookCalls == 1; }));
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ(600000u, g_nAskedFor);
}

TEST(CThreadWaitTest, AWaitThatTheHookMadeLongEndsWithAStop) {
    Event waiting;
    BodyThread thread([&](BodyThread& self) {
        waiting.Set();
        self.Wait(0);
    });
    const WaitHookScope hook(&LongWait);
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(Eventually([] { return g_nHookCalls == 1; }));

    EXPECT_TRUE(thread.stop());
}

TEST(CThreadWaitTest, TheWaitHookIsNotAskedOnceAStopWasRequested) {
    const WaitHookScope hook(&LongWait);
    BodyThread thread([](BodyThread& self) {
        (void)self.stop();
        self.Wait(TEN_MINUTES);
    });

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ(0, g_nHookCalls);
}

TEST(CThreadWaitTest, WithoutTheHookAWaitLastsAsAskedForAgain) {
    BodyThread thread(&UntilStopped);
    { const WaitHookScope hook(&NoWait); }
    const Clock::time_point begin = Clock::now();

    thread.Wait(20);

    EXPECT_LE(Milliseconds(20), Clock::now() - begin);
    EXPECT_EQ(0, g_nHookCalls);
}

// --- pause and recovery

namespace {

// Goes through doPauseOrQuit for ever and counts how often it came out of it.
struct PausableBody {
    void operator()(BodyThread& self) {
        while (!self.doPauseOrQuit()) {
            ++nPassed;
        }
    }
    std::atomic<int>& nPassed;
};

}  // namespace

TEST(CThreadWaitTest, DoPauseOrQuitPassesUntilAStopIsRequested) {
    Event asked;
    std::vector<bool> results;
    BodyThread thread([&](BodyThread& self) {
        results.push_back(self.doPauseOrQuit());
        (void)self.stop();
        results.push_back(self.doPauseOrQuit());
        asked.Set();
    });

    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(asked.Wait());
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ((std::vector<bool>{false, true}), results);
    EXPECT_EQ(0, thread.nPausedWaits);
}

TEST(CThreadWaitTest, APausedThreadHoldsStillUntilRecovery) {
    Event passed;
    std::atomic<bool> bRecovered{false};
    bool bHeldUntilThen = false;
    BodyThread thread([&](BodyThread& self) {
        EXPECT_FALSE(self.doPauseOrQuit());
        bHeldUntilThen = bRecovered;
        passed.Set();
    });
    thread.pause();
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(thread.paused.Wait());
    EXPECT_FALSE(passed.WaitFor(Milliseconds(20)));

    bRecovered = true;
    thread.recovery();

    EXPECT_TRUE(passed.Wait());
    EXPECT_TRUE(thread.stop());
    EXPECT_TRUE(bHeldUntilThen);
    EXPECT_EQ(1, thread.nPausedWaits);
}

TEST(CThreadWaitTest, EveryPauseCallsThePausedWaitCallbackOnce) {
    std::atomic<int> nPassed{0};
    BodyThread thread(PausableBody{nPassed});
    ASSERT_TRUE(thread.Start());

    for (int i = 1; i <= 3; ++i) {
        thread.paused.Reset();
        thread.pause();
        thread.pause();
        ASSERT_TRUE(thread.paused.Wait());
        const int nHeldAt = nPassed;
        thread.recovery();
        thread.recovery();
        ASSERT_TRUE(Eventually([&] { return nPassed > nHeldAt; }));

        EXPECT_EQ(i, thread.nPausedWaits);
    }
    EXPECT_TRUE(thread.stop());
}

TEST(CThreadWaitTest, AStopWakesAPausedThread) {
    std::atomic<int> nPassed{0};
    BodyThread thread(PausableBody{nPassed});
    ASSERT_TRUE(thread.Start());
    thread.pause();
    ASSERT_TRUE(thread.paused.Wait());

    EXPECT_TRUE(thread.stop());

    EXPECT_EQ(1, thread.nPausedWaits);
}

TEST(CThreadWaitTest, AStopThatWasRequestedGoesBeforeAPause) {
    bool bQuit = false;
    BodyThread thread([&](BodyThread& self) {
        self.pause();
        (void)self.stop();
        bQuit = self.doPauseOrQuit();
    });

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    EXPECT_TRUE(bQuit);
    EXPECT_EQ(0, thread.nPausedWaits);
}

TEST(CThreadWaitTest, APauseOutlastsStopAndStart) {
    std::atomic<int> nPassed{0};
    BodyThread thread(PausableBody{nPassed});
    thread.pause();
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(thread.paused.Wait());
    ASSERT_TRUE(thread.stop());
    thread.paused.Reset();

    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(thread.paused.Wait());
    EXPECT_EQ(0, nPassed);
    thread.recovery();

    EXPECT_TRUE(Eventually([&] { return nPassed > 0; }));
    EXPECT_TRUE(thread.stop());
}

TEST(CThreadWaitTest, ThePausedWaitCallbackMayRecoverOrStopItsThread) {
    std::vector<bool> results;
    BodyThread thread([&](BodyThread& self) {
        self.pause();
        results.push_back(self.doPauseOrQuit());
        self.pause();
        results.push_back(self.doPauseOrQuit());
    });
    thread.onPaused = [&thread] {
        if (thread.nPausedWaits == 1) {
            thread.recovery();
        } else {
            EXPECT_FALSE(thread.stop());
        }
    };

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(Eventually([&] { return thread.isStoped(); }));
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ((std::vector<bool>{false, true}), results);
}

TEST(CThreadWaitTest, AClassThatDoesNotCareIsPausedAllTheSame) {
    class Plain : public CThread {
    public:
        ~Plain() override { stop(); }
        Event reached;
        std::atomic<bool> bQuit{false};

    protected:
        void run() override {
            pause();
            reached.Set();
            bQuit = doPauseOrQuit();
        }
    };
    Plain thread;
    ASSERT_TRUE(thread.start(CThread::PriorityNormal));
    ASSERT_TRUE(thread.reached.Wait());

    EXPECT_TRUE(thread.stop());

    EXPECT_TRUE(thread.bQuit);
}
