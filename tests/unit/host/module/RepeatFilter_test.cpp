#include "host/module/RepeatFilter.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using Lines = std::vector<std::string>;

const RepeatFilter::Clock::time_point START{};

}  // namespace

TEST(RepeatFilterTest, RepeatsAreReportedOnceWithTheirNumberAlsoBetweenOthers) {
    RepeatFilter folder;
    for (int i = 0; i < 300; ++i) {
        folder.Add("database is locked", START);
        folder.Add("cannot commit", START);
    }
    folder.Add("once", START);

    EXPECT_EQ((Lines{"(300 times) database is locked", "(300 times) cannot commit", "once"}),
              folder.Take(START + milliseconds(250)));
}

TEST(RepeatFilterTest, ALineIsHeldForAQuarterOfASecond) {
    RepeatFilter folder;
    EXPECT_FALSE(folder.Due().has_value());

    folder.Add("a", START);

    EXPECT_EQ(START + milliseconds(250), folder.Due());
    EXPECT_EQ(Lines{}, folder.Take(START + milliseconds(249)));
    EXPECT_EQ(Lines{"a"}, folder.Take(START + milliseconds(250)));
    EXPECT_FALSE(folder.Due().has_value());
}

TEST(RepeatFilterTest, TheSameLineLaterIsReportedAgain) {
    RepeatFilter folder;
    folder.Add("a", START);
    (void)folder.TakeAll();

    folder.Add("a", START + milliseconds(300));

    EXPECT_EQ(Lines{"a"}, folder.TakeAll());
}

TEST(RepeatFilterTest, MoreDifferentLinesThanAreHeldAreReportedAtOnce) {
    RepeatFilter folder;
    for (int i = 0; i < 17; ++i) {
        folder.Add(std::to_string(i), START);
    }

    ASSERT_TRUE(folder.Due().has_value());
    EXPECT_GE(START, *folder.Due());
    EXPECT_EQ(16u, folder.Take(START).size());
    EXPECT_EQ(Lines{"16"}, folder.TakeAll());
}
