#include "host/module/QueueLimiter.h"

#include <gtest/gtest.h>

namespace {

QueueLimits Rows(uint64_t nRows) {
    QueueLimits limits;
    limits.nRows = nRows;
    return limits;
}

QueueLimits StoredBytes(uint64_t nBytes) {
    QueueLimits limits;
    limits.nBytes = nBytes;
    return limits;
}

void TakeMany(QueueLimiter& bound, int nCount) {
    for (int i = 0; i < nCount; ++i) {
        ASSERT_TRUE(bound.Take(1, 100)) << i;
    }
}

std::vector<QueueState> States(QueueLimiter& bound) {
    std::vector<QueueState> states;
    for (const QueueLoad& load : bound.TakeChanges()) {
        states.push_back(load.eState);
    }
    return states;
}

}  // namespace

TEST(QueueLimiterTest, ItWarnsAtNineTenthsRefusesAtTheLimitAndIsNormalAtSevenTenths) {
    QueueLimiter bound(Rows(10));

    TakeMany(bound, 8);
    EXPECT_EQ((std::vector<QueueState>{}), States(bound));
    TakeMany(bound, 1);
    EXPECT_EQ((std::vector<QueueState>{QUEUE_HIGH}), States(bound));
    TakeMany(bound, 1);
    EXPECT_EQ((std::vector<QueueState>{QUEUE_FULL}), States(bound));
    EXPECT_FALSE(bound.Take(1, 100));

    bound.Analysed();
    bound.Analysed();
    EXPECT_FALSE(bound.Take(1, 100));
    EXPECT_EQ((std::vector<QueueState>{}), States(bound));
    bound.Analysed();
    EXPECT_EQ((std::vector<QueueState>{QUEUE_NORMAL}), States(bound));
    EXPECT_TRUE(bound.Take(1, 100));
}

TEST(QueueLimiterTest, BytesCountAsTheyAreStored) {
    // 300 bytes are 400 in Base64, and 64 for the rest of the row.
    QueueLimiter bound(StoredBytes(1000));

    EXPECT_TRUE(bound.Take(1, 300));
    EXPECT_EQ(464u, bound.Load().nBytes);
    EXPECT_TRUE(bound.Take(1, 300));
    EXPECT_FALSE(bound.Take(1, 300));

    EXPECT_EQ(2u, bound.Load().nRows);
    EXPECT_EQ(QUEUE_FULL, bound.Load().eState);
}

TEST(QueueLimiterTest, AMessageBiggerThanTheLimitGoesIntoAnEmptyQueue) {
    QueueLimiter bound(StoredBytes(1000));

    EXPECT_TRUE(bound.Take(1, 5000));
    EXPECT_FALSE(bound.Take(1, 1));
    bound.Analysed();

    EXPECT_TRUE(bound.Take(1, 5000));
}

TEST(QueueLimiterTest, WhatIsRefusedIsCountedWithItsEvents) {
    QueueLimiter bound(Rows(1));
    ASSERT_TRUE(bound.Take(1, 10));

    ASSERT_FALSE(bound.Take(1, 10));
    bound.Refuse(7);
    bound.Refuse(3);

    EXPECT_EQ(2u, bound.Load().nRefusedMessages);
    EXPECT_EQ(10u, bound.Load().nRefusedEvents);
}

TEST(QueueLimiterTest, WhatWasThereAtTheStartCountsUntilItIsAnalysed) {
    QueueLimiter bound(Rows(10));
    bound.Begin(10, 1003);
    EXPECT_EQ((std::vector<QueueState>{QUEUE_FULL}), States(bound));
    EXPECT_FALSE(bound.Take(1, 10));

    for (int i = 0; i < 10; ++i) {
        bound.Analysed();
    }

    EXPECT_EQ(0u, bound.Load().nRows);
    EXPECT_EQ(0u, bound.Load().nBytes);
    EXPECT_TRUE(bound.Take(1, 10));
}

TEST(QueueLimiterTest, EveryCopyIsARow) {
    QueueLimiter bound(Rows(10));

    EXPECT_TRUE(bound.Take(3, 300));

    EXPECT_EQ(3u, bound.Load().nRows);
    EXPECT_EQ(3u * 464, bound.Load().nBytes);
}

TEST(QueueLimiterTest, AMessageThatWasNotDeliveredGivesItsRoomBack) {
    QueueLimiter bound(Rows(2));
    ASSERT_TRUE(bound.Take(1, 10));
    ASSERT_TRUE(bound.Take(1, 300));

    bound.GiveBack(1, 300);

    EXPECT_EQ(1u, bound.Load().nRows);
    EXPECT_EQ(80u, bound.Load().nBytes);
    EXPECT_TRUE(bound.Take(1, 10));
}

TEST(QueueLimiterTest, AMessageThatIsAnalysedTwiceDoesNotCountBelowNothing) {
    QueueLimiter bound(Rows(2));
    ASSERT_TRUE(bound.Take(1, 10));

    bound.Analysed();
    bound.Analysed();

    EXPECT_EQ(0u, bound.Load().nRows);
    EXPECT_EQ(0u, bound.Load().nBytes);
}

TEST(QueueLimiterTest, ALookSetsTheCountRightInBothDirections) {
    QueueLimiter bound(Rows(100));
    TakeMany(bound, 10);
    bound.Stored(8);

    bound.Correct(3);  // and two are on their way
    EXPECT_EQ(5u, bound.Load().nRows);
    EXPECT_EQ(5u * 200, bound.Load().nBytes);

    bound.Correct(18);
    EXPECT_EQ(20u, bound.Load().nRows);
    EXPECT_EQ(20u * 200, bound.Load().nBytes);
    for (int i = 0; i < 20; ++i) {
        bound.Analysed();
    }
    EXPECT_EQ(0u, bound.Load().nBytes);
}

