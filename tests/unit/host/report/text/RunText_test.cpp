#include "host/report/text/RunText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "host/account/RunFacts.h"

using testing::HasSubstr;

namespace {

class RunTextTest : public testing::Test {
protected:
    RunTextTest() { setenv("NO_COLOR", "1", 1); }
    ~RunTextTest() override { unsetenv("NO_COLOR"); }

    Console& Out() {
        if (!m_output) {
            m_output.emplace();
        }
        return *m_output;
    }

    std::optional<Console> m_output;  // made after the environment was set
};

}  // namespace

TEST_F(RunTextTest, ABlockSaysWhatWasCounted) {
    RunCounters counters;
    counters.nEvents = 1500;
    counters.nMessages = 47;
    counters.nCopies = 47;
    counters.nAnalysed = 47;
    counters.nUnusable = 2;
    counters.nQueries = 1100;
    counters.nAnswers = 1000;
    counters.nKnown = 100;
    counters.queriesByLevel = {{10, 1090}, {40, 9}, {70, 1}};
    counters.queriesByPackage = {{"bash", 90}, {"coreutils", 1000}};
    counters.nCached = 395;
    counters.nUnreadable = 1;
    counters.nHashedBytes = 3 * 1024 * 1024;
    counters.dWorkBefore = 2;

    EXPECT_EQ(
        "  events      1,500 events in 47 messages; 2 unusable in the input\n"
        "  queries     1,100: 1,000 answered, 100 for a program already answered\n"
        "  verdicts    packaged 1,090, good 0, unknown 9, bad 1\n"
        "  packages    coreutils 1,000, bash 90\n"
        "  skipped     395 with a live verdict in the cache, 1 that cannot be read, 4 that are no "
        "program or not watched\n"
        "  hashed      3.0 MiB at 1.5 MiB/s\n"
        "  time        7.5 s, of which the module worked 2.0 s (it looks at its queue every 5 s)",
        run_text::Text(Out(), counters, 7.5));
}

TEST_F(RunTextTest, ABlockOfNothingIsShort) {
    EXPECT_EQ(
        "  events      0 events in 0 messages\n"
        "  queries     0\n"
        "  skipped     none\n"
        "  hashed      0 B\n"
        "  time        0.0 s",
        run_text::Text(Out(), RunCounters(), 0));
}

TEST_F(RunTextTest, ManyPackagesAreCutShort) {
    RunCounters counters;
    for (char c = 'a'; c <= 'h'; ++c) {
        counters.queriesByPackage[std::string(1, c)] = static_cast<uint64_t>(c - 'a' + 1);
    }

    const std::string strText = run_text::Text(Out(), counters, 0);

    EXPECT_THAT(strText, HasSubstr("  packages    h 8, g 7, f 6, e 5, d 4 and 3 more packages\n"));
}

TEST_F(RunTextTest, PassesStandSideBySide) {
    PassResult first;
    first.counters.nQueries = 1129;
    first.counters.nEvents = 1462;
    first.dSeconds = 12.8;
    PassResult second;
    second.counters.nCached = 1462;
    second.counters.nEvents = 1462;
    second.dSeconds = 9;

    EXPECT_EQ(
        "                    pass 1      pass 2\n"
        "  events             1,462       1,462\n"
        "  queries            1,129           0\n"
        "  from cache             0       1,462\n"
        "  hashed               0 B         0 B\n"
        "  per second           0 B         0 B\n"
        "  time              12.8 s       9.0 s",
        run_text::PassTable(Out(), {first, second}));
}

TEST_F(RunTextTest, AVerdictLineNamesProgramOwnerAndSource) {
    CloudQuery query;
    query.strPath = "/bin/a\033[2J";

    const std::string strBlocked =
        run_text::VerdictLine(Out(), query, {70, "bad list x", "Bad\nThing"});
    const std::string strUnknown = run_text::VerdictLine(Out(), query, {40, "none", ""});

    EXPECT_EQ("  bad        70  /bin/a\\x1B[2J  Bad\\x0AThing (bad list x)", strBlocked.substr(8));
    EXPECT_EQ("  unknown    40  /bin/a\\x1B[2J", strUnknown.substr(8));
}

TEST_F(RunTextTest, TheSummarySaysHowTheRunEndedAndWhatIsLeft) {
    RunEnd end;
    end.queueDepth = 1;
    EXPECT_EQ("Summary  stopped before everything was analysed",
              run_text::SummaryHeading(Out(), end));
    EXPECT_EQ("  queue       1 message kept for the next run", run_text::QueueLine(end));

    end.nSignal = 15;
    end.queueDepth.reset();
    EXPECT_EQ("Summary  stopped by a signal", run_text::SummaryHeading(Out(), end));
    EXPECT_EQ("  queue       cannot be read", run_text::QueueLine(end));

    end = RunEnd();
    end.bDrained = true;
    end.queueDepth = 0;
    EXPECT_EQ("Summary", run_text::SummaryHeading(Out(), end));
    EXPECT_EQ("  queue       empty", run_text::QueueLine(end));
}

TEST_F(RunTextTest, TheSameCountersAreJsonMembers) {
    RunCounters counters;
    counters.nEvents = 3;
    counters.nCopies = 1;
    counters.answersByLevel[70] = 2;
    JsonObject record;

    EXPECT_EQ(
        R"({"messages":0,"events":3,"unusable":0,"not_delivered":0,"analysed":0,"queries":0,)"
        R"("answers":0,"known":0,"no_key":0,"lost":0,"answers_by_level":{"70":2},)"
        R"("queries_by_level":{},"skipped":{"cached":0,"unreadable":0,"stat_failed":0,"not_sent":0,)"
        R"("missing":0},"hashed_bytes":0,"centre":0,"seconds":1.500,"work_seconds":0.000})",
        run_text::AddCounters(record, counters, 1.5).Text());
}
