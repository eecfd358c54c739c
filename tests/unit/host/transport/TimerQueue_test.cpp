#include "host/transport/TimerQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Event.h"

using std::chrono::hours;
using std::chrono::milliseconds;

TEST(TimerQueueTest, CallsAreMadeInTheOrderOfTheirTimes) {
    std::vector<int> order;
    Event done;
    TimerQueue deadlines;
    const auto now = TimerQueue::Clock::now();

    ASSERT_TRUE(deadlines.Add(now + milliseconds(20), [&] {
        order.push_back(2);
        done.Set();
    }));
    ASSERT_TRUE(deadlines.Add(now + milliseconds(10), [&] { order.push_back(1); }));

    ASSERT_TRUE(done.Wait());
    EXPECT_EQ((std::vector<int>{1, 2}), order);
}

TEST(TimerQueueTest, StopMakesTheCallsThatAreLeft) {
    std::atomic<int> nCalls{0};
    TimerQueue deadlines;
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now() + hours(1), [&] { ++nCalls; }));
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now() + hours(2), [&] { ++nCalls; }));

    deadlines.Stop();

    EXPECT_EQ(2, nCalls);
    EXPECT_FALSE(deadlines.Add(TimerQueue::Clock::now(), [] { FAIL() << "taken after the stop"; }));
}

TEST(TimerQueueTest, ACallMayStopThem) {
    Event done;
    TimerQueue deadlines;

    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&] {
        deadlines.Stop();
        done.Set();
    }));

    EXPECT_TRUE(done.Wait());
}

TEST(TimerQueueTest, ACallThatIsDueEarlierThanTheOneWaitedForIsMadeFirst) {
    Event early;
    std::atomic<int> nLate{0};
    TimerQueue deadlines;
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now() + hours(1), [&] { ++nLate; }));

    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&] { early.Set(); }));

    EXPECT_TRUE(early.Wait());
    EXPECT_EQ(0, nLate);
    deadlines.Stop();
    EXPECT_EQ(1, nLate);
}

TEST(TimerQueueTest, CallsThatAreDueAtOneTimeAreMadeInTheOrderOfTheirAdding) {
    std::vector<int> order;
    TimerQueue deadlines;
    const auto due = TimerQueue::Clock::now() + hours(1);
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(deadlines.Add(due, [&order, i] { order.push_back(i); }));
    }

    deadlines.Stop();

    EXPECT_EQ((std::vector<int>{0, 1, 2, 3}), order);
}

TEST(TimerQueueTest, ACallMayAddAnother) {
    Event done;
    TimerQueue deadlines;

    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&] {
        EXPECT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&] { done.Set(); }));
    }));

    EXPECT_TRUE(done.Wait());
}

TEST(TimerQueueTest, StopWaitsForTheCallThatIsRunning) {
    Event entered;
    Event mayEnd;
    std::atomic<bool> bEnded{false};
    std::atomic<bool> bStopped{false};
    TimerQueue deadlines;
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&] {
        entered.Set();
        EXPECT_TRUE(mayEnd.Wait());
        EXPECT_FALSE(bStopped);
        bEnded = true;
    }));
    ASSERT_TRUE(entered.Wait());
    std::thread stopper([&] {
        deadlines.Stop();
        EXPECT_TRUE(bEnded);
        bStopped = true;
    });

    // Refused: the other thread is in Stop.
    EXPECT_TRUE(Eventually([&] { return !deadlines.Add(TimerQueue::Clock::now(), [] {}); }));
    mayEnd.Set();
    stopper.join();

    EXPECT_TRUE(bStopped);
}

TEST(TimerQueueTest, ASecondStopHasNothingLeftToCall) {
    std::atomic<int> nCalls{0};
    TimerQueue deadlines;
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now() + hours(1), [&] { ++nCalls; }));

    deadlines.Stop();
    deadlines.Stop();

    EXPECT_EQ(1, nCalls);
}

TEST(TimerQueueTest, ItsEndMakesTheCallsThatAreLeft) {
    std::atomic<int> nCalls{0};
    {
        TimerQueue deadlines;
        ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now() + hours(1), [&] { ++nCalls; }));
    }
    EXPECT_EQ(1, nCalls);
    TimerQueue().Stop();  // one that never had a call has no thread to wait for
}

// The process's signals belong to the thread that waits for them.
TEST(TimerQueueTest, ItsThreadHasANameAndTakesNoSignal) {
    Event done;
    std::string strName;
    std::vector<int> taken;
    TimerQueue deadlines;
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&] {
        char szName[16] = "";
        pthread_getname_np(pthread_self(), szName, sizeof(szName));
        strName = szName;
        sigset_t blocked;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        for (const int nSignal : {SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGCHLD, SIGALRM}) {
            if (sigismember(&blocked, nSignal) != 1) {
                taken.push_back(nSignal);
            }
        }
        done.Set();
    }));

    ASSERT_TRUE(done.Wait());
    EXPECT_EQ("host_deadlines", strName);
    EXPECT_EQ(std::vector<int>{}, taken);
}

TEST(TimerQueueTest, ACallIsMadeOnceAndNothingOfItIsKept) {
    Event first;
    Event second;
    std::atomic<int> nCalls{0};
    const auto pHeld = std::make_shared<int>(0);
    TimerQueue deadlines;
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&, pHeld] {
        ++nCalls;
        first.Set();
    }));
    ASSERT_TRUE(first.Wait());
    ASSERT_TRUE(deadlines.Add(TimerQueue::Clock::now(), [&] { second.Set(); }));

    ASSERT_TRUE(second.Wait());

    EXPECT_EQ(1, pHeld.use_count());
    deadlines.Stop();
    EXPECT_EQ(1, nCalls);
}
