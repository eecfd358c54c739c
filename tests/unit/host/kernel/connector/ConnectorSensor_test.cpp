#include "host/kernel/connector/ConnectorSensor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "host/kernel/launch/LaunchEvent.h"
#include "tests/support/Event.h"
#include "tests/support/NoPrivilege.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/ExecNoticeBytes.h"
#include "tests/support/kernel/FakeKernel.h"
#include "tests/unit/host/kernel/connector/ConnectorBytes.h"

using namespace connector_bytes;
using namespace exec_open_bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

// Numbers that no process can have, so that /proc knows nothing of them but what a test puts there.
constexpr size_t BYTES = 8 << 20;  // that wait at most
constexpr uint32_t GONE = 0x7ffffff0;
constexpr uint32_t ALIVE = 0x7ffffff1;
constexpr uint32_t PARENT = 0x7ffffff2;

const std::string NUL(1, '\0');

// Of a record without texts.
size_t SizeOf(LaunchKind eKind) {
    LaunchEvent event;
    event.eKind = eKind;
    return EncodeLaunch(event).size();
}

class ConnectorSensorTest : public testing::Test {
protected:
    ConnectorSensorTest() {
        m_kernel.paths["/proc/self/mountinfo"] = m_dir.WriteFile("mountinfo", "");
    }
    ILaunchSensor& Start(bool bOpens) {
        m_pSensor = MakeConnectorSensor(bOpens);
        std::string strError;
        EXPECT_TRUE(m_pSensor->Open(strError)) << strError;
        return *m_pSensor;
    }
    std::string Refused(bool bOpens) {
        std::string strError;
        EXPECT_FALSE(MakeConnectorSensor(bOpens)->Open(strError));
        EXPECT_EQ(0u, m_kernel.OpenFds());
        return strError;
    }
    // Process ALIVE runs strProgram with these arguments, as /proc has it.
    void MakeProcess(const std::string& strProgram, const std::string& strArgs) {
        m_dir.WriteFile("proc/cmdline", strArgs);
        m_dir.WriteFile("proc/stat", "1 (a) S " + std::to_string(PARENT) + " 1 0");
        const std::string strProc = m_dir.Path() + "/proc";
        ASSERT_EQ(0, symlink(strProgram.c_str(), (strProc + "/exe").c_str()));
        ASSERT_EQ(0, symlink("/srv", (strProc + "/cwd").c_str()));
        m_kernel.paths["/proc/" + std::to_string(ALIVE)] = strProc;
    }
    void SetDrops(uint32_t nExecs, uint32_t nLives) { m_kernel.drops = {nExecs, nLives}; }
    // A descriptor of a program, as the kernel hands it out: the sensor's to close.
    int Program(const std::string& strName) {
        return open(m_dir.WriteFile(strName, ElfHead("")).c_str(), O_RDONLY | O_CLOEXEC);
    }
    // All that the sensor has read when it is detached.
    std::vector<LaunchEvent> Records() {
        m_pSensor->Detach();
        std::vector<LaunchEvent> events;
        m_pSensor->Drain([&events](const void* pData, size_t nSize) {
            events.emplace_back();
            EXPECT_TRUE(DecodeLaunch(pData, nSize, events.back()));
            return true;
        });
        return events;
    }
    static std::vector<std::string> Lines(const std::vector<LaunchEvent>& events) {
        static const char* const KINDS[] = {"start", "copy", "end"};
        std::vector<std::string> lines;
        for (const LaunchEvent& event : events) {
            lines.push_back(std::string(KINDS[event.eKind]) + " " + std::to_string(event.nPid) +
                            " of " + std::to_string(event.nPpid));
        }
        return lines;
    }

    FakeKernel m_kernel;
    TestDir m_dir;
    std::unique_ptr<ILaunchSensor> m_pSensor;
};

}  // namespace

TEST(ConnectorSensorDeathTest, WithoutPrivilegeItSaysWhatIsMissing) {
    for (const bool bOpens : {false, true}) {
        const std::unique_ptr<ILaunchSensor> pSensor = MakeConnectorSensor(bOpens);
        EXPECT_EXIT(OpenWithoutPrivilege(*pSensor),
                    testing::ExitedWithCode(REFUSED_WITHOUT_PRIVILEGE),
                    "cannot be examined; run as root");
    }
}

