#include "tevmon/core/CachoRecord.h"

#include <gtest/gtest.h>

namespace {

constexpr int64_t LOWEST = std::numeric_limits<int64_t>::min();
constexpr int64_t HIGHEST = std::numeric_limits<int64_t>::max();

CachoRecord Recorded(int64_t tmCreate, int64_t nInterval) {
    CachoRecord record;
    record.nTmCreate = tmCreate;
    record.nTmInterval = nInterval;
    return record;
}

}  // namespace

TEST(CachoRecordTest, AnEntryRecordedAtTWithValidity1200IsValidAtTPlus1200AndExpiredAtTPlus1201) {
    const CachoRecord record = Recorded(1700000000, 1200);

    EXPECT_TRUE(IsCachoValid(record, 1700000000));
    EXPECT_TRUE(IsCachoValid(record, 1700001200));
    EXPECT_FALSE(IsCachoValid(record, 1700001201));
}

TEST(CachoRecordTest, AnEntryIsValidWhileTheClockStandsBeforeItsRecording) {
    EXPECT_TRUE(IsCachoValid(Recorded(1700000000, 1200), 1600000000));
}

TEST(CachoRecordTest, AValidityOfZeroLastsItsOwnSecond) {
    EXPECT_TRUE(IsCachoValid(Recorded(100, 0), 100));
    EXPECT_FALSE(IsCachoValid(Recorded(100, 0), 101));
}

TEST(CachoRecordTest, ANegativeValidityCountsBack) {
    EXPECT_TRUE(IsCachoValid(Recorded(100, -10), 90));
    EXPECT_FALSE(IsCachoValid(Recorded(100, -10), 91));
}

TEST(CachoRecordTest, ASumAboveTheRangeStopsAtItsEndAndStaysValid) {
    EXPECT_TRUE(IsCachoValid(Recorded(1, HIGHEST), HIGHEST));
    EXPECT_TRUE(IsCachoValid(Recorded(HIGHEST, HIGHEST), 1700000000));
}

TEST(CachoRecordTest, ASumBelowTheRangeStopsAtItsEndAndStaysExpired) {
    EXPECT_FALSE(IsCachoValid(Recorded(-2, LOWEST), 1700000000));
    EXPECT_FALSE(IsCachoValid(Recorded(LOWEST, LOWEST), LOWEST + 1));
    EXPECT_TRUE(IsCachoValid(Recorded(LOWEST, LOWEST), LOWEST));
}

TEST(CachoRecordTest, NumbersOfOppositeSignsAtTheEndsOfTheRangeAreAddedExactly) {
    EXPECT_TRUE(IsCachoValid(Recorded(HIGHEST, LOWEST), -1));
    EXPECT_FALSE(IsCachoValid(Recorded(LOWEST, HIGHEST), 0));
}

TEST(CachoRecordTest, ANewRecordIsEmpty) {
    const CachoRecord record;

    EXPECT_EQ(0, record.id);
    EXPECT_EQ("", record.key);
    EXPECT_EQ(0, record.nLevel);
    EXPECT_EQ(0, record.nTmInterval);
    EXPECT_EQ(0, record.nTmCreate);
    EXPECT_EQ(0, record.eMid);
    EXPECT_EQ("", record.strDetail);
}
