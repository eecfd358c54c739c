#include "host/process/Watchdog.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

const Watchdog::Clock::time_point START{};

}  // namespace

TEST(WatchdogTest, SignsComeThreeTimesInEachInterval) {
    Watchdog health(seconds(30));

    EXPECT_TRUE(health.IsSignDue(START, false, std::nullopt));
    EXPECT_FALSE(health.IsSignDue(START + milliseconds(9999), false, std::nullopt));
    EXPECT_TRUE(health.IsSignDue(START + seconds(10), false, std::nullopt));
}

TEST(WatchdogTest, NobodyWaitingForSignsGetsNone) {
    Watchdog health(seconds(0));

    EXPECT_FALSE(health.IsSignDue(START + minutes(5), false, std::nullopt));
}

TEST(WatchdogTest, AModuleThatIsSilentWhileMessagesWaitEndsTheSigns) {
    Watchdog health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, true, std::nullopt));

    EXPECT_TRUE(health.IsSignDue(START + minutes(10), true, std::nullopt));
    EXPECT_FALSE(health.IsSignDue(START + minutes(11), true, std::nullopt));
    EXPECT_TRUE(health.IsModuleSilent());
}

TEST(WatchdogTest, AModuleThatReportsOrHasNothingToDoKeepsThem) {
    Watchdog health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, true, std::nullopt));

    EXPECT_TRUE(health.IsSignDue(START + minutes(11), true, START + minutes(5)));
    EXPECT_TRUE(health.IsSignDue(START + minutes(40), false, START + minutes(5)));
}

TEST(WatchdogTest, ALongRestBeforeNewWorkIsNoSilence) {
    Watchdog health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, false, START));

    EXPECT_TRUE(health.IsSignDue(START + minutes(60), true, START));
    EXPECT_FALSE(health.IsModuleSilent());
}

TEST(WatchdogTest, SignsComeAgainWithTheModule) {
    Watchdog health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, true, std::nullopt));
    ASSERT_FALSE(health.IsSignDue(START + minutes(11), true, std::nullopt));

    EXPECT_TRUE(health.IsSignDue(START + minutes(12), true, START + minutes(12)));
}
