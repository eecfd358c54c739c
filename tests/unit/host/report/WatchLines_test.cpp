#include "host/report/WatchLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/host/RunHappenings.h"
#include "tests/unit/host/report/ReportedRun.h"

using testing::HasSubstr;

namespace {

class WatchLinesTest : public ReportedRunTest {
protected:
    WatchLinesTest() : ReportedRunTest(true) {}
};

}  // namespace

TEST_F(WatchLinesTest, EveryVerdictHasALineThatNamesTheStarter) {
    m_report.OnLaunch(Started("/bin/a", "/bin/shell"));
    m_report.OnQuery(LaunchQuery("/bin/a"), QUERY_ANSWERED, {10, "packages", "coreutils"});

    EXPECT_EQ("  packaged   10  launch       /bin/a  by /bin/shell  coreutils (packages)",
              LastLine().substr(8));
}

TEST_F(WatchLinesTest, AFileOperationIsShownWithTheVerdictOnTheProgramThatDidIt) {
    m_report.OnModuleNote({NOTE_ANALYSED, FileMessage("create", "/etc/cron.d/x", "/bin/actor")});
    CloudQuery query;
    query.strPath = "/etc/cron.d/x";
    query.strFunc = "cloudfd";
    query.strEvent = "FileCreate";
    m_report.OnQuery(query, QUERY_NO_KEY, {});

    EXPECT_EQ("  unknown    40  FileCreate   /etc/cron.d/x  by /bin/actor", LastLine().substr(8));
}

TEST_F(WatchLinesTest, ABadProgramIsShownEveryTimeAlsoWhenTheModuleSkipsIt) {
    const std::string strBad = m_dir.WriteFile("bad", "x", 0755);
    m_report.OnQuery(LaunchQuery(strBad), QUERY_ANSWERED, {70, "bad list", "x"});
    m_report.OnModuleNote({NOTE_CACHED, strBad, EXPECTED_LAUNCH});
    EXPECT_EQ("  bad        70  launch       " + strBad + "  x (bad list)  cached",
              LastLine().substr(8));

    m_report.OnQuery(LaunchQuery("/bin/good"), QUERY_ANSWERED, {10, "packages", "x"});
    const size_t nLines = m_standardOutput.Lines().size();
    m_report.OnModuleNote({NOTE_CACHED, "/bin/good", EXPECTED_LAUNCH});
    EXPECT_EQ(nLines, m_standardOutput.Lines().size());
}

TEST_F(WatchLinesTest, ABadProgramIsShownEveryTimeItTouchesAFile) {
    const std::string strBad = m_dir.WriteFile("bad", "x", 0755);
    m_report.OnQuery(LaunchQuery(strBad), QUERY_ANSWERED, {70, "bad list", "x"});
    m_report.OnModuleNote({NOTE_ANALYSED, FileMessage("write", "/etc/cron.d/x", strBad)});
    m_report.OnModuleNote({NOTE_CACHED, "/etc/cron.d/x", EXPECTED_FILE, "write"});
    EXPECT_EQ(
        "  bad        70  FileModify   /etc/cron.d/x  by " + strBad + "  x (bad list)  cached",
        LastLine().substr(8));

    m_report.UseJson();
    m_report.OnModuleNote({NOTE_ANALYSED, FileMessage("write", "/etc/cron.d/x", strBad)});
    m_report.OnModuleNote({NOTE_CACHED, "/etc/cron.d/x", EXPECTED_FILE, "write"});
    EXPECT_THAT(LastLine(), HasSubstr(R"("path":")" + strBad +
                                      R"(","level":70,"what":"FileModify","file":"/etc/cron.d/x")"
                                      R"(,"cached":true})"));
}

TEST_F(WatchLinesTest, LossesAndUnresolvedLaunchesAreRecords) {
    LaunchEvent event;
    event.strName = "a\nb";
    m_report.OnUnresolved(event);
    EXPECT_EQ("  unresolved     launch       a\\x0Ab  no path names its file, so it is not judged",
              LastLine().substr(8));
    m_report.OnLost(3, 5);
    EXPECT_EQ(
        "  lost           launch       3 launches  there is no record of them; 5 since the start",
        LastLine().substr(8));

    m_report.UseJson();
    m_report.OnLost(3, 5);
    EXPECT_THAT(LastLine(), HasSubstr(R"("launches":3,"total":5})"));
}

