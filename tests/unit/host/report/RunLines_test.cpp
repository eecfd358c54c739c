#include "host/report/RunLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    EXPECT_THAT(strText, HasSubstr("Balance\n  reported              1 events          = 0 "
                                   "delivered + 1 refused\n"));
    EXPECT_LT(strText.find("Balance"), strText.find("Summary"));
}
