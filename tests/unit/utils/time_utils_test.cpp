#include "utils/time_utils.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>

namespace {

constexpr char FORMAT[] = "%Y-%m-%d %H:%M:%S";
constexpr int64_t NEW_YEAR = 1580457909;  // 2020-01-31 08:05:09 UTC

class FormatTimeStrTest : public testing::Test {
protected:
    FormatTimeStrTest() {  // five and a half hours ahead of UTC, whatever the machine's own is
        setenv("TZ", "TST-5:30", 1);
        tzset();
    }
};

}  // namespace

TEST_F(FormatTimeStrTest, ZoneZeroIsLocalTime) {
    EXPECT_EQ("2020-01-31 13:35:09", time_utils::FormatTimeStr(NEW_YEAR, FORMAT, 0));
}

TEST_F(FormatTimeStrTest, EveryOtherZoneIsUtc) {
    for (const int nZone : {1, 2, -1, 255}) {
        EXPECT_EQ("2020-01-31 08:05:09", time_utils::FormatTimeStr(NEW_YEAR, FORMAT, nZone));
    }
}

TEST_F(FormatTimeStrTest, TimesBeforeTheEpochAreDates) {
    EXPECT_EQ("1969-12-31 23:59:59", time_utils::FormatTimeStr(-1, FORMAT, 1));
}

TEST_F(FormatTimeStrTest, TimesBeyondThirtyOneBitsAreDates) {
    EXPECT_EQ("2106-02-07 06:28:16", time_utils::FormatTimeStr(4294967296, FORMAT, 1));
}

TEST_F(FormatTimeStrTest, ATimeWithoutADateGivesAnEmptyText) {
    EXPECT_EQ("", time_utils::FormatTimeStr(std::numeric_limits<int64_t>::max(), FORMAT, 1));
    EXPECT_EQ("", time_utils::FormatTimeStr(std::numeric_limits<int64_t>::max(), FORMAT, 0));
    EXPECT_EQ("", time_utils::FormatTimeStr(std::numeric_limits<int64_t>::min(), FORMAT, 1));
}

TEST_F(FormatTimeStrTest, AnOutputOfSixtyThreeSixtyFourAndMoreBytesComesWhole) {
    for (const size_t nLength : {63U, 64U, 127U, 128U, 100000U}) {
        const std::string strFormat(nLength, 'x');
        EXPECT_EQ(strFormat, time_utils::FormatTimeStr(0, strFormat, 1)) << nLength;
    }
}

TEST_F(FormatTimeStrTest, AFormatWithEmptyOutputEndsAndGivesAnEmptyText) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer ends the process where this allocation is meant to fail";
#endif
    EXPECT_EQ("", time_utils::FormatTimeStr(0, std::string(1, '\0'), 1));
}

TEST_F(FormatTimeStrTest, ThreadsFormatAtTheSameTime) {
    const auto work = [](int64_t tmTime, const char* pszExpected) {
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(pszExpected, time_utils::FormatTimeStr(tmTime, FORMAT, 1));
        }
    };

    std::thread first(work, 0, "1970-01-01 00:00:00");
    std::thread second(work, NEW_YEAR, "2020-01-31 08:05:09");
    first.join();
    second.join();
}

TEST(FormatTimeStrDeathTest, AnEmptyFormatPrintsTheAssertionAndAbortsInEveryBuild) {
    EXPECT_EXIT((void)time_utils::FormatTimeStr(0, "", 0), testing::KilledBySignal(SIGABRT),
                "utils/time_utils.*!format\\.empty\\(\\)");
}
