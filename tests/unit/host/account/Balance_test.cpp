#include "host/account/Balance.h"

#include <gtest/gtest.h>

namespace {

// Two launches and one file operation, all of them delivered, looked at and answered.
Balance Clean() {
    Balance balance;
    balance.launches.nSensed = balance.launches.nPrograms = 2;
    balance.files.nSensed = balance.files.nTold = 1;
    balance.events.nSent = balance.events.nBegun = 3;
    balance.events.nQuestions = balance.events.nQueried = 3;
    balance.module.nQueries = balance.module.nAnswers = 3;
    return balance;
}

}  // namespace

TEST(BalanceTest, WhatAddsUpIsExplained) {
    Balance balance = Clean();
    EXPECT_EQ(0u, balance.Unexplained());
    balance.bFinal = true;
    EXPECT_EQ(0u, balance.Unexplained());
    EXPECT_EQ(3u, balance.Told());
    EXPECT_EQ(3u, balance.Delivered());
    EXPECT_EQ(0u, balance.Outstanding());
}

TEST(BalanceTest, EachEventThatAppearsOrVanishesOnTheWayIsUnexplained) {
    uint64_t LaunchCounters::*const LAUNCHES[] = {&LaunchCounters::nLost, &LaunchCounters::nOwn,
                                                  &LaunchCounters::nBroken,
                                                  &LaunchCounters::nUnresolvable};
    for (const auto pCounter : LAUNCHES) {
        Balance balance = Clean();
        ++(balance.launches.*pCounter);  // one end more than there were launches
        EXPECT_EQ(1u, balance.Unexplained());
        ++balance.launches.nSensed;
        EXPECT_EQ(0u, balance.Unexplained());
    }
    uint64_t LedgerState::*const ENDS[] = {&LedgerState::nRefused, &LedgerState::nNotStored,
                                           &LedgerState::nWaiting, &LedgerState::nBegun};
    for (const auto pCounter : ENDS) {
        Balance balance = Clean();
        ++(balance.events.*pCounter);
        EXPECT_EQ(1u, balance.Unexplained());
    }
    Balance balance = Clean();
    --balance.files.nTold;
    EXPECT_EQ(1u, balance.Unexplained());  // handed over without having been told
}

TEST(BalanceTest, WhatIsOnItsWayIsUnexplainedOnlyAtTheEnd) {
    Balance balance = Clean();
    ++balance.launches.nSensed;  // not read yet
    ++balance.files.nSensed;
    ++balance.module.nQueries;  // no answer yet
    EXPECT_EQ(0u, balance.Unexplained());
    balance.bFinal = true;
    EXPECT_EQ(3u, balance.Unexplained());
}

TEST(BalanceTest, AQuestionWhoseQueryCouldNotBeSentIsExplained) {
    Balance balance = Clean();
    balance.bFinal = true;
    --balance.events.nQueried;
    ++balance.events.nSilent;
    EXPECT_EQ(1u, balance.Unexplained());
    balance.module.nNotSent = 1;
    EXPECT_EQ(0u, balance.Unexplained());
}

TEST(BalanceTest, RefusedEventsWereNotDelivered) {
    Balance balance = Clean();
    balance.events.nRefused = 1;
    EXPECT_EQ(2u, balance.Delivered());
}
