#include "host/transport/SerialExecutor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/Event.h"

namespace {

constexpr SerialExecutor::Limits TWO_JOBS = {2, 1000};

}  // namespace

TEST(SerialExecutorTest, RunsJobsInTheOrderInWhichTheyCame) {
    std::vector<int> order;
    Event done;
    SerialExecutor lane("lane", {});

    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(lane.Push(1, [&order, i](bool) { order.push_back(i); }));
    }
    ASSERT_TRUE(lane.Push(1, [&done](bool) { done.Set(); }));

    ASSERT_TRUE(done.Wait());
    ASSERT_EQ(100u, order.size());
    EXPECT_EQ(0, order.front());
    EXPECT_EQ(99, order.back());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(SerialExecutorTest, AFullLaneLetsTheSenderWaitUntilThereIsRoom) {
    Event begun;
    Event goOn;
    Event pushed;
    SerialExecutor lane("lane", TWO_JOBS);
    ASSERT_TRUE(lane.Push(1, [&](bool) {
        begun.Set();
        goOn.Wait();
    }));
    ASSERT_TRUE(begun.Wait());
    ASSERT_TRUE(lane.Push(1, [](bool) {}));
    ASSERT_TRUE(lane.Push(1, [](bool) {}));

    std::thread sender([&] {
        EXPECT_TRUE(lane.Push(1, [](bool) {}));
        pushed.Set();
    });

    EXPECT_FALSE(pushed.WaitFor(std::chrono::milliseconds(50)));
    goOn.Set();
    EXPECT_TRUE(pushed.Wait());
    sender.join();
}

TEST(SerialExecutorTest, BytesFillALaneAsJobsDo) {
    Event begun;
    Event goOn;
    SerialExecutor lane("lane", {100, 10});
    ASSERT_TRUE(lane.Push(1, [&](bool) {
        begun.Set();
        goOn.Wait();
    }));
    ASSERT_TRUE(begun.Wait());
    ASSERT_TRUE(lane.Push(50, [](bool) {}));  // any size has room in an empty lane
    lane.EndWaiting();

    EXPECT_FALSE(lane.Push(1, [](bool) {}));

    goOn.Set();
}

TEST(SerialExecutorTest, EndWaitingFreesASenderThatWaits) {
    Event begun;
    Event goOn;
    std::atomic<int> nResult{-1};
    SerialExecutor lane("lane", TWO_JOBS);
    ASSERT_TRUE(lane.Push(1, [&](bool) {
        begun.Set();
        goOn.Wait();
    }));
    ASSERT_TRUE(begun.Wait());
    ASSERT_TRUE(lane.Push(1, [](bool) {}));
    ASSERT_TRUE(lane.Push(1, [](bool) {}));
    std::thread sender([&] { nResult = lane.Push(1, [](bool) {}) ? 1 : 0; });

    lane.EndWaiting();

    sender.join();
    EXPECT_EQ(0, nResult);
    goOn.Set();
}

TEST(SerialExecutorTest, StopEndsTheJobInHandAndTellsTheOthers) {
    Event begun;
    Event stopping;
    std::atomic<bool> bEnded{false};
    std::vector<bool> told;
    SerialExecutor lane("lane", {});
    ASSERT_TRUE(lane.Push(1, [&](bool) {
        begun.Set();
        stopping.Wait();
        bEnded = true;
    }));
    ASSERT_TRUE(lane.Push(1, [&told](bool bRun) { told.push_back(bRun); }));
    ASSERT_TRUE(begun.Wait());

    stopping.Set();
    lane.Stop();

    EXPECT_TRUE(bEnded);
    ASSERT_EQ(1u, told.size());  // called, with true when it came to run before the stop
    EXPECT_FALSE(lane.Push(1, [](bool) { FAIL() << "pushed into a lane that stopped"; }));
}

TEST(SerialExecutorTest, StopFreesASenderThatWaits) {
    Event begun;
    Event goOn;
    std::atomic<bool> bPushed{true};
    SerialExecutor lane("lane", TWO_JOBS);
    ASSERT_TRUE(lane.Push(1, [&](bool) {
        begun.Set();
        goOn.Wait();
    }));
    ASSERT_TRUE(begun.Wait());
    ASSERT_TRUE(lane.Push(1, [](bool) {}));
    ASSERT_TRUE(lane.Push(1, [](bool) {}));
    std::thread sender([&] {
        bPushed = lane.Push(1, [](bool) {});
        goOn.Set();  // only now can the job in hand end, and with it the stop
    });

    lane.Stop();

    sender.join();
    EXPECT_FALSE(bPushed);
}

TEST(SerialExecutorTest, AJobMayStopItsOwnLane) {
    Event done;
    auto pLane = std::make_unique<SerialExecutor>("lane", SerialExecutor::Limits());

    ASSERT_TRUE(pLane->Push(1, [&](bool) {
        pLane.reset();
        done.Set();
    }));

    EXPECT_TRUE(done.Wait());
}

TEST(SerialExecutorTest, AJobPushesIntoItsOwnFullLaneWithoutWaiting) {
    Event done;
    SerialExecutor lane("lane", TWO_JOBS);

    ASSERT_TRUE(lane.Push(1, [&](bool) {
        for (int i = 0; i < 5; ++i) {
            EXPECT_TRUE(lane.Push(1, [](bool) {}));
        }
        EXPECT_TRUE(lane.Push(1, [&](bool) { done.Set(); }));
    }));

    EXPECT_TRUE(done.Wait());
}