TEST_F(ConnectorSensorTest, OneThatWasNeverOpenedHasNothingAndEndsQuietly) {
    m_pSensor = MakeConnectorSensor(true);

    EXPECT_THAT(Records(), IsEmpty());
    EXPECT_EQ(0u, m_pSensor->Counts().nCaptured);
}

TEST_F(ConnectorSensorTest, ItsLimitsSayWhatEachFormCannotSee) {
    EXPECT_EQ("process connector with fanotify", Start(true).Name());
    EXPECT_THAT(m_pSensor->Limits(), HasSubstr("arguments from /proc while the process lives"));
    EXPECT_THAT(m_pSensor->Limits(), Not(HasSubstr("real-time")));
    EXPECT_THAT(m_pSensor->Limits(), Not(HasSubstr("all are counted")));
    EXPECT_EQ("process connector", Start(false).Name());
    EXPECT_THAT(m_pSensor->Limits(), HasSubstr("unresolved"));
}

TEST_F(ConnectorSensorTest, ItsLimitsNameWhatThisMachineLacks) {
    m_kernel.strRelease = "6.1.0";
    m_kernel.bRealTime = false;
    m_dir.WriteFile("mountinfo", "1 0 8:1 / /odd rw - btrfs x rw\n");
    m_kernel.markErrors["/odd"] = EXDEV;

    const std::string strLimits = Start(true).Limits();

    EXPECT_THAT(strLimits, HasSubstr("programs of these file systems by /proc alone: /odd;"));
    EXPECT_THAT(strLimits, HasSubstr("without real-time priority (CAP_SYS_NICE)"));
    EXPECT_THAT(strLimits, HasSubstr("how many were launches: all are counted"));
}

TEST_F(ConnectorSensorTest, WithoutALookAtOthersNothingIsOpened) {
    m_kernel.bMayTrace = false;

    EXPECT_THAT(Refused(true), HasSubstr("CAP_SYS_PTRACE and CAP_NET_ADMIN"));

    EXPECT_THAT(m_kernel.Requests(), IsEmpty());
}

TEST_F(ConnectorSensorTest, ARefusalLeavesNothingOpen) {
    m_kernel.groupErrors = {EPERM};
    EXPECT_THAT(Refused(true), HasSubstr("refuses to report executed files: Operation not perm"));

    m_kernel.nSubscribeError = EPERM;
    EXPECT_THAT(Refused(false), HasSubstr("process connector refuses"));
    m_kernel.nSubscribeError = ECONNREFUSED;
    EXPECT_THAT(Refused(false), HasSubstr("initial network namespace only"));
}

TEST_F(ConnectorSensorTest, LaunchesHaveASocketOfTheirOwnWhereTheKernelSortsTheMessages) {
    (void)Start(false);

    const std::vector<std::string> requests = m_kernel.Requests();
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ(std::string("\2\0\0\0", 4), requests[0].substr(HEADS + 4));
    EXPECT_EQ(std::string("\1\0\0\x80", 4), requests[1].substr(HEADS + 4));
    EXPECT_THAT(m_kernel.GroupFlags(), IsEmpty());
}

TEST_F(ConnectorSensorTest, WhatWaitsIsTakenInItsOrder) {
    (void)Start(false);
    m_kernel.Tell({{0, {{At(20, Exec(PARENT))}, {At(40, Exec(PARENT))}}},
                   {1, {{At(10, Fork(ALIVE, PARENT))}, {At(30, Fork(PARENT, GONE))}}}},
                  {});

    EXPECT_THAT(Lines(Records()),
                ElementsAre("copy 2147483634 of 2147483633", "start 2147483634 of 2147483633",
                            "copy 2147483632 of 2147483634", "start 2147483634 of 2147483633"));
}

TEST_F(ConnectorSensorTest, CaughtUpItHasARecordOfWhateverTheKernelReportedBefore) {
    ILaunchSensor& sensor = Start(false);
    size_t nRecords = 0;
    const auto fnCount = [&nRecords](const void*, size_t) { return ++nRecords > 0; };
    for (size_t i = 1; i <= 50; ++i) {
        m_kernel.Tell({{1, {{Fork(PARENT, GONE)}}}}, {});  // wakes nobody

        ASSERT_TRUE(sensor.CatchUp(HANGS_AFTER));

        sensor.Drain(fnCount);
        ASSERT_EQ(i, nRecords);
    }
}

