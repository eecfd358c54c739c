#include "host/kernel/file/WorkPace.h"

#include <gtest/gtest.h>

using std::chrono::milliseconds;

namespace {

const WorkPace::Clock::time_point START = WorkPace::Clock::time_point(std::chrono::hours(1));

}  // namespace

TEST(WorkPaceTest, TheFirstTimeNeedsNoPause) {
    EXPECT_TRUE(WorkPace().MayBegin(START));
}

TEST(WorkPaceTest, APauseIsNineTimesAsLongAsTheWork) {
    WorkPace pace;

    pace.Ended(START, START + milliseconds(10));

    EXPECT_FALSE(pace.MayBegin(START + milliseconds(99)));
    EXPECT_TRUE(pace.MayBegin(START + milliseconds(100)));
}

TEST(WorkPaceTest, APauseIsNeverLongerThanASecond) {
    WorkPace pace;

    pace.Ended(START, START + milliseconds(5000));

    EXPECT_FALSE(pace.MayBegin(START + milliseconds(5999)));
    EXPECT_TRUE(pace.MayBegin(START + milliseconds(6000)));
}