TEST_F(WatchLinesTest, EventsThatTheModuleDidNotGetHaveALine) {
    m_report.OnReported(OneLaunch(1, "/bin/a"));
    m_report.OnDelivered(OneEvent(1), 1);
    m_report.Progress("delivering");

    EXPECT_THAT(LastLine(), HasSubstr("1 event"));
    EXPECT_THAT(LastLine(), HasSubstr("1 since the start"));
}

TEST_F(WatchLinesTest, AQueueThatWasFullIsReported) {
    m_report.OnOverflow(1, 2);
    EXPECT_EQ(
        "  overflow       the kernel's queue of file operations was full; 2 times since the start",
        LastLine().substr(8));

    m_report.UseJson();
    m_report.OnOverflow(1, 3);
    EXPECT_THAT(LastLine(), HasSubstr(R"("times":1,"total":3})"));
}

TEST_F(WatchLinesTest, VerboseShowsSkippedProgramsAsWell) {
    m_options.bVerbose = true;
    const std::string strGood = m_dir.WriteFile("good", "x", 0755);
    m_report.OnQuery(LaunchQuery(strGood), QUERY_ANSWERED, {10, "packages", "x"});
    m_report.OnModuleNote({NOTE_CACHED, strGood, EXPECTED_LAUNCH});

    EXPECT_EQ("  packaged   10  launch       " + strGood + "  x (packages)  cached",
              LastLine().substr(8));
    EXPECT_EQ(2u, m_standardOutput.Lines().size());
}

TEST_F(WatchLinesTest, ALostQueryHasTheLineThatEveryRunHasForIt) {
    m_report.OnQuery(LaunchQuery("/bin/a"), QUERY_NOT_DELIVERED, {});

    EXPECT_EQ("  unanswered     /bin/a  CreateProcess", LastLine().substr(8));
    EXPECT_EQ(1u, m_standardOutput.Lines().size());
}

TEST_F(WatchLinesTest, ALaunchThatCouldBeResolvedByNoPathIsNamedByThePathThatItHad) {
    LaunchEvent event;
    event.strName = "./a";
    event.strPath = "/tmp/a  by /usr/bin/dpkg";
    m_report.OnUnresolved(event);

    EXPECT_EQ(
        "  unresolved     launch       /tmp/a \\x20by /usr/bin/dpkg  no path names its file, so it "
        "is not judged",
        LastLine().substr(8));
}

TEST_F(WatchLinesTest, OneLossIsOneLaunchAndOneTime) {
    m_report.OnLost(1, 1);
    EXPECT_EQ(
        "  lost           launch       1 launch  there is no record of them; 1 since the start",
        LastLine().substr(8));

    m_report.OnOverflow(1, 1);
    EXPECT_EQ(
        "  overflow       the kernel's queue of file operations was full; 1 time since the start",
        LastLine().substr(8));
}

TEST_F(WatchLinesTest, ANoticeOfASensorGoesToStandardError) {
    testing::internal::CaptureStderr();
    m_report.OnNotice("a mount\ncame");

    EXPECT_EQ("tevmon-host: a mount\\x0Acame\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ("", m_standardOutput.Text());
}

TEST_F(WatchLinesTest, TheLastLossesStandBetweenTheWatchAndItsBalance) {
    m_report.BeginPass({1, 1, "batch", "the kernel"});
    m_report.OnReported(OneLaunch(1, "/bin/a"));
    m_report.OnReported(OneLaunch(2, "/bin/a"));
    RunEnd end;
    end.queueDepth = 0;
    m_report.Summary(end);

    const auto lines = m_standardOutput.Lines();
    ASSERT_LT(3u, lines.size());
    EXPECT_EQ("Events  from the kernel", lines[0]);
    EXPECT_EQ(
        "  dropped        event        2 events  the module could not store them; 2 since the "
        "start",
        lines[1].substr(8));
    EXPECT_EQ("Balance", lines[2]);
}