TEST_F(ConnectorSensorTest, WithoutItsThreadItNeverCatchesUp) {
    m_pSensor = MakeConnectorSensor(false);

    EXPECT_FALSE(m_pSensor->CatchUp(std::chrono::milliseconds(1)));
    EXPECT_FALSE(m_pSensor->IsExact());
}

TEST_F(ConnectorSensorTest, OfOneMomentCopiesComeFirstThenStartsThenEnds) {
    (void)Start(false);
    m_kernel.Tell({{0, {{Exec(GONE)}}}, {1, {{Exit(GONE)}, {Fork(PARENT, GONE)}}}}, {});

    EXPECT_THAT(Lines(Records()),
                ElementsAre("copy 2147483632 of 2147483634", "start 2147483632 of 2147483634",
                            "end 2147483632 of 0"));
    EXPECT_EQ(1u, m_pSensor->Counts().nCaptured);
    EXPECT_EQ(0u, m_pSensor->Counts().nLost);
}

TEST_F(ConnectorSensorTest, WhatAnOlderKernelSendsInOneStreamIsSortedTheSame) {
    m_kernel.strRelease = "6.1.0";
    (void)Start(false);
    m_kernel.Tell({{0, {{Exit(PARENT)}, {Fork(PARENT, GONE)}, {Exec(GONE)}, {Exit(GONE)}}}}, {});

    EXPECT_EQ(1u, m_kernel.Requests().size());
    EXPECT_THAT(Lines(Records()),
                ElementsAre("copy 2147483632 of 2147483634", "start 2147483632 of 2147483634",
                            "end 2147483634 of 0", "end 2147483632 of 0"));
}

TEST_F(ConnectorSensorTest, TheParentOfAProcessThatEndedIsNotThatOfTheNextWithItsNumber) {
    ILaunchSensor& sensor = Start(false);
    m_kernel.Tell({{0, {{Exec(GONE)}}}, {1, {{Fork(PARENT, GONE)}, {Exit(GONE)}}}}, {});
    ASSERT_TRUE(Eventually([&sensor] { return sensor.Counts().nCaptured == 1; }));
    m_kernel.Tell({{0, {{Exec(GONE)}}}}, {});

    EXPECT_THAT(Lines(Records()),
                ElementsAre("copy 2147483632 of 2147483634", "start 2147483632 of 2147483634",
                            "end 2147483632 of 0", "start 2147483632 of 0"));
}

TEST_F(ConnectorSensorTest, MessagesThatAreNoneAreNeitherReportedNorCounted) {
    (void)Start(false);
    const std::string strThread = Message({1, 0, 0, 0, PARENT, PARENT, GONE + 1, GONE});
    m_kernel.Tell({{0,
                    {{""},
                     {Exec(GONE).substr(0, 40)},
                     {Message({2, 0, 0, 0, GONE, GONE, 0, 0}, 9)},
                     {Message({0, 0, 0, 0, GONE, GONE, 0, 0})}}},
                   {1, {{strThread}, {std::string(300, '\xff')}}}},
                  {});

    EXPECT_THAT(Records(), IsEmpty());
    EXPECT_EQ(0u, m_pSensor->Counts().nCaptured);
    EXPECT_EQ(0u, m_pSensor->Counts().nOthersLost);
}

TEST_F(ConnectorSensorTest, AProcessThatIsGoneIsALaunchWithoutAPath) {
    (void)Start(false);
    m_kernel.Tell({{0, {{Exec(GONE)}}}}, {});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("", events[0].strPath);
    EXPECT_EQ("", events[0].strCommand);
    EXPECT_TRUE(events[0].bArgsUnreadable);
}

TEST_F(ConnectorSensorTest, AProcessThatLivesIsDescribedByProc) {
    const std::string strProgram = m_dir.WriteFile("tool", "");
    MakeProcess(strProgram, "tool" + NUL + "-x" + NUL);
    (void)Start(false);
    m_kernel.Tell({{0, {{Exec(ALIVE)}}}}, {});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(strProgram, events[0].strPath);
    EXPECT_EQ("tool -x", events[0].strCommand);
    EXPECT_EQ("/srv", events[0].strDirectory);
    EXPECT_EQ(PARENT, events[0].nPpid);
    EXPECT_FALSE(events[0].bArgsUnreadable);
}

