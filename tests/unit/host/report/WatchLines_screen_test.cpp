#include "host/report/WatchLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "tests/support/Event.h"
#include "tests/support/host/DrawnScreen.h"
#include "tests/support/host/OnTerminal.h"
#include "tests/support/host/RunHappenings.h"
#include "tests/unit/host/report/ReportedRun.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// A watch on a terminal without colours, 120 columns wide.
class WatchLinesScreenTest : public testing::Test {
protected:
    WatchLinesScreenTest() {
        m_pty.Resize(120, 24);
        m_onTerminal.emplace(m_pty, STDOUT_FILENO, "1");
        m_output.emplace();
    }

    ReportedRun& Begin(bool bPlain = false) {
        WatchOptions watch;
        watch.bPlain = bPlain;
        m_report.emplace(*m_output, m_options, m_service, true, watch);
        m_report->Begin("libtevmon.so");
        return *m_report;
    }

    const TestDir m_dir;
    const Variable m_encoding{"LC_ALL", "C"};
    Pty m_pty;
    std::optional<OnTerminal> m_onTerminal;
    std::optional<Console> m_output;
    HostOptions m_options;
    const VerdictService m_service;
    std::optional<ReportedRun> m_report;
    DrawnScreen m_screen{m_pty};
};

}  // namespace

TEST_F(WatchLinesScreenTest, ItsHeadHasTheNumbersOfTheRun) {
    ReportedRun& report = Begin();
    const std::string strBad = m_dir.WriteFile("bad", "x", 0755);
    report.OnReported(OneLaunch(1, "/bin/a"));
    report.OnDelivered(OneEvent(1), 1);
    EventBatch waiting = OneEvent(2);
    waiting.nEvents = 3;
    report.OnReported(waiting);
    LaunchCounters launches;
    launches.nCaptured = 11111;
    launches.nReported = 4;
    launches.nLost = 21;
    report.OnCounters(launches);
    FileCounters files;
    files.nCaptured = 80;
    files.nReported = 5;  // and never delivered
    report.OnFileCounters(files);
    for (const int nLevel : {10, 10, 10, 20, 20, 40, 70}) {
        report.OnQuery(LaunchQuery(nLevel == 70 ? strBad : "/bin/a"), QUERY_ANSWERED,
                       {nLevel, "list", "x"});
    }
    report.OnQuery(LaunchQuery("/bin/a"), QUERY_KNOWN, {10, "list", "x"});
    report.OnModuleNote({NOTE_CACHED, strBad, EXPECTED_LAUNCH});
    report.OnModuleNote({NOTE_CACHED, strBad, EXPECTED_LAUNCH});

    const std::string LINES[] = {
        " launches      11,111  0/s     files             80  0/s     waiting            3  in 1   "
        " "
        "cache hits         -         ",
        " packaged           3          good               2          unknown            1         "
        " "
        "bad                1  ran 3  ",
        " queries            8          dropped            1          lost              21         "
        " "
        "unexplained        5         "};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(LINES[i], m_screen.Await(i + 2, LINES[i]));
    }
}

TEST_F(WatchLinesScreenTest, FileOperationsLostByUnknownNumberMarkTheLosses) {
    m_pty.Resize(80, 24);
    ReportedRun& report = Begin();
    LaunchCounters launches;
    launches.nCaptured = launches.nLost = 21;
    report.OnCounters(launches);
    FileCounters files;
    files.nOverflows = 2;
    report.OnFileCounters(files);

    const std::string strLine =
        " queries          0  dropped          0  lost           21+  unexplained      0 ";
    EXPECT_EQ(strLine, m_screen.Await(4, strLine));
}

TEST_F(WatchLinesScreenTest, ItsTitleSaysWhatTheRunIsAt) {
    ReportedRun& report = Begin();
    report.BeginPass({1, 1, "batch", "the kernel"});
    EXPECT_THAT(m_screen.AwaitText(1, "watching"), HasSubstr(" tevmon-host watch   watching   "));
    report.Progress("waiting for the module");
    EXPECT_THAT(m_screen.AwaitText(1, "waiting"),
                HasSubstr(" tevmon-host watch   ending: waiting for the module   "));
    report.Progress("delivering");
    EXPECT_THAT(m_screen.AwaitText(1, "watching"), HasSubstr(" tevmon-host watch   watching   "));
}

