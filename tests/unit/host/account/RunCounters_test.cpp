#include "host/account/RunCounters.h"

#include <gtest/gtest.h>

using std::chrono::seconds;

TEST(RunCountersTest, AddSumsEverything) {
    RunCounters sum;
    sum.nQueries = 1;
    sum.answersByLevel[10] = 2;
    RunCounters other;
    other.nQueries = 3;
    other.nCentre = 4;
    other.answersByLevel[10] = 5;
    other.queriesByPackage["p"] = 6;

    sum.Add(other);

    EXPECT_EQ(4u, sum.nQueries);
    EXPECT_EQ(4u, sum.nCentre);
    EXPECT_EQ(7u, sum.answersByLevel[10]);
    EXPECT_EQ(6u, sum.queriesByPackage["p"]);
}

TEST(RunCountersTest, WorkIsTimedWithoutThePausesBetweenPasses) {
    const RunCounters::Clock::time_point begin(seconds(100));
    RunCounters first;
    first.firstWork = begin;
    first.lastWork = begin + seconds(2);
    RunCounters second;
    second.firstWork = begin + seconds(50);
    second.lastWork = begin + seconds(53);
    second.nHashedBytes = 1000;

    RunCounters sum;
    sum.Add(first);
    sum.Add(second);

    EXPECT_DOUBLE_EQ(5, sum.WorkSeconds());
    EXPECT_DOUBLE_EQ(200, sum.BytesPerSecond());
}

TEST(RunCountersTest, WithoutWorkThereIsNoRate) {
    RunCounters counters;
    counters.nHashedBytes = 1000;

    EXPECT_DOUBLE_EQ(0, counters.WorkSeconds());
    EXPECT_DOUBLE_EQ(0, counters.BytesPerSecond());
}

TEST(RunCountersTest, SilentEventsAreThoseOfWhichNothingWasHeard) {
    RunCounters counters;
    counters.nCopies = 2;
    counters.nAnalysed = 2;
    counters.nEvents = 10;
    counters.nQueries = 3;
    counters.nCached = 4;
    counters.nUnreadable = 1;
    EXPECT_EQ(2u, counters.Missing());

    counters.nQueries = 30;  // one event may lead to several
    EXPECT_EQ(0u, counters.Missing());
    counters.nQueries = 0;
    counters.nAnalysed = 3;  // a message of an earlier run is among them
    EXPECT_EQ(0u, counters.Missing());
}
