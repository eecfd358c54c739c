#include "host/account/Balance.h"

#include <gtest/gtest.h>

namespace {

// Two launches and one file operation, all of them delivered, analysed and answered.
Balance Clean() {
    Balance balance;
    balance.launches.nCaptured = balance.launches.nReported = 2;
    balance.files.nCaptured = balance.files.nReported = 1;
    balance.events.nSent = balance.events.nAnalysed = 3;
    balance.events.nExpected = balance.events.nQueried = 3;
    balance.module.nQueries = balance.module.nAnswers = 3;
    return balance;
}

}  // namespace

TEST(BalanceTest, WhatAddsUpIsExplained) {
    Balance balance = Clean();
    EXPECT_EQ(0u, balance.Unexplained());
    balance.bFinal = true;
    EXPECT_EQ(0u, balance.Unexplained());
    EXPECT_EQ(3u, balance.Reported());
    EXPECT_EQ(3u, balance.Delivered());
    EXPECT_EQ(0u, balance.Outstanding());
}

TEST(BalanceTest, EachEventThatAppearsOrVanishesOnTheWayIsUnexplained) {
    uint64_t LaunchCounters::*const LAUNCHES[] = {
        &LaunchCounters::nLost, &LaunchCounters::nOwn, &LaunchCounters::nBroken,
        &LaunchCounters::nUnresolved, &LaunchCounters::nRepeated};
    for (const auto pCounter : LAUNCHES) {
        Balance balance = Clean();
        ++(balance.launches.*pCounter);  // one end more than there were launches
        EXPECT_EQ(1u, balance.Unexplained());
        ++balance.launches.nCaptured;
        EXPECT_EQ(0u, balance.Unexplained());
    }
    uint64_t LedgerState::*const ENDS[] = {&LedgerState::nRefused, &LedgerState::nNotStored,
                                           &LedgerState::nWaiting, &LedgerState::nAnalysed};
    for (const auto pCounter : ENDS) {
        Balance balance = Clean();
        ++(balance.events.*pCounter);
        EXPECT_EQ(1u, balance.Unexplained());
    }
    Balance balance = Clean();
    --balance.files.nReported;
    EXPECT_EQ(1u, balance.Unexplained());  // sent without having been reported
}

TEST(BalanceTest, WhatIsOnItsWayIsUnexplainedOnlyAtTheEnd) {
    Balance balance = Clean();
    ++balance.launches.nCaptured;  // not read yet
    ++balance.files.nCaptured;
    ++balance.module.nQueries;  // no answer yet
    EXPECT_EQ(0u, balance.Unexplained());
    balance.bFinal = true;
    EXPECT_EQ(3u, balance.Unexplained());
}

// The metrics are written beside the delivery: an alarm for each batch on its way would be false.
TEST(BalanceTest, ABatchInTheHandsOfTheDeliveryIsUnexplainedOnlyAtTheEnd) {
    Balance balance = Clean();
    balance.nLargestBatch = 256;
    balance.launches.nCaptured += 256;
    balance.launches.nReported += 256;
    EXPECT_EQ(0u, balance.Unexplained());
    balance.bFinal = true;
    EXPECT_EQ(256u, balance.Unexplained());

    balance.bFinal = false;
    ++balance.launches.nCaptured;
    ++balance.launches.nReported;
    EXPECT_EQ(257u, balance.Unexplained());  // no batch is so big
}

TEST(BalanceTest, AQuestionWhoseQueryCouldNotBeSentIsExplained) {
    Balance balance = Clean();
    balance.bFinal = true;
    --balance.events.nQueried;
    ++balance.events.nMissing;
    EXPECT_EQ(1u, balance.Unexplained());
    balance.module.nNotSent = 1;
    EXPECT_EQ(0u, balance.Unexplained());
}

TEST(BalanceTest, RefusedEventsWereNotDelivered) {
    Balance balance = Clean();
    balance.events.nRefused = 1;
    EXPECT_EQ(2u, balance.Delivered());
}
