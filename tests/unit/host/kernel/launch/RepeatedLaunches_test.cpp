#include "host/kernel/launch/RepeatedLaunches.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/support/TestDir.h"
#include "tests/support/host/HeldFiles.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class RepeatedLaunchesTest : public testing::Test {
protected:
    RepeatedLaunchesTest() {
        m_event.nPid = 100;
        m_event.nUid = 1000;
        m_event.nDevice = 5;
        m_event.nInode = 6;
        m_event.nSize = 7;
        m_event.nChanged = 8;
        m_event.strPath = "/bin/program";
        m_event.strName = "program";
        m_event.strDirectory = "/bin";
        m_launch = Launched(m_pFile);
        m_pFile->Settle();
    }
    Launch Launched(const HeldFileRef& pFile) {
        Launch launch;
        launch.creation.strPath = "/bin/program";
        launch.strStarter = m_strStarter;
        launch.eOrigin = LAUNCH_PATH_INVOKED;
        launch.pFile = pFile;
        return launch;
    }
    bool IsRepeat(const LaunchEvent& event) {
        return m_repeats.Find(event, m_strStarter, m_now).has_value();
    }
    // Whether a launch that was reported like this one stands for the next one like it.
    bool StandsFor(const LaunchEvent& event, const Launch& launch) {
        RepeatedLaunches repeats{seconds(5)};
        repeats.Reported(event, launch, m_now);
        return repeats.Find(event, m_strStarter, m_now).has_value();
    }

    const TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("program", "content", 0755);
    const HeldFileRef m_pFile = HoldFile(m_strFile);
    std::string m_strStarter = "/bin/shell";
    LaunchEvent m_event;
    Launch m_launch;
    RepeatedLaunches m_repeats{seconds(5)};
    RepeatedLaunches::Clock::time_point m_now{seconds(100)};
};

}  // namespace

TEST_F(RepeatedLaunchesTest, OneThatWasReportedStandsForThoseLikeItUntilItsTimeIsOver) {
    EXPECT_FALSE(IsRepeat(m_event));
    m_repeats.Reported(m_event, m_launch, m_now);
    m_event.nPid = 101;
    m_event.strCommand = "program with other arguments";
    EXPECT_TRUE(IsRepeat(m_event));
    m_now += seconds(5);
    EXPECT_TRUE(IsRepeat(m_event));
    m_now += milliseconds(1);
    EXPECT_FALSE(IsRepeat(m_event));
    m_repeats.Reported(m_event, m_launch, m_now);
    EXPECT_TRUE(IsRepeat(m_event));
}

TEST_F(RepeatedLaunchesTest, ItsFileIsHeldUntilItsTimeIsOverAndNoLonger) {
    const long nOthers = m_pFile.use_count();
    m_launch.pFile = nullptr;
    Launch launch = Launched(m_pFile);
    m_repeats.Reported(m_event, launch, m_now);
    launch.pFile = nullptr;
    m_repeats.Expire(m_now + seconds(5));
    EXPECT_EQ(nOthers, m_pFile.use_count());  // m_launch's went, its own came
    m_repeats.Expire(m_now + seconds(6));
    EXPECT_EQ(nOthers - 1, m_pFile.use_count());
}

TEST_F(RepeatedLaunchesTest, WithoutATimeEachIsReported) {
    RepeatedLaunches repeats{seconds(0)};
    repeats.Reported(m_event, m_launch, m_now);
    EXPECT_FALSE(repeats.Find(m_event, m_strStarter, m_now));
}

