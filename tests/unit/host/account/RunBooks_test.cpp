#include "host/account/RunBooks.h"

#include <gtest/gtest.h>

namespace {

EventBatch Batch(uint64_t nEvents) {
    EventBatch batch;
    batch.nEvents = nEvents;
    return batch;
}

void CountRun(RunBooks& books, int nLevel) {
    const std::string strText;
    books.Count(ProgramJudged{strText, strText, strText, strText, Verdict{nLevel, "", ""}, false});
}

RunCounters Total(const RunBooks& books) {
    Balance balance;
    books.Fill(balance, true);
    return balance.module;
}

}  // namespace

TEST(RunBooksTest, APassEndsWithItsNumbersAndTheTotalKeepsThem) {
    RunBooks books;
    CountRun(books, 70);
    CountRun(books, 20);
    books.Count(CentreRecord{1, 2});
    EXPECT_EQ(1u, books.Pass().nBadRuns);
    EXPECT_EQ(1u, books.EndPass().nCentre);
    EXPECT_EQ(0u, books.Pass().nBadRuns);
    CountRun(books, 70);
    EXPECT_EQ(2u, Total(books).nBadRuns);
    EXPECT_EQ(1u, Total(books).nCentre);
}

TEST(RunBooksTest, TheInputOfEachPassIsAddedAndWhatIsNotSentIsKnown) {
    RunBooks books;
    const EventBatch three = Batch(3);
    books.Count(BatchTaken{three, 3});
    (void)books.EndPass();
    books.Count(BatchTaken{three, 5});
    books.Count(BatchUnsent{three});

    Balance balance;
    balance.events.nSent = 2;
    books.Fill(balance, false);
    EXPECT_EQ(8u, balance.input);
    EXPECT_EQ(4u, balance.nUnsent);
    balance.bFinal = true;
    books.Fill(balance, false);
    EXPECT_EQ(3u, balance.nUnsent);
}

TEST(RunBooksTest, AWatchHasTheSensorsNumbersInstead) {
    RunBooks books;
    LaunchCounters launches;
    launches.nCaptured = 7;
    FileCounters files;
    files.nCaptured = 9;
    books.Count(launches);
    books.Count(files);

    Balance balance;
    books.Fill(balance, true);
    EXPECT_EQ(7u, balance.launches.nCaptured);
    EXPECT_EQ(9u, balance.files.nCaptured);
    EXPECT_FALSE(balance.input);
}

TEST(RunBooksTest, LaunchesThatChangedAreCounted) {
    RunBooks books;
    const std::string strText;
    books.Count(LaunchChanged{strText, strText, strText, true});
    books.Count(LaunchChanged{strText, strText, strText, false});
    EXPECT_EQ(2u, Total(books).nChanged);
}
