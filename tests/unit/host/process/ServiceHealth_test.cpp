#include "host/process/ServiceHealth.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

const ServiceHealth::Clock::time_point START{};

}  // namespace

TEST(ServiceHealthTest, SignsComeThreeTimesInEachInterval) {
    ServiceHealth health(seconds(30));

    EXPECT_TRUE(health.IsSignDue(START, false, std::nullopt));
    EXPECT_FALSE(health.IsSignDue(START + milliseconds(9999), false, std::nullopt));
    EXPECT_TRUE(health.IsSignDue(START + seconds(10), false, std::nullopt));
}

TEST(ServiceHealthTest, NobodyWaitingForSignsGetsNone) {
    ServiceHealth health(seconds(0));

    EXPECT_FALSE(health.IsSignDue(START + minutes(5), false, std::nullopt));
}

TEST(ServiceHealthTest, AModuleThatIsSilentWhileMessagesWaitEndsTheSigns) {
    ServiceHealth health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, true, std::nullopt));

    EXPECT_TRUE(health.IsSignDue(START + minutes(10), true, std::nullopt));
    EXPECT_FALSE(health.IsSignDue(START + minutes(11), true, std::nullopt));
    EXPECT_TRUE(health.IsModuleSilent());
}

TEST(ServiceHealthTest, AModuleThatIsHeardOfOrHasNothingToDoKeepsThem) {
    ServiceHealth health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, true, std::nullopt));

    EXPECT_TRUE(health.IsSignDue(START + minutes(11), true, START + minutes(5)));
    EXPECT_TRUE(health.IsSignDue(START + minutes(40), false, START + minutes(5)));
}

TEST(ServiceHealthTest, ALongRestBeforeNewWorkIsNoSilence) {
    ServiceHealth health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, false, START));

    EXPECT_TRUE(health.IsSignDue(START + minutes(60), true, START));
    EXPECT_FALSE(health.IsModuleSilent());
}

TEST(ServiceHealthTest, SignsComeAgainWithTheModule) {
    ServiceHealth health(seconds(30));
    ASSERT_TRUE(health.IsSignDue(START, true, std::nullopt));
    ASSERT_FALSE(health.IsSignDue(START + minutes(11), true, std::nullopt));

    EXPECT_TRUE(health.IsSignDue(START + minutes(12), true, START + minutes(12)));
}
