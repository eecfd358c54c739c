#include "host/report/RunLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/host/OnTerminal.h"
#include "tests/support/host/RunHappenings.h"
#include "tests/unit/host/report/ReportedRun.h"

using testing::HasSubstr;

namespace {

class RunLinesTest : public ReportedRunTest {
protected:
    RunLinesTest() : ReportedRunTest(false) { m_report.BeginPass({1, 1, "line", "events.jsonl"}); }
};

}  // namespace

TEST_F(RunLinesTest, OnlyInterestingVerdictsHaveALine) {
    m_report.OnQuery(LaunchQuery("/bin/a"), QUERY_ANSWERED, {10, "packages", "coreutils"});
    EXPECT_EQ("Events  from events.jsonl", LastLine());

    m_report.OnQuery(LaunchQuery("/bin/b"), QUERY_ANSWERED, {40, "none", ""});
    EXPECT_EQ("  unknown    40  /bin/b", LastLine().substr(8));
    m_report.OnQuery(LaunchQuery("/bin/c"), QUERY_NO_KEY, {40, "none", ""});
    EXPECT_EQ("  no key         /bin/c  CreateProcess", LastLine().substr(8));
}

TEST_F(RunLinesTest, VerboseHasALineForEveryVerdictAndSkip) {
    m_options.bVerbose = true;

    m_report.OnQuery(LaunchQuery("/bin/a"), QUERY_KNOWN, {10, "packages", "coreutils"});
    EXPECT_EQ("  packaged   10  /bin/a  coreutils (packages)", LastLine().substr(8));
    m_report.OnModuleNote({NOTE_CACHED, "/bin/b", EXPECTED_LAUNCH});
    EXPECT_EQ("  cached         /bin/b", LastLine().substr(8));
}

TEST_F(RunLinesTest, RemarksNameSourceAndLineOnStandardError) {
    testing::internal::CaptureStderr();

    m_report.OnRemark(12, "not a JSON text");
    m_report.OnRemark(0, "cannot read\n/x");

    EXPECT_EQ(
        "tevmon-host: events.jsonl, line 12: not a JSON text\n"
        "tevmon-host: cannot read\\x0A/x\n",
        testing::internal::GetCapturedStderr());
    EXPECT_EQ(2u, m_report.PassCounters().nUnusable);
}

TEST_F(RunLinesTest, RecordsOfTheCentreAreShownAndCounted) {
    m_report.OnCentre(20300, 150);

    EXPECT_EQ("  centre         record of type 20300, 150 bytes", LastLine().substr(8));
    EXPECT_EQ(1u, m_report.PassCounters().nCentre);
}

TEST_F(RunLinesTest, DroppedEventsHaveALineAndTheBalanceStandsBeforeTheSummary) {
    m_report.OnReported(OneLaunch(1, "/bin/a"));
    m_report.OnDelivered(OneEvent(1), 1);
    m_report.Progress("delivering");
    EXPECT_THAT(LastLine(), HasSubstr("1 event  the module's queue is full"));

    m_report.Summary(RunEnd());

    const std::string strText = m_standardOutput.Text();
    EXPECT_THAT(strText, HasSubstr("Balance\n  reported              1 event           = 0 "
                                   "delivered + 1 refused\n"));
    EXPECT_LT(strText.find("Balance"), strText.find("Summary"));
}

TEST_F(RunLinesTest, AVerdictThatWasKnownIsShownAsOneThatIsGiven) {
    m_report.OnQuery(LaunchQuery("/bin/a"), QUERY_KNOWN, {70, "bad list", "x"});
    EXPECT_EQ("  bad        70  /bin/a  x (bad list)", LastLine().substr(8));

    m_report.OnQuery(LaunchQuery("/bin/b"), QUERY_KNOWN, {10, "packages", "x"});
    EXPECT_EQ(2u, m_standardOutput.Lines().size());
}