TEST(QueueLimiterTest, TheLargestLimitsDoNotOverflow) {
    QueueLimits limits;
    limits.nRows = UINT64_MAX;
    limits.nBytes = UINT64_MAX;
    QueueLimiter bound(limits);

    EXPECT_TRUE(bound.Take(1, 10));

    EXPECT_EQ(QUEUE_NORMAL, bound.Load().eState);
}

TEST(QueueLimiterTest, TenthsOfALimitThatTenDoesNotDivideAreRoundedDown) {
    QueueLimiter bound(Rows(15));

    TakeMany(bound, 12);
    EXPECT_EQ((std::vector<QueueState>{}), States(bound));
    TakeMany(bound, 1);  // 13.5
    EXPECT_EQ((std::vector<QueueState>{QUEUE_HIGH}), States(bound));
    bound.Analysed();
    bound.Analysed();
    EXPECT_EQ((std::vector<QueueState>{}), States(bound));
    bound.Analysed();  // 10.5
    EXPECT_EQ((std::vector<QueueState>{QUEUE_NORMAL}), States(bound));
}

TEST(QueueLimiterTest, ItIsNormalOnceBothAreDownToSevenTenths) {
    QueueLimits limits;
    limits.nRows = 10;
    limits.nBytes = 10 * 464;
    QueueLimiter bound(limits);
    ASSERT_TRUE(bound.Take(1, 2700));  // 3664 bytes in the file
    EXPECT_EQ((std::vector<QueueState>{}), States(bound));
    TakeMany(bound, 3);  // 200 bytes each: 4264 of 4640
    EXPECT_EQ((std::vector<QueueState>{QUEUE_HIGH}), States(bound));

    bound.GiveBack(1, 100);
    bound.GiveBack(1, 100);
    EXPECT_EQ(2u, bound.Load().nRows);
    EXPECT_EQ(QUEUE_HIGH, bound.Load().eState);  // few rows, but 3864 bytes
    bound.Analysed();

    EXPECT_EQ((std::vector<QueueState>{QUEUE_NORMAL}), States(bound));
    EXPECT_EQ(200u, bound.Load().nBytes);
}

TEST(QueueLimiterTest, CopiesForWhichThereIsNoRoomAreNotTakenInPart) {
    QueueLimiter bound(Rows(10));
    TakeMany(bound, 8);

    EXPECT_FALSE(bound.Take(3, 100));

    EXPECT_EQ(8u, bound.Load().nRows);
    EXPECT_EQ(1600u, bound.Load().nBytes);
    EXPECT_EQ(0u, bound.Load().nRefusedMessages);  // it may be tried again
    EXPECT_FALSE(bound.Take(1, 100));              // full until it is down to seven tenths
    EXPECT_TRUE(QueueLimiter(Rows(10)).Take(10, 100));
}

TEST(QueueLimiterTest, AChangeHasTheLoadAtWhichItHappened) {
    QueueLimiter bound(Rows(10));
    bound.Begin(8, 800);
    TakeMany(bound, 2);
    for (int i = 0; i < 3; ++i) {
        bound.Analysed();
    }

    const std::vector<QueueLoad> changes = bound.TakeChanges();

    ASSERT_EQ(3u, changes.size());
    EXPECT_EQ(9u, changes[0].nRows);
    EXPECT_EQ(1000u, changes[0].nBytes);
    EXPECT_EQ(10u, changes[1].nRows);
    EXPECT_EQ(7u, changes[2].nRows);
    EXPECT_EQ(900u, changes[2].nBytes);
    EXPECT_TRUE(bound.TakeChanges().empty());
}

TEST(QueueLimiterTest, OfRowsFromBeforeTheBytesAreSharedOutWithoutARest) {
    QueueLimiter bound(Rows(100));
    bound.Begin(3, 1000);

    bound.Analysed();
    EXPECT_EQ(667u, bound.Load().nBytes);
    bound.Analysed();
    EXPECT_EQ(334u, bound.Load().nBytes);
    bound.Analysed();
    EXPECT_EQ(0u, bound.Load().nBytes);

    bound.Begin(0, 1000);  // pages without a row
    EXPECT_EQ(0u, bound.Load().nBytes);
}

TEST(QueueLimiterTest, CopiesThatWereNotDeliveredGiveAllTheirRoomBack) {
    QueueLimiter bound(Rows(10));
    ASSERT_TRUE(bound.Take(1, 300));
    ASSERT_TRUE(bound.Take(3, 100));

    bound.GiveBack(3, 100);

    EXPECT_EQ(1u, bound.Load().nRows);
    EXPECT_EQ(464u, bound.Load().nBytes);
    bound.Correct(0);  // one is still on its way
    EXPECT_EQ(1u, bound.Load().nRows);
    bound.Stored(1);
    bound.Correct(0);
    EXPECT_EQ(0u, bound.Load().nRows);
}

TEST(QueueLimiterTest, WhatIsGivenBackAfterACorrectionIsNotTakenOffTwice) {
    QueueLimiter bound(Rows(10));
    ASSERT_TRUE(bound.Take(2, 100));
    bound.Stored(5);  // more than were on their way
    bound.Correct(0);
    EXPECT_EQ(0u, bound.Load().nRows);

    bound.GiveBack(2, 100);

    EXPECT_EQ(0u, bound.Load().nRows);
    EXPECT_EQ(0u, bound.Load().nBytes);
    bound.Correct(3);
    EXPECT_EQ(3u, bound.Load().nRows);
    EXPECT_EQ(3u * 64, bound.Load().nBytes);  // nothing is known of their texts
}