TEST_F(ConnectorSensorTest, OfSeveralStartsOfOneProcessOnlyTheLastIsDescribedByProc) {
    MakeProcess(m_dir.WriteFile("tool", ""), "tool" + NUL);
    (void)Start(false);
    m_kernel.Tell({{0, {{Exec(ALIVE)}, {Exec(GONE)}, {Exec(ALIVE)}}}}, {});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(ALIVE, events[0].nPid);
    EXPECT_EQ("", events[0].strPath);
    EXPECT_EQ(GONE, events[1].nPid);
    EXPECT_EQ(ALIVE, events[2].nPid);
    EXPECT_EQ(m_dir.Path() + "/tool", events[2].strPath);
    EXPECT_EQ(3u, m_pSensor->Counts().nCaptured);
}

TEST_F(ConnectorSensorTest, AProgramThatWasOpenedIsKnownWhenItsProcessIsGone) {
    (void)Start(true);
    m_kernel.Tell({{0, {{Exec(GONE)}}}}, {{Opened(GONE, Program("brief"))}});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(m_dir.Path() + "/brief", events[0].strPath);
    EXPECT_NE(0u, events[0].nInode);
    EXPECT_TRUE(events[0].bArgsUnreadable);
}

TEST_F(ConnectorSensorTest, SeveralStartsOfOneProcessHaveTheProgramsThatItOpenedInTheirOrder) {
    (void)Start(true);
    m_kernel.Tell({{0, {{Exec(GONE)}, {Exec(GONE)}}}},
                  {{Opened(GONE, Program("one")) + Opened(GONE, Program("two"))}});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(m_dir.Path() + "/one", events[0].strPath);
    EXPECT_EQ(m_dir.Path() + "/two", events[1].strPath);
}

TEST_F(ConnectorSensorTest, AFileThatTheProcessDoesNotRunBelongsToAStartThatFailed) {
    const std::string strProgram = m_dir.WriteFile("runs", "");
    MakeProcess(strProgram, "runs" + NUL);
    (void)Start(true);
    m_kernel.Tell({{0, {{Exec(ALIVE)}}}}, {{Opened(ALIVE, Program("failed"))}});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(strProgram, events[0].strPath);
}

TEST_F(ConnectorSensorTest, OfMoreFilesThanStartsNoneIsKnownWhenTheProcessIsGone) {
    (void)Start(true);
    m_kernel.Tell({{0, {{Exec(GONE)}}}},
                  {{Opened(GONE, Program("started")) + Opened(GONE, Program("in-vain"))}});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("", events[0].strPath);
}

TEST_F(ConnectorSensorTest, OfMoreFilesThanStartsOnlyTheOneThatRunsIsKnown) {
    const std::string strProgram = m_dir.Path() + "/runs";
    const int nRuns = Program("runs");
    MakeProcess(strProgram, "runs" + NUL);
    (void)Start(true);
    m_kernel.Tell({{0, {{Exec(ALIVE)}, {Exec(ALIVE)}}}},
                  {{Opened(ALIVE, Program("first")) + Opened(ALIVE, nRuns) +
                    Opened(ALIVE, Program("in-vain"))}});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("", events[0].strPath);
    EXPECT_EQ(strProgram, events[1].strPath);
}

TEST_F(ConnectorSensorTest, WhatWasOpenedBeforeAnOverflowIsNoOtherStartsProgram) {
    (void)Start(true);
    m_kernel.Tell({{0, {{Exec(GONE)}}}}, {{Opened(GONE, Program("before")) + Overflow()}});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("", events[0].strPath);
}

TEST_F(ConnectorSensorTest, WhatAProcessOpenedEndsWithIt) {
    ILaunchSensor& sensor = Start(true);
    m_kernel.Tell({{0, {{Exec(PARENT)}}}, {1, {{Exit(GONE)}}}}, {{Opened(GONE, Program("first"))}});
    ASSERT_TRUE(Eventually([&sensor] { return sensor.Counts().nCaptured == 1; }));
    m_kernel.Tell({{0, {{Exec(GONE)}}}}, {});

    const std::vector<LaunchEvent> events = Records();

    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(GONE, events[2].nPid);
    EXPECT_EQ("", events[2].strPath);
}