TEST_F(WatchLinesScreenTest, ASkipIsARowThatIsFoldedIntoItsProgramsOwn) {
    ReportedRun& report = Begin();
    const std::string strGood = m_dir.WriteFile("good", "x", 0755);
    report.OnLaunch(Started(strGood, "/bin/sh"));
    report.OnQuery(LaunchQuery(strGood), QUERY_ANSWERED, {10, "packages", "pack"});
    report.OnModuleNote({NOTE_CACHED, strGood, EXPECTED_LAUNCH});

    EXPECT_THAT(m_screen.AwaitText(7, "x2"), HasSubstr("  packaged  10  launch         x2  "));
    EXPECT_THAT(m_screen.AwaitText(7, "x2"), HasSubstr("  /bin/sh "));
    EXPECT_EQ("", m_screen.Await(8, ""));
}

TEST_F(WatchLinesScreenTest, WhatEveryRunHasALineForIsARow) {
    ReportedRun& report = Begin();
    QueueLoad load;
    load.eState = QUEUE_FULL;
    report.OnQueue(load);
    report.OnOverflow(1, 2);
    report.OnLost(3, 3);
    testing::internal::CaptureStderr();
    report.OnNotice("a mount came");
    const std::string strComplaint = testing::internal::GetCapturedStderr();

    EXPECT_THAT(m_screen.AwaitText(7, "queue"),
                HasSubstr("  queue          is full: 0 messages, 0 B "));
    EXPECT_THAT(m_screen.AwaitText(8, "overflow"),
                HasSubstr("  overflow       the kernel's queue of "));
    EXPECT_THAT(m_screen.AwaitText(9, "lost"),
                HasSubstr("  lost          launch             3 la"));
    EXPECT_THAT(m_screen.AwaitText(10, "mount"), HasSubstr("  tevmon-host: a mount came "));
    EXPECT_EQ("tevmon-host: a mount came\n", strComplaint);
}

TEST_F(WatchLinesScreenTest, TheEndGivesTheTerminalBackForTheLastLossesAndTheBalance) {
    ReportedRun& report = Begin();
    m_screen.AwaitText(4, "unexplained");
    report.OnReported(OneLaunch(1, "/bin/a"));
    report.OnDelivered(OneEvent(1), 1);
    report.Summary(RunEnd());

    const std::string strAll = m_pty.ReadUntil("cannot be read");
    const size_t nBack = strAll.find("\033[?1049l");
    ASSERT_NE(std::string::npos, nBack);
    const std::string strAfter = strAll.substr(nBack);
    EXPECT_THAT(strAfter, HasSubstr("  dropped        event        1 event  the module's queue is "
                                    "full, or it takes no messages; 1 since the start\r\n"
                                    "Balance\r\n"));
    EXPECT_THAT(strAfter, Not(HasSubstr("\033[?1049h")));
}

TEST_F(WatchLinesScreenTest, WithoutItsTerminalTheWatchIsBroken) {
    Begin();
    m_screen.AwaitText(4, "unexplained");
    m_pty.HangUp();

    EXPECT_TRUE(Eventually([this] { return m_output->IsBroken(); }));
    EXPECT_EQ("Input/output error", m_output->BrokenReason());
}

TEST_F(WatchLinesScreenTest, APlainWatchOnATerminalIsLines) {
    ReportedRun& report = Begin(true);
    report.BeginPass({1, 1, "batch", "the kernel"});
    report.OnLost(3, 5);

    const std::string strText = m_pty.ReadUntil("since the start");
    EXPECT_EQ(0u, strText.find("Events  from the kernel\r\n"));
    EXPECT_THAT(strText,
                HasSubstr("  lost           launch       3 launches  there is no record of "
                          "them; 5 since the start"));
}