TEST_F(RepeatedLaunchesTest, AnythingElseAboutItIsAnotherLaunch) {
    m_repeats.Reported(m_event, m_launch, m_now);
    const std::function<void(LaunchEvent&)> OTHERS[] = {
        [](LaunchEvent& event) { event.nDevice = 99; },
        [](LaunchEvent& event) { event.nInode = 99; },
        [](LaunchEvent& event) { event.nSize = 99; },
        [](LaunchEvent& event) { event.nChanged = 99; },
        [](LaunchEvent& event) { event.nUid = 99; },
        [](LaunchEvent& event) { event.nMountNs = 99; },
        [](LaunchEvent& event) { event.nCgroup = 99; },
        [](LaunchEvent& event) { event.strPath += "x"; },
        [](LaunchEvent& event) { event.strName += "x"; },
        [](LaunchEvent& event) { event.strDirectory += "x"; },
        [](LaunchEvent& event) { event.strRoot += "x"; }};
    for (const auto& fnChange : OTHERS) {
        LaunchEvent other = m_event;
        fnChange(other);
        EXPECT_FALSE(IsRepeat(other));
    }
    EXPECT_TRUE(IsRepeat(m_event));
    m_strStarter = "/bin/other";
    EXPECT_FALSE(IsRepeat(m_event));
}

TEST_F(RepeatedLaunchesTest, OnlyAFileThatIsJudgedAlreadyNeedsNoReport) {
    m_launch.pFile = HoldFile(m_strFile);
    m_repeats.Reported(m_event, m_launch, m_now);
    EXPECT_FALSE(IsRepeat(m_event));
    m_launch.pFile->Settle();
    EXPECT_TRUE(IsRepeat(m_event));
}

// What runs in them stands elsewhere, or nobody knows what it is.
TEST_F(RepeatedLaunchesTest, WhatItsFileDoesNotTellIsAlwaysReported) {
    EXPECT_TRUE(StandsFor(m_event, m_launch));
    const std::function<void(LaunchEvent&)> OTHERS[] = {
        [](LaunchEvent& event) { event.strInterp = "/bin/sh"; },
        [](LaunchEvent& event) { event.strPath = "/bin/dash"; },
        [](LaunchEvent& event) { event.strName = "python3"; },
        [](LaunchEvent& event) { event.strPath = ""; },
        [](LaunchEvent& event) { event.nChanged = 0; },
        [](LaunchEvent& event) { event.bFresh = true; },
        [](LaunchEvent& event) { event.bServed = true; },
        [](LaunchEvent& event) { event.bPathCut = true; }};
    for (const auto& fnChange : OTHERS) {
        LaunchEvent other = m_event;
        fnChange(other);
        EXPECT_FALSE(StandsFor(other, m_launch));
        m_repeats.Reported(m_event, m_launch, m_now);
        EXPECT_FALSE(IsRepeat(other));
    }
}

TEST_F(RepeatedLaunchesTest, OneThatIsNotHeldByAName) {
    Launch launch = m_launch;
    for (const LaunchPathOrigin eOrigin : {LAUNCH_PATH_NONE, LAUNCH_PATH_PROC, LAUNCH_PATH_HELD}) {
        launch.eOrigin = eOrigin;
        EXPECT_FALSE(StandsFor(m_event, launch));
    }
    launch.eOrigin = LAUNCH_PATH_RESOLVED;
    EXPECT_TRUE(StandsFor(m_event, launch));
    launch.pFile = nullptr;
    EXPECT_FALSE(StandsFor(m_event, launch));
    launch.pFile = HoldUnsure(m_strFile, 1);
    launch.pFile->Settle();
    EXPECT_FALSE(StandsFor(m_event, launch));
}

TEST_F(RepeatedLaunchesTest, WhatFindsNoRoomIsReported) {
    for (m_event.nInode = 0; m_event.nInode < RepeatedLaunches::MOST; ++m_event.nInode) {
        m_repeats.Reported(m_event, m_launch, m_now);
        EXPECT_TRUE(IsRepeat(m_event));
    }
    m_repeats.Reported(m_event, m_launch, m_now);
    EXPECT_FALSE(IsRepeat(m_event));
    m_now += seconds(6);
    EXPECT_FALSE(IsRepeat(m_event));
    m_repeats.Reported(m_event, m_launch, m_now);
    EXPECT_TRUE(IsRepeat(m_event));
}
