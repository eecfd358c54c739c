#include "host/report/JsonLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/host/RunHappenings.h"
#include "tests/unit/host/report/ReportedRun.h"

using testing::HasSubstr;
using testing::Not;

namespace {

class JsonLinesTest : public ReportedRunTest {
protected:
    explicit JsonLinesTest(bool bWatch = false) : ReportedRunTest(bWatch) {
        m_report.UseJson();
        m_report.BeginPass({1, 1, "line", "events.jsonl"});
    }
};

class WatchJsonLinesTest : public JsonLinesTest {
protected:
    WatchJsonLinesTest() : JsonLinesTest(true) {}
};

}  // namespace

TEST_F(JsonLinesTest, ADeliveredMessageIsARecordWithItsLine) {
    EventBatch batch;
    batch.nNumber = 17;
    batch.nEvents = 3;

    m_report.OnDelivered(batch, 0);

    EXPECT_EQ(0u, LastLine().find("{\"event\":\"delivered\",\"time\":"));
    EXPECT_THAT(LastLine(), HasSubstr(",\"line\":17,\"events\":3}"));
    EXPECT_EQ(1u, m_report.PassCounters().nMessages);
}

TEST_F(JsonLinesTest, AMessageThatWasNotDeliveredIsNotAcknowledged) {
    EventBatch batch;

    m_report.OnDelivered(batch, 1);

    EXPECT_EQ("", LastLine());
    EXPECT_EQ(0u, m_report.PassCounters().nMessages);
    EXPECT_EQ(1u, m_report.PassCounters().nNotDelivered);
}

TEST_F(JsonLinesTest, TheSummaryHoldsEveryPassAndWhatCameAfter) {
    m_report.OnModuleNote({NOTE_STAT_FAILED, "/a", EXPECTED_LAUNCH});
    m_report.EndPass(true);
    EXPECT_THAT(LastLine(), HasSubstr("\"stat_failed\":1"));
    m_report.OnModuleNote({NOTE_STAT_FAILED, "/b", EXPECTED_LAUNCH});

    m_report.Summary(RunEnd());

    EXPECT_THAT(LastLine(), HasSubstr("\"stat_failed\":2"));
    EXPECT_THAT(LastLine(), HasSubstr("\"queue_depth\":null"));
}
TEST_F(WatchJsonLinesTest, ABadProgramHasARecordAlsoWhenItsQueryHasNoVerdictOfItsOwn) {
    m_report.OnQuery(LaunchQuery("/bin/bad"), QUERY_ANSWERED, {70, "bad list", "x"});
    EXPECT_THAT(LastLine(), Not(HasSubstr(R"("event":"bad_run")")));

    m_report.OnQuery(LaunchQuery("/bin/bad"), QUERY_KNOWN, {70, "bad list", "x"});
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"bad_run")"));
}

TEST_F(WatchJsonLinesTest, ALaunchIsAJsonRecord) {
    m_report.OnLaunch(Started("/bin/a", "/bin/shell"));

    EXPECT_THAT(LastLine(),
                HasSubstr(R"("path":"/bin/a","cmd":"/bin/a x","pid":4711,"starter":"/bin/shell")"
                          R"(,"origin":"invoked","script":false,"args_cut":false})"));
}

TEST_F(WatchJsonLinesTest, EventsThatTheModuleDidNotGetAreAnnouncedOnce) {
    m_report.OnReported(OneLaunch(1, "/bin/a"));
    m_report.OnDelivered(OneEvent(1), 1);
    m_report.Progress("delivering");
    m_report.Progress("delivering");

    ASSERT_EQ(1u, m_standardOutput.Lines().size());
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"refused")"));
    EXPECT_THAT(LastLine(), HasSubstr(R"("events":1,"total":1})"));

    m_report.OnReported(OneLaunch(2, "/bin/a"));
    m_report.OnReported(OneLaunch(3, "/bin/a"));
    RunEnd end;
    end.queueDepth = 0;
    m_report.Summary(end);

    const std::string strAnnounced = m_standardOutput.Lines().at(1);
    EXPECT_THAT(strAnnounced, HasSubstr(R"("event":"not_stored")"));
    EXPECT_THAT(strAnnounced, HasSubstr(R"("events":2,"total":2})"));
}

TEST_F(WatchJsonLinesTest, AFileOperationIsAJsonRecord) {
    FileOperation operation;
    operation.eAct = FILE_RENAME;
    operation.strPath = "/etc/cron.d/x";
    operation.strProgram = "/bin/mv";
    operation.strProgramName = "/usr/bin/mv";
    operation.strFsType = "ext4";
    operation.nPid = 4711;
    operation.bPlace = true;

    m_report.OnOperation(operation);

    EXPECT_THAT(LastLine(), HasSubstr(R"("op":"rename","path":"/etc/cron.d/x","program":"/bin/mv",)"
                                      R"("program_name":"/usr/bin/mv","pid":4711,"fs":"ext4",)"
                                      R"("place":true,"pipe":false})"));
}
