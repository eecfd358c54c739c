#include "host/report/text/EventLine.h"

#include <gtest/gtest.h>

TEST(EventLineTest, AQueueThatRefusedSaysHowMuch) {
    const Console output;
    QueueLoad load;
    load.eState = QUEUE_FULL;
    load.nRows = 200000;
    load.nBytes = 4096;
    EXPECT_EQ("  queue          is full: 200000 messages, 4.0 KiB",
              event_line::Queue(output, load).substr(8));

    load.nRefusedMessages = 2;
    load.nRefusedEvents = 5;
    EXPECT_EQ(
        "  queue          is full: 200000 messages, 4.0 KiB; refused so far 2 messages with "
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
    EXPECT_EQ("waiting: 1 delivered, 2 analysed, 3 queries, 4 from cache, 5 B hashed",
              event_line::Progress("waiting", counters));
}

TEST(EventLineTest, EveryFateHasAWord) {
    EXPECT_STREQ("answered", event_line::FateWord(QUERY_ANSWERED));
    EXPECT_STREQ("known", event_line::FateWord(QUERY_KNOWN));
    EXPECT_STREQ("no key", event_line::FateWord(QUERY_NO_KEY));
    EXPECT_STREQ("unreadable", event_line::FateWord(QUERY_UNREADABLE));
    EXPECT_STREQ("not delivered", event_line::FateWord(QUERY_NOT_DELIVERED));
}
