#include "framework/base/CDateTime.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstdint>
#include <limits>
#include <optional>

#include "tests/support/FakeClock.h"

// Every test names its time zone, so none depends on the machine's.
class CDateTimeTest : public testing::Test {
protected:
    CDateTimeTest() {
        const char* pszOld = getenv("TZ");
        if (pszOld != nullptr) {
            m_oldZone = pszOld;
        }
        Zone("UTC0");
    }
    ~CDateTimeTest() override {
        if (m_oldZone) {
            Zone(m_oldZone->c_str());
        } else {
            unsetenv("TZ");
            tzset();
        }
    }

    static void Zone(const char* pszZone) {
        setenv("TZ", pszZone, 1);
        tzset();
    }

private:
    std::optional<std::string> m_oldZone;
};

TEST_F(CDateTimeTest, ReplacesEveryFieldByZeroPaddedNumbers) {
    const CDateTime time(981173106);

    EXPECT_EQ("2001-02-03 04:05:06", time.toString("yyyy-MM-dd hh:mm:ss"));
}

TEST_F(CDateTimeTest, HoursCountTo24) {
    EXPECT_EQ("23", CDateTime(86399).toString("hh"));
    EXPECT_EQ("00", CDateTime(86400).toString("hh"));
}

TEST_F(CDateTimeTest, ReadsTheSecondsAsLocalTime) {
    Zone("ABC-05:30");

    EXPECT_EQ("1970-01-01 05:30:00", CDateTime(0).toString("yyyy-MM-dd hh:mm:ss"));
}

TEST_F(CDateTimeTest, LeavesEveryOtherCharacterAsItStands) {
    const CDateTime time(981173106);

    EXPECT_EQ("%Y y yyy M d h m s 'T' 2001y 05m",
              time.toString("%Y y yyy M d h m s 'T' yyyyy mmm"));
    EXPECT_EQ(std::string("\0", 1) + "2001", time.toString(std::string("\0", 1) + "yyyy"));
    EXPECT_EQ("", time.toString(""));
}

TEST_F(CDateTimeTest, ReplacesFieldsThatStandSideBySideAndAgain) {
    EXPECT_EQ("200102030405062001", CDateTime(981173106).toString("yyyyMMddhhmmssyyyy"));
}

TEST_F(CDateTimeTest, KnowsTimesBeforeTheEpochAndBeyond32Bits) {
    EXPECT_EQ("1969-12-31 23:59:59", CDateTime(-1).toString("yyyy-MM-dd hh:mm:ss"));
    EXPECT_EQ("2106-02-07 06:28:16", CDateTime(4294967296).toString("yyyy-MM-dd hh:mm:ss"));
}

TEST_F(CDateTimeTest, ATimeWithoutALocalDateGivesAnEmptyText) {
    EXPECT_EQ("", CDateTime(std::numeric_limits<int64_t>::max()).toString("yyyy"));
    EXPECT_EQ("", CDateTime(std::numeric_limits<int64_t>::min()).toString("literal"));
}

TEST_F(CDateTimeTest, TheGreatestYearIsPrintedWhole) {
    EXPECT_EQ("2147485547", CDateTime(67768036191676799).toString("yyyy"));
}

TEST_F(CDateTimeTest, TheCurrentDateTimeIsTheClocks) {
    const FakeClock clock(1700000000);

    EXPECT_EQ("2023-11-14 22:13:20", CDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss"));
}
