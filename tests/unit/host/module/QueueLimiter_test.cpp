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
