#include "host/report/RunReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

class RunReportTest : public testing::Test {
protected:
    RunReportTest() { m_report.BeginPass({1, 1, "line", "events.jsonl"}); }

    CloudQuery Query(const std::string& strPath) const {
        CloudQuery query;
        query.strPath = strPath;
        query.strFunc = "cloudad";
        query.strKey = "key";
        return query;
    }
    std::string LastLine() const {
        const auto lines = m_standardOutput.Lines();
        return lines.empty() ? "" : lines.back();
    }

    TestDir m_dir;
    const StdoutCapture m_standardOutput;
    Console m_output;
    HostOptions m_options;
    RunReport m_report{m_output, m_options};
};

}  // namespace

TEST_F(RunReportTest, OnlyInterestingVerdictsHaveALine) {
    m_report.OnQuery(Query("/bin/a"), QUERY_ANSWERED, {10, "packages", "coreutils"});
    EXPECT_EQ("Events  from events.jsonl", LastLine());

    m_report.OnQuery(Query("/bin/b"), QUERY_ANSWERED, {40, "none", ""});
    EXPECT_EQ("  unknown    40  /bin/b", LastLine().substr(8));
    m_report.OnQuery(Query("/bin/c"), QUERY_NO_KEY, {40, "none", ""});
    EXPECT_EQ("  no key         /bin/c  query", LastLine().substr(8));
}

TEST_F(RunReportTest, VerboseHasALineForEveryVerdictAndSkip) {
    m_options.bVerbose = true;

    m_report.OnQuery(Query("/bin/a"), QUERY_KNOWN, {10, "packages", "coreutils"});
    EXPECT_EQ("  packaged   10  /bin/a  coreutils (packages)", LastLine().substr(8));
    m_report.OnModuleNote({NOTE_CACHED, "/bin/b", QUESTION_LAUNCH});
    EXPECT_EQ("  cached         /bin/b", LastLine().substr(8));
}

TEST_F(RunReportTest, QueriesAreCountedByFateLevelAndPackage) {
    const std::string strProgram = m_dir.WriteFile("program", "12345", 0755);

    m_report.OnQuery(Query(strProgram), QUERY_ANSWERED, {10, "packages", "coreutils"});
    m_report.OnQuery(Query(strProgram), QUERY_KNOWN, {10, "packages", "coreutils"});
    m_report.OnQuery(Query("/gone"), QUERY_NO_KEY, {});
    m_report.OnQuery(Query("/gone"), QUERY_UNREADABLE, {});
    m_report.OnQuery(Query("/gone"), QUERY_NOT_DELIVERED, {});

    RunCounters counters = m_report.PassCounters();
    EXPECT_EQ(5u, counters.nQueries);
    EXPECT_EQ(1u, counters.nAnswers);
    EXPECT_EQ(1u, counters.nKnown);
    EXPECT_EQ(1u, counters.nNoKey);
    EXPECT_EQ(2u, counters.nLost);
    EXPECT_EQ(10u, counters.nHashedBytes);
    EXPECT_EQ(1u, counters.answersByLevel[10]);
    EXPECT_EQ(2u, counters.queriesByLevel[10]);
    EXPECT_EQ(2u, counters.queriesByPackage["coreutils"]);
}

TEST_F(RunReportTest, NotesOfTheModuleAreCounted) {
    const std::string strProgram = m_dir.WriteFile("program", "12345", 0755);

    m_report.OnModuleNote({NOTE_ANALYSED, "", QUESTION_NONE});
    m_report.OnModuleNote({NOTE_CACHED, strProgram, QUESTION_LAUNCH});
    m_report.OnModuleNote(
        {NOTE_CACHED, strProgram, QUESTION_FILE});  // a touched file was not hashed
    m_report.OnModuleNote({NOTE_NO_STAT, "/a", QUESTION_LAUNCH});
    m_report.OnModuleNote({NOTE_NO_HASH, "/b", QUESTION_LAUNCH});
    m_report.OnModuleNote({NOTE_NOT_SENT, "", QUESTION_NONE});

    const RunCounters counters = m_report.PassCounters();
    EXPECT_EQ(1u, counters.nAnalysed);
    EXPECT_EQ(2u, counters.nCached);
    EXPECT_EQ(5u, counters.nHashedBytes);
    EXPECT_EQ(1u, counters.nNoStat);
    EXPECT_EQ(1u, counters.nNoHash);
    EXPECT_EQ(1u, counters.nNotSent);
}

TEST_F(RunReportTest, ADeliveredMessageIsARecordWithItsLine) {
    m_options.bJson = true;
    EventBatch batch;
    batch.nNumber = 17;
    batch.nEvents = 3;

    m_report.OnDelivered(batch, 0);

    EXPECT_EQ(0u, LastLine().find("{\"event\":\"delivered\",\"time\":"));
    EXPECT_THAT(LastLine(), HasSubstr(",\"line\":17,\"events\":3}"));
    EXPECT_EQ(1u, m_report.PassCounters().nMessages);
}

TEST_F(RunReportTest, AMessageThatWasNotDeliveredIsNotAcknowledged) {
    m_options.bJson = true;
    EventBatch batch;

    m_report.OnDelivered(batch, ROUTER_NO_RECEIVER);

    EXPECT_EQ("Events  from events.jsonl", LastLine());
    EXPECT_EQ(0u, m_report.PassCounters().nMessages);
    EXPECT_EQ(1u, m_report.PassCounters().nNotDelivered);
}

TEST_F(RunReportTest, RemarksNameSourceAndLineOnStandardError) {
    testing::internal::CaptureStderr();

    m_report.OnRemark(12, "not a JSON text");
    m_report.OnRemark(0, "cannot read\n/x");

    EXPECT_EQ(
        "tevmon-host: events.jsonl, line 12: not a JSON text\n"
        "tevmon-host: cannot read\\x0A/x\n",
        testing::internal::GetCapturedStderr());
    EXPECT_EQ(2u, m_report.PassCounters().nUnusable);
}

TEST_F(RunReportTest, RecordsOfTheCentreAreShownAndCounted) {
    EXPECT_EQ("", m_report.OnMessage(Guid(), 20300, std::string(150, 'x')));

    EXPECT_EQ("  centre         record of type 20300, 150 bytes", LastLine().substr(8));
    EXPECT_EQ(1u, m_report.PassCounters().nCentre);
}

TEST_F(RunReportTest, TheSummaryHoldsEveryPassAndWhatCameAfter) {
    m_options.bJson = true;
    m_report.OnModuleNote({NOTE_NO_STAT, "/a", QUESTION_LAUNCH});
    m_report.EndPass(true);
    EXPECT_THAT(LastLine(), HasSubstr("\"no_stat\":1"));
    m_report.OnModuleNote({NOTE_NO_STAT, "/b", QUESTION_LAUNCH});

    m_report.Summary(RunEnd());

    EXPECT_THAT(LastLine(), HasSubstr("\"no_stat\":2"));
    EXPECT_THAT(LastLine(), HasSubstr("\"queue_depth\":null"));
}
