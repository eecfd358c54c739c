#include "host/report/text/EventLine.h"

#include <gtest/gtest.h>

#include "tests/support/host/OnTerminal.h"

TEST(EventLineTest, AQueueThatRefusedSaysHowMuch) {
    const Console output;
    QueueLoad load;
    load.eState = QUEUE_FULL;
    load.nRows = 200000;
    load.nBytes = 4096;
    EXPECT_EQ("  queue          is full: 200,000 messages, 4.0 KiB",
              event_line::Queue(output, load).substr(8));

    load.nRefusedMessages = 2;
    load.nRefusedEvents = 5;
    EXPECT_EQ(
        "  queue          is full: 200,000 messages, 4.0 KiB; refused so far 2 messages with "
        "5 events",
        event_line::Queue(output, load).substr(8));
}

TEST(EventLineTest, UnusableInputIsNamedByItsLineWhereItHasOne) {
    EXPECT_EQ("a.jsonl, line 7: no text", event_line::Input({"a.jsonl", 7, "no text"}));
    EXPECT_EQ("cannot read it", event_line::Input({"a.jsonl", 0, "cannot read it"}));
}

TEST(EventLineTest, ProgressNamesWhatIsDoneAndHowFarItIs) {
    RunCounters counters;
    counters.nMessages = 1;
    counters.nAnalysed = 2;
    counters.nQueries = 3;
    counters.nCached = 4;
    counters.nHashedBytes = 5;
    EXPECT_EQ("waiting: 1 delivered, 2 analysed, 3 queries, 4 cached, 5 B hashed",
              event_line::Progress("waiting", counters));
}

TEST(EventLineTest, EveryFateHasAWord) {
    EXPECT_STREQ("answered", event_line::FateWord(QUERY_ANSWERED));
    EXPECT_STREQ("known", event_line::FateWord(QUERY_KNOWN));
    EXPECT_STREQ("no key", event_line::FateWord(QUERY_NO_KEY));
    EXPECT_STREQ("malformed", event_line::FateWord(QUERY_UNREADABLE));
    EXPECT_STREQ("unanswered", event_line::FateWord(QUERY_NOT_DELIVERED));
}

TEST(EventLineTest, AQueueHasALineForEachState) {
    const Console output;
    QueueLoad load;
    load.eState = QUEUE_HIGH;
    load.nRows = 1;
    EXPECT_EQ("  queue          is nearly full: 1 message, 0 B",
              event_line::Queue(output, load).substr(8));

    load.eState = QUEUE_NORMAL;
    load.nRefusedEvents = 5;  // of no message: nothing was refused
    EXPECT_EQ("  queue          has room again: 1 message, 0 B",
              event_line::Queue(output, load).substr(8));
}

TEST(EventLineTest, OnATerminalANearlyFullQueueIsYellowAndAFullOneRed) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    const Console output;
    const std::pair<QueueState, std::string> COLOURS[] = {{QUEUE_HIGH, "\033[33m"},
                                                          {QUEUE_FULL, "\033[31m"}};
    for (const auto& colour : COLOURS) {
        QueueLoad load;
        load.eState = colour.first;
        const std::string strLine = event_line::Queue(output, load);
        EXPECT_EQ(colour.second, strLine.substr(0, 5));
        EXPECT_EQ("\033[0m", strLine.substr(strLine.size() - 4));
    }
    EXPECT_EQ("  queue          has room again: 0 messages, 0 B",
              event_line::Queue(output, QueueLoad()).substr(8));
}

TEST(EventLineTest, DroppedEventsSayWhyAndHowManyInAll) {
    const VerdictRow refused = event_line::Dropped({DROP_REFUSED, 1, 9});
    EXPECT_EQ("dropped", refused.strVerdict);
    EXPECT_EQ(0, refused.nLevel);
    EXPECT_EQ("event", refused.strWhat);
    EXPECT_EQ("1 event", refused.strSubject);
    EXPECT_EQ("the module's queue is full, or it takes no messages; 9 since the start",
              refused.strWhy);

    const VerdictRow notStored = event_line::Dropped({DROP_NOT_STORED, 2, 7});
    EXPECT_EQ("2 events", notStored.strSubject);
    EXPECT_EQ("the module could not store them; 7 since the start", notStored.strWhy);
}

TEST(EventLineTest, ARecordForTheCentreIsNamedByItsTypeAndSize) {
    EXPECT_EQ("  centre         record of type -1, 18,446,744,073,709,551,615 bytes",
              event_line::Centre({-1, 18446744073709551615U}).substr(8));
    EXPECT_EQ("  centre         record of type 3, 1 byte", event_line::Centre({3, 1}).substr(8));
}
