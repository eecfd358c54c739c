#include "tevmon/core/CTevMonTimer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "tests/support/Event.h"
#include "tests/support/Threads.h"

namespace {

std::atomic<uint32_t> s_nAskedWait{0};
std::atomic<int> s_nWaits{0};

uint32_t ShortWait(uint32_t nMilliseconds) {
    s_nAskedWait = nMilliseconds;
    ++s_nWaits;
    return 1;
}

class Timer : public CTevMonTimer {
public:
    using CTevMonTimer::GetInterval;
    using CTevMonTimer::GetTimerName;
};

}  // namespace

TEST(CTevMonTimerTest, HasItsOwnNameAndFiveSeconds) {
    const Timer timer;

    EXPECT_STREQ("tevmon_tasktimer", timer.GetTimerName());
    EXPECT_EQ(5000, timer.GetInterval());
}

TEST(CTevMonTimerTest, WithAnEmptyMapTheThreadNamesItselfWakesEveryFiveSecondsAndDoesNothingElse) {
    CThread::SetWaitHook(&ShortWait);
    CTevMonTimer timer;

    ASSERT_TRUE(timer.Start(CThread::PriorityNormal));

    // The kernel keeps 15 bytes of "tevmon_tasktimer".
    EXPECT_TRUE(Eventually([] { return ThreadNames().count("tevmon_tasktime") == 1; }));
    EXPECT_TRUE(Eventually([] { return s_nWaits.load() >= 3; }));
    EXPECT_EQ(5000U, s_nAskedWait.load());
    timer.Stop();
    EXPECT_FALSE(timer.isJoinable());
    CThread::SetWaitHook(nullptr);
}

TEST(CTevMonTimerTest, DestructionWithoutStopEndsTheThread) {
    {
        CTevMonTimer timer;
        ASSERT_TRUE(timer.Start(CThread::PriorityNormal));
    }

    EXPECT_TRUE(Eventually([] { return ThreadNames().count("tevmon_tasktime") == 0; }));
}