// The level of a query that was lost says nothing.
TEST_F(RunLinesTest, ALostQueryHasALineWhateverItsLevel) {
    m_report.OnQuery(LaunchQuery("/bin/a"), QUERY_NOT_DELIVERED, {10, "packages", "x"});
    EXPECT_EQ("  unanswered     /bin/a  CreateProcess", LastLine().substr(8));
    m_report.OnQuery(CloudQuery(), QUERY_UNREADABLE, {10, "packages", "x"});
    EXPECT_EQ("  malformed        query", LastLine().substr(8));
}

TEST_F(RunLinesTest, OnlyAVerboseRunShowsSkipsAndOnlyThoseOfKnownVerdicts) {
    m_report.OnModuleNote({NOTE_CACHED, "/bin/b", EXPECTED_LAUNCH});
    m_options.bVerbose = true;
    m_report.OnModuleNote({NOTE_ANALYSED, "{}"});
    m_report.OnModuleNote({NOTE_STAT_FAILED, "/bin/b", EXPECTED_LAUNCH});
    m_report.OnModuleNote({NOTE_UNREADABLE, "/bin/b", EXPECTED_LAUNCH});
    m_report.OnModuleNote({NOTE_NOT_SENT, ""});

    EXPECT_EQ("Events  from events.jsonl\n", m_standardOutput.Text());
}

TEST_F(RunLinesTest, TheOnlyPassHasNoBlockOfItsOwnAndEachOfSeveralHasOne) {
    m_report.EndPass(true);
    EXPECT_EQ("Events  from events.jsonl\n", m_standardOutput.Text());

    m_report.BeginPass({2, 2, "line", "events.jsonl"});
    m_report.OnCentre(1, 2);
    m_report.EndPass(true);
    const std::string strText = m_standardOutput.Text();
    EXPECT_THAT(strText, HasSubstr("\nPass 2 of 2  from events.jsonl\n"));
    EXPECT_THAT(strText, HasSubstr("\n  events      0 events in 0 messages\n"
                                   "  queries     0\n"
                                   "  skips       none\n"
                                   "  hashed      0 B\n"
                                   "  centre      1 record\n"
                                   "  time        "));
}

TEST_F(RunLinesTest, TheSummaryOfSeveralPassesIsATableAndTheQueueStandsLast) {
    m_report.EndPass(true);
    m_report.BeginPass({2, 2, "line", "events.jsonl"});
    m_report.EndPass(true);
    RunEnd end;
    end.bDrained = true;
    end.queueDepth = 0;
    m_report.Summary(end);

    EXPECT_THAT(m_standardOutput.Text(), HasSubstr("\n  unexplained           0\n"
                                                   "Summary\n"
                                                   "                    pass 1      pass 2\n"
                                                   "  events                 0           0\n"));
    EXPECT_EQ("  queue       empty", LastLine());
}

TEST_F(RunLinesTest, TheBalanceIsShownWheneverItIsAskedFor) {
    m_report.AskForBalance();

    EXPECT_THAT(m_standardOutput.Text(), HasSubstr("\nBalance\n  reported              0 events"));
    EXPECT_EQ("  unexplained           0", LastLine());
}

TEST_F(RunLinesTest, AChangeOfTheQueueHasALine) {
    QueueLoad load;
    load.eState = QUEUE_FULL;
    load.nRows = 2;
    m_report.OnQueue(load);

    EXPECT_EQ("  queue          is full: 2 messages, 0 B", LastLine().substr(8));
}

TEST(RunLinesProgressTest, OnATerminalProgressIsOnStandardErrorAndGoneBeforeTheNextLine) {
    const Pty pty;
    const OnTerminal onTerminal(pty, STDERR_FILENO);
    const StdoutCapture standardOutput;
    Console output;
    HostOptions options;
    const VerdictService service;
    ReportedRun report(output, options, service, false);
    report.BeginPass({1, 1, "line", "a"});
    report.OnCentre(1, 2);
    report.Progress("draining");
    EXPECT_EQ("draining: 0 delivered, 0 analysed, 0 queries, 0 cached, 0 B hashed",
              pty.ReadUntil("hashed"));
    report.EndPass(true);

    EXPECT_EQ("\r\033[K", pty.ReadUntil("\033[K"));
    EXPECT_EQ(2u, standardOutput.Lines().size());
}
