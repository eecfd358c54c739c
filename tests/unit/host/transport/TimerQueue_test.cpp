#include "host/transport/TimerQueue.h"

#include <gtest/gtest.h>

#include <atomic>
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