TEST_F(ConnectorSensorTest, MessagesThatFoundNoRoomAreLostLaunchesOrLostOthersByTheirSocket) {
    SetDrops(5, 7);
    (void)Start(false);
    m_kernel.Tell({{0, {{"", ENOBUFS}, {Exec(GONE)}}}, {1, {{"", ENOBUFS}, {Exit(GONE)}}}}, {});

    EXPECT_EQ(2u, Records().size());

    EXPECT_EQ(6u, m_pSensor->Counts().nCaptured);
    EXPECT_EQ(5u, m_pSensor->Counts().nLost);
    EXPECT_EQ(7u, m_pSensor->Counts().nOthersLost);
}

TEST_F(ConnectorSensorTest, OnAnOlderKernelEveryLostMessageMayHaveBeenALaunch) {
    m_kernel.strRelease = "6.1.0";
    SetDrops(5, 7);
    (void)Start(false);
    m_kernel.Tell({{0, {{"", ENOBUFS}, {Exit(GONE)}}}}, {});

    EXPECT_EQ(1u, Records().size());

    EXPECT_EQ(5u, m_pSensor->Counts().nCaptured);
    EXPECT_EQ(5u, m_pSensor->Counts().nLost);
    EXPECT_EQ(0u, m_pSensor->Counts().nOthersLost);
}

TEST_F(ConnectorSensorTest, WhatWaitsIsBoundedAndLaunchesThatFindNoRoomAreLost) {
    const size_t ROOM = BYTES / SizeOf(LAUNCH_KIND_EXEC);
    (void)Start(false);
    m_kernel.Tell({{0, std::vector<FakeKernel::Told>(ROOM + 10, {Exec(GONE)})}}, {});

    EXPECT_EQ(ROOM, Records().size());

    EXPECT_EQ(ROOM + 10, m_pSensor->Counts().nCaptured);
    EXPECT_EQ(10u, m_pSensor->Counts().nLost);
}

TEST_F(ConnectorSensorTest, CopiesAndEndsThatFindNoRoomStayCounted) {
    const size_t ROOM = BYTES / SizeOf(LAUNCH_KIND_EXEC);
    ILaunchSensor& sensor = Start(false);
    m_kernel.Tell({{0, std::vector<FakeKernel::Told>(ROOM, {Exec(GONE)})}}, {});
    ASSERT_TRUE(Eventually([&] { return sensor.Counts().nCaptured == ROOM; }));
    const size_t LEFT = BYTES % SizeOf(LAUNCH_KIND_EXEC) / SizeOf(LAUNCH_KIND_FORK);
    m_kernel.Tell({{1, std::vector<FakeKernel::Told>(LEFT, {Fork(PARENT, GONE)})}}, {});
    m_kernel.Tell({{1, {{Fork(PARENT, GONE)}, {Exit(GONE)}}}}, {});

    EXPECT_EQ(ROOM + LEFT, Records().size());

    EXPECT_EQ(2u, sensor.Counts().nOthersLost);
}

TEST_F(ConnectorSensorTest, WhatWasDrainedMakesRoomAgain) {
    const size_t ROOM = BYTES / SizeOf(LAUNCH_KIND_EXEC);
    ILaunchSensor& sensor = Start(false);
    m_kernel.Tell({{0, std::vector<FakeKernel::Told>(ROOM, {Exec(GONE)})}}, {});
    ASSERT_TRUE(Eventually([&] { return sensor.Counts().nCaptured == ROOM; }));
    sensor.Drain([](const void*, size_t) { return true; });
    m_kernel.Tell({{0, {{Exec(GONE)}}}}, {});

    EXPECT_EQ(1u, Records().size());

    EXPECT_EQ(0u, sensor.Counts().nLost);
}

TEST_F(ConnectorSensorTest, ASinkThatHasEnoughLeavesTheRestForTheNextTime) {
    ILaunchSensor& sensor = Start(false);
    m_kernel.Tell({{0, {{Exec(GONE)}, {Exec(GONE)}, {Exec(GONE)}}}}, {});
    sensor.Detach();
    size_t nFirst = 0;
    sensor.Drain([&nFirst](const void*, size_t) { return ++nFirst < 2; });

    EXPECT_EQ(2u, nFirst);
    EXPECT_EQ(1u, Records().size());
}

TEST_F(ConnectorSensorTest, ItsEndClosesWhatItOpenedAlsoWithoutADetach) {
    (void)Start(true);
    EXPECT_EQ(3u, m_kernel.OpenFds());

    m_pSensor.reset();

    EXPECT_EQ(0u, m_kernel.OpenFds());
}
