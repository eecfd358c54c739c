#include "host/transport/SerialExecutor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/Event.h"
#include "tests/support/HeldCall.h"

namespace {

// An executor for two jobs, which wait behind one that is held.
class FullExecutorTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_executor.Push(1, [this](bool) { m_held.Hold(); }));
        ASSERT_TRUE(m_held.HasBegun());
        ASSERT_TRUE(m_executor.Push(1, [](bool) {}));
        ASSERT_TRUE(m_executor.Push(1, [](bool) {}));
    }

    HeldCall m_held;
    SerialExecutor m_executor{"executor", {2, 1000}};
};

}  // namespace

TEST(SerialExecutorTest, RunsJobsInTheOrderInWhichTheyCame) {
    std::vector<int> order;
    Event done;
    SerialExecutor executor("executor", {});

    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(executor.Push(1, [&order, i](bool) { order.push_back(i); }));
    }
    ASSERT_TRUE(executor.Push(1, [&done](bool) { done.Set(); }));

    ASSERT_TRUE(done.Wait());
    ASSERT_EQ(100u, order.size());
    EXPECT_EQ(0, order.front());
    EXPECT_EQ(99, order.back());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(FullExecutorTest, LetsTheSenderWaitUntilThereIsRoom) {
    Event pushed;
    std::thread sender([&] {
        EXPECT_TRUE(m_executor.Push(1, [](bool) {}));
        pushed.Set();
    });

    EXPECT_FALSE(pushed.WaitFor(std::chrono::milliseconds(50)));
    m_held.GoOn();
    EXPECT_TRUE(pushed.Wait());
    sender.join();
}

TEST(SerialExecutorTest, BytesFillAnExecutorAsJobsDo) {
    HeldCall held;
    SerialExecutor executor("executor", {100, 10});
    ASSERT_TRUE(executor.Push(1, [&](bool) { held.Hold(); }));
    ASSERT_TRUE(held.HasBegun());
    ASSERT_TRUE(executor.Push(50, [](bool) {}));  // any size has room in an empty executor
    executor.EndWaiting();

    EXPECT_FALSE(executor.Push(1, [](bool) {}));

    held.GoOn();
}

TEST_F(FullExecutorTest, EndWaitingFreesASenderThatWaits) {
    std::atomic<int> nResult{-1};
    std::thread sender([&] { nResult = m_executor.Push(1, [](bool) {}) ? 1 : 0; });

    m_executor.EndWaiting();

    sender.join();
    EXPECT_EQ(0, nResult);
    m_held.GoOn();
}

TEST(SerialExecutorTest, StopEndsTheJobInHandAndReportsTheOthers) {
    Event begun;
    Event stopping;
    std::atomic<bool> bEnded{false};
    std::vector<bool> told;
    SerialExecutor executor("executor", {});
    ASSERT_TRUE(executor.Push(1, [&](bool) {
        begun.Set();
        stopping.Wait();
        bEnded = true;
    }));
    ASSERT_TRUE(executor.Push(1, [&told](bool bRun) { told.push_back(bRun); }));
    ASSERT_TRUE(begun.Wait());

    stopping.Set();
    executor.Stop();

    EXPECT_TRUE(bEnded);
    ASSERT_EQ(1u, told.size());  // called, with true when it came to run before the stop
    EXPECT_FALSE(executor.Push(1, [](bool) { FAIL() << "pushed into an executor that stopped"; }));
}

TEST_F(FullExecutorTest, StopFreesASenderThatWaits) {
    std::atomic<bool> bPushed{true};
    std::thread sender([&] {
        bPushed = m_executor.Push(1, [](bool) {});
        m_held.GoOn();  // only now can the job in hand end, and with it the stop
    });

    m_executor.Stop();

    sender.join();
    EXPECT_FALSE(bPushed);
}

TEST(SerialExecutorTest, AJobMayStopItsOwnExecutor) {
    Event done;
    auto pExecutor = std::make_unique<SerialExecutor>("executor", SerialExecutor::Limits());

    ASSERT_TRUE(pExecutor->Push(1, [&](bool) {
        pExecutor.reset();
        done.Set();
    }));

    EXPECT_TRUE(done.Wait());
}

TEST(SerialExecutorTest, AJobPushesIntoItsOwnFullExecutorWithoutWaiting) {
    Event done;
    SerialExecutor executor("executor", {2, 1000});

    ASSERT_TRUE(executor.Push(1, [&](bool) {
        for (int i = 0; i < 5; ++i) {
            EXPECT_TRUE(executor.Push(1, [](bool) {}));
        }
        EXPECT_TRUE(executor.Push(1, [&](bool) { done.Set(); }));
    }));

    EXPECT_TRUE(done.Wait());
}
