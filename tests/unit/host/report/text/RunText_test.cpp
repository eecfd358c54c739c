#include "host/report/text/RunText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "host/account/RunFacts.h"
#include "tests/support/host/OnTerminal.h"

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
        "  queries     1,100: 1,000 answered, 100 answered before\n"
        "  by verdict  packaged 1,090, good 0, unknown 9, bad 1 queries\n"
        "  packages    coreutils 1,000, bash 90\n"
        "  skips       395 with a live verdict in the cache, 1 that cannot be read\n"
        "  hashed      3.0 MiB at 1.5 MiB/s\n"
        "  time        7.5 s, 2.0 s from the module's first activity to its last (it looks at its "
        "queue every 5 s)",
        run_text::Text(Out(), counters, 7.5));
}

TEST_F(RunTextTest, ABlockOfNothingIsShort) {
    EXPECT_EQ(
        "  events      0 events in 0 messages\n"
        "  queries     0\n"
        "  skips       none\n"
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

TEST_F(RunTextTest, OneOfAKindHasTheWordOfOne) {
    RunCounters counters;
    counters.nNoKey = 1;
    for (char c = 'a'; c <= 'f'; ++c) {
        counters.queriesByPackage[std::string(1, c)] = 1;
    }

    const std::string strText = run_text::Text(Out(), counters, 0);

    EXPECT_THAT(strText, HasSubstr("  queries     0: 1 that wants no answer\n"));
    EXPECT_THAT(strText, HasSubstr(" and 1 more package\n"));
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
        "  cached                 0       1,462\n"
        "  hashed               0 B         0 B\n"
        "  per second           0 B         0 B\n"
        "  time              12.8 s       9.0 s",
        run_text::PassTable(Out(), {first, second}));
}

TEST_F(RunTextTest, AVerdictLineNamesProgramOwnerAndSource) {
    CloudQuery query;
    query.strPath = "/bin/a\033[2J";

    const std::string strBad =
        run_text::VerdictLine(Out(), query, {70, "bad list x", "Bad\nThing"});
    const std::string strUnknown = run_text::VerdictLine(Out(), query, {40, "none", ""});

    EXPECT_EQ("  bad        70  /bin/a\\x1B[2J  Bad\\x0AThing (bad list x)", strBad.substr(8));
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
        R"({"messages":0,"events":3,"unusable":0,"not_delivered":0,"messages_analysed":0,"queries":0,)"
        R"("answers":0,"known":0,"no_key":0,"queries_lost":0,"queries_not_sent":0,"answers_by_level":{"70":2},)"
        R"("queries_by_level":{},"skips":{"cached":0,"unreadable":0,"stat_failed":0},"hashed_bytes":0,"centre":0,"seconds":1.500,"work_seconds":0.000})",
        run_text::AddCounters(record, counters, 1.5).Text());
}

TEST_F(RunTextTest, ABlockNamesWhatWentWrongAndWhatCameFromBefore) {
    RunCounters counters;
    counters.nEvents = counters.nMessages = counters.nCopies = 1;
    counters.nAnalysed = 4;
    counters.nNotDelivered = 3;
    counters.nQueries = 7;
    counters.nNoKey = 6;
    counters.nLost = 1;
    counters.nStatFailed = 8;
    counters.nNotSent = 9;
    counters.nCentre = 2;
    counters.queriesByLevel = {{20, 5}, {55, 1}};

    EXPECT_EQ(
        "  events      1 event in 1 message; 3 not delivered, 3 more that waited in the queue\n"
        "  queries     7: 6 that want no answer, 1 lost, 9 more that the module could not send\n"
        "  by verdict  packaged 0, good 5, unknown 0, level 55 1, bad 0 queries\n"
        "  skips       8 whose status cannot be had\n"
        "  hashed      0 B\n"
        "  centre      2 records\n"
        "  time        1.2 s, 0.0 s from the module's first activity to its last (it looks at its "
        "queue every 5 s)",
        run_text::Text(Out(), counters, 1.25));
}

TEST_F(RunTextTest, WhatIsNotAnalysedYetIsNothingThatWaitedBefore) {
    RunCounters counters;
    counters.nMessages = counters.nCopies = counters.nEvents = 2;
    counters.nAnalysed = 1;

    EXPECT_EQ(0u,
              run_text::Text(Out(), counters, 0).find("  events      2 events in 2 messages\n"));
}

TEST_F(RunTextTest, PackagesOfTheSameNumberStandByNameAndFiveNeedNoRest) {
    RunCounters counters;
    counters.queriesByPackage = {{"e", 2}, {"d", 2}, {"c", 1000}, {"b", 2}, {"a\033[2J", 2}};

    EXPECT_THAT(run_text::Text(Out(), counters, 0),
                HasSubstr("  packages    c 1,000, a\\x1B[2J 2, b 2, d 2, e 2\n"));
}

TEST_F(RunTextTest, WorkTooShortToMeasureHasNoRate) {
    RunCounters counters;
    counters.nHashedBytes = 2048;
    counters.dWorkBefore = 0.001;

    EXPECT_THAT(run_text::Text(Out(), counters, 0), HasSubstr("  hashed      2.0 KiB\n"));
}

TEST_F(RunTextTest, APassIsNamedAmongItsPassesAndItsSourceCannotForgeALine) {
    EXPECT_EQ("Pass 2 of 3  from a\\x0Ab", run_text::Heading(Out(), {2, 3, "line", "a\nb"}));
    EXPECT_EQ("Pass 1 of 2  from a", run_text::Heading(Out(), {1, 2, "line", "a"}));
    EXPECT_EQ("Events  from a", run_text::Heading(Out(), {1, 1, "line", "a"}));
}

