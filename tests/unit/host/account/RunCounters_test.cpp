#include "host/account/RunCounters.h"

#include <gtest/gtest.h>

#include <utility>

using std::chrono::seconds;

namespace {

// All that is a number of its own, in the order of the header.
constexpr uint64_t RunCounters::*NUMBERS[] = {
    &RunCounters::nMessages,     &RunCounters::nCopies,     &RunCounters::nEvents,
    &RunCounters::nNotDelivered, &RunCounters::nUnusable,   &RunCounters::nAnalysed,
    &RunCounters::nQueries,      &RunCounters::nAnswers,    &RunCounters::nKnown,
    &RunCounters::nNoKey,        &RunCounters::nLost,       &RunCounters::nNotSent,
    &RunCounters::nCached,       &RunCounters::nStatFailed, &RunCounters::nUnreadable,
    &RunCounters::nHashedBytes,  &RunCounters::nCentre};

EventBatch Batch(uint64_t nCopies, uint64_t nEvents) {
    EventBatch batch;
    batch.nCopies = nCopies;
    batch.nEvents = nEvents;
    return batch;
}

}  // namespace

TEST(RunCountersTest, AddSumsEveryNumberAndNoOther) {
    RunCounters sum;
    RunCounters other;
    uint64_t nValue = 0;
    for (const auto pNumber : NUMBERS) {
        sum.*pNumber = 1000;
        other.*pNumber = ++nValue;
    }

    sum.Add(other);

    nValue = 1000;
    for (const auto pNumber : NUMBERS) {
        EXPECT_EQ(++nValue, sum.*pNumber);
    }
    EXPECT_EQ(17u, other.nCentre);
}

TEST(RunCountersTest, AddSumsWhatIsCountedByLevelAndPackage) {
    RunCounters sum;
    sum.answersByLevel = {{10, 2}};
    sum.queriesByLevel = {{40, 1}};
    RunCounters other;
    other.answersByLevel = {{10, 5}, {70, 1}};
    other.queriesByLevel = {{20, 3}};
    other.queriesByPackage = {{"p", 6}};

    sum.Add(other);

    EXPECT_EQ((std::map<int, uint64_t>{{10, 7}, {70, 1}}), sum.answersByLevel);
    EXPECT_EQ((std::map<int, uint64_t>{{20, 3}, {40, 1}}), sum.queriesByLevel);
    EXPECT_EQ((std::map<std::string, uint64_t>{{"p", 6}}), sum.queriesByPackage);
}

TEST(RunCountersTest, ADeliveredMessageCountsItsCopiesAndEventsAndAnotherOnlyItself) {
    RunCounters counters;
    counters.CountDelivery(Batch(2, 6), true);
    counters.CountDelivery(Batch(1, 3), true);
    counters.CountDelivery(Batch(4, 5), false);

    EXPECT_EQ(2u, counters.nMessages);
    EXPECT_EQ(3u, counters.nCopies);
    EXPECT_EQ(9u, counters.nEvents);
    EXPECT_EQ(1u, counters.nNotDelivered);
}

TEST(RunCountersTest, EachNoteOfTheModuleCountsInOnePlace) {
    const std::pair<ModuleNote, uint64_t RunCounters::*> PLACES[] = {
        {NOTE_ANALYSED, &RunCounters::nAnalysed},
        {NOTE_CACHED, &RunCounters::nCached},
        {NOTE_STAT_FAILED, &RunCounters::nStatFailed},
        {NOTE_UNREADABLE, &RunCounters::nUnreadable},
        {NOTE_NOT_SENT, &RunCounters::nNotSent}};
    for (const auto& place : PLACES) {
        RunCounters counters;
        counters.CountNote(place.first);
        for (const auto pNumber : NUMBERS) {
            EXPECT_EQ(pNumber == place.second ? 1u : 0u, counters.*pNumber) << place.first;
        }
    }
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

TEST(RunCountersTest, ARateNeedsMoreThanAMillisecondOfWork) {
    RunCounters counters;
    counters.nHashedBytes = 1000;
    counters.dWorkBefore = 0.001;
    EXPECT_DOUBLE_EQ(0, counters.BytesPerSecond());

    counters.dWorkBefore = 0.002;
    EXPECT_DOUBLE_EQ(500000, counters.BytesPerSecond());
}

TEST(RunCountersTest, WorkThatBeganAndHasNoRecordYetHasNoTime) {
    RunCounters counters;
    counters.dWorkBefore = 3;
    counters.firstWork = RunCounters::Clock::time_point(seconds(100));
    EXPECT_DOUBLE_EQ(3, counters.WorkSeconds());

    counters.firstWork.reset();
    counters.lastWork = RunCounters::Clock::time_point(seconds(100));
    EXPECT_DOUBLE_EQ(3, counters.WorkSeconds());
}