TEST_F(RunTextTest, ManyMessagesAreKeptForTheNextRun) {
    RunEnd end;
    end.queueDepth = 1200;
    EXPECT_EQ("  queue       1,200 messages kept for the next run", run_text::QueueLine(end));
}

// A user gives his program such a name.
TEST_F(RunTextTest, ANameHasNoColumnsOfItsOwn) {
    CloudQuery query;
    query.strPath = "/tmp/x  bash (packages)";
    EXPECT_EQ("  unknown    40  /tmp/x \\x20bash (packages)",
              run_text::VerdictLine(Out(), query, {40, "none", ""}).substr(8));
    query.strPath = "/tmp/x  FileCreate";
    EXPECT_EQ("  no key         /tmp/x \\x20FileCreate  query",
              run_text::QueryLine(Out(), query, "no key").substr(8));
    EXPECT_EQ("  cached         /tmp/x \\x20FileCreate",
              run_text::SkipLine(Out(), query.strPath).substr(8));
}

TEST_F(RunTextTest, AVerdictLineHasTheOwnerOrTheSourceWhereOneIsMissing) {
    CloudQuery query;
    query.strPath = "/bin/a";
    const struct {
        Verdict verdict;
        const char* pszLine;
    } CASES[] = {{{20, "good list g", ""}, "  good       20  /bin/a  good list g"},
                 {{10, "none", "p"}, "  packaged   10  /bin/a  p"},
                 {{-5, "", ""}, "  level -5   -5  /bin/a"}};
    for (const auto& each : CASES) {
        EXPECT_EQ(each.pszLine, run_text::VerdictLine(Out(), query, each.verdict).substr(8));
    }
}

TEST_F(RunTextTest, AQueryWithoutAVerdictHasItsFateAndItsPathIsMadeSafe) {
    CloudQuery query;
    query.strPath = "/bin/a\r\xFF";
    EXPECT_EQ("  lost           /bin/a\\x0D\\xFF  query",
              run_text::QueryLine(Out(), query, "lost").substr(8));

    query.strEvent = "FileCreate";
    EXPECT_EQ("  unanswered     /bin/a\\x0D\\xFF  FileCreate",
              run_text::QueryLine(Out(), query, "unanswered").substr(8));
    EXPECT_EQ("  cached         /bin/a\\x0D\\xFF",
              run_text::SkipLine(Out(), query.strPath).substr(8));
}

TEST_F(RunTextTest, APassTableHasEachPassesOwnNumbers) {
    PassResult pass;
    pass.dSeconds = 1.25;
    pass.counters.nEvents = 1;
    pass.counters.nQueries = 2;
    pass.counters.nCached = 3;
    pass.counters.nHashedBytes = 4096;
    pass.counters.dWorkBefore = 2;

    EXPECT_EQ(
        "                    pass 1\n"
        "  events                 1\n"
        "  queries                2\n"
        "  cached                 3\n"
        "  hashed           4.0 KiB\n"
        "  per second       2.0 KiB\n"
        "  time               1.2 s",
        run_text::PassTable(Out(), {pass}));
}

TEST_F(RunTextTest, EveryCounterIsAJsonMemberOfItsOwn) {
    RunCounters counters;
    counters.nMessages = 1;
    counters.nCopies = counters.nAnalysed = 2;
    counters.nEvents = 300;
    counters.nNotDelivered = 4;
    counters.nUnusable = 5;
    counters.nQueries = 7;
    counters.nAnswers = 8;
    counters.nKnown = 9;
    counters.nNoKey = 10;
    counters.nLost = 11;
    counters.nNotSent = 12;
    counters.nCached = 13;
    counters.nStatFailed = 14;
    counters.nUnreadable = 15;
    counters.nHashedBytes = 16;
    counters.nCentre = 17;
    counters.queriesByLevel = {{40, 18}};
    counters.answersByLevel = {{-1, 19}, {70, 20}};
    counters.dWorkBefore = 21;
    JsonObject record;
    record.Add("event", "pass");

    EXPECT_EQ(
        R"({"event":"pass","messages":1,"events":300,"unusable":5,"not_delivered":4,"messages_analysed":2,)"
        R"("queries":7,"answers":8,"known":9,"no_key":10,"queries_lost":11,"queries_not_sent":12,)"
        R"("answers_by_level":{"-1":19,"70":20},"queries_by_level":{"40":18},)"
        R"("skips":{"cached":13,"unreadable":15,"stat_failed":14},)"
        R"("hashed_bytes":16,"centre":17,"seconds":0.001,"work_seconds":21.000})",
        run_text::AddCounters(record, counters, 0.0009).Text());
}

TEST(RunTextColourTest, OnATerminalAVerdictHasTheColourOfItsLevelAndANoneIsDim) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    const Console output;
    CloudQuery query;
    query.strPath = "/bin/a";
    RunCounters counters;
    counters.queriesByLevel = {{40, 1}, {70, 2}};

    EXPECT_EQ("  \033[31mbad        70\033[0m  /bin/a  \033[2mx (list)\033[0m",
              run_text::VerdictLine(output, query, {70, "list", "x"}).substr(8));
    EXPECT_EQ("  \033[2mno key       \033[0m  /bin/a  query",
              run_text::QueryLine(output, query, "no key").substr(8));
    EXPECT_EQ("  \033[2mcached       \033[0m  /bin/a",
              run_text::SkipLine(output, query.strPath).substr(8));
    EXPECT_THAT(run_text::Text(output, counters, 0),
                HasSubstr("  by verdict  \033[2mpackaged 0\033[0m, \033[2mgood 0\033[0m, "
                          "\033[33munknown 1\033[0m, \033[31mbad 2\033[0m queries\n"));
    EXPECT_EQ("\033[1mEvents\033[0m  from a", run_text::Heading(output, {1, 1, "line", "a"}));
}
