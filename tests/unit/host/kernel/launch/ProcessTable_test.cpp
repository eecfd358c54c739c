#include "host/kernel/launch/ProcessTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <climits>
#include <map>

#include "tests/support/TestDir.h"
#include "tests/support/host/ProcessEvent.h"

namespace {

constexpr uint32_t NOBODY = 0x7ffffff0;  // beyond every process number
constexpr uint32_t DEVICE = 8U << 20 | 1;

class ProcessTableTest : public testing::Test {
protected:
    ProcessTableTest() {
        m_disk = {{"/bin/sh", 10}, {"/bin/rm", 20}, {"/bin/env", 30}};
        m_table.SetReportsStarts([](uint32_t nDevice) { return nDevice == DEVICE; });
        m_table.Tick(m_now);
    }

    void Exec(uint32_t nPid, const std::string& strPath, uint64_t nInode,
              uint32_t nDevice = DEVICE) {
        LaunchEvent event = ProcessEvent(LAUNCH_KIND_EXEC, nPid, 1);
        event.strPath = strPath;
        event.nInode = nInode;
        event.nDevice = nDevice;
        m_table.Note(event, strPath);
    }
    void Fork(uint32_t nParent, uint32_t nChild) {
        m_table.Note(ProcessEvent(LAUNCH_KIND_FORK, nChild, nParent), "");
    }
    void Exit(uint32_t nPid) { m_table.Note(ProcessEvent(LAUNCH_KIND_EXIT, nPid, 0), ""); }
    std::string Acting(uint32_t nPid, bool bNewest = false) {
        return m_table.ActingOf(nPid, bNewest).strPath;
    }

    std::map<std::string, uint64_t> m_disk;  // path -> inode
    uint32_t m_nDiskMinor = 1;
    ProcessTable::Clock::time_point m_now{std::chrono::hours(1)};
    ProcessTable m_table{[this](const std::string& strPath, struct stat& status) {
                             const auto found = m_disk.find(strPath);
                             if (found == m_disk.end()) {
                                 return false;
                             }
                             status.st_mode = S_IFREG | 0755;
                             status.st_ino = found->second;
                             status.st_dev = makedev(8, m_nDiskMinor);
                             return true;
                         },
                         "/nowhere"};
};

}  // namespace

TEST_F(ProcessTableTest, ACopyRunsItsParentsProgramUntilItStartsAnother) {
    Exec(NOBODY, "/bin/sh", 10);
    Fork(NOBODY, NOBODY + 1);

    EXPECT_EQ("/bin/sh", m_table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, NOBODY + 1)));
    Exec(NOBODY + 1, "/bin/rm", 20);
    EXPECT_EQ("/bin/rm", m_table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, NOBODY + 1)));
    EXPECT_EQ("/bin/sh", m_table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, NOBODY)));
}

TEST_F(ProcessTableTest, AStartCountsFromItsOpeningOn) {
    Exec(NOBODY, "/bin/sh", 10);
    Fork(NOBODY, 5);
    Exec(5, "/bin/rm", 20);

    EXPECT_EQ("/bin/sh", Acting(5));
    m_table.Opened(5, 20);
    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST_F(ProcessTableTest, AnOpeningMayBeReportedBeforeItsStartIsKnown) {
    Exec(5, "/bin/sh", 10);
    m_table.Opened(5, 20);

    EXPECT_EQ("/bin/sh", Acting(5));
    Exec(5, "/bin/rm", 20);
    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST_F(ProcessTableTest, OpeningsThatNoStartFollowsAreNoStarts) {
    Exec(5, "/bin/sh", 10);
    Exec(5, "/bin/env", 30);
    Exec(5, "/bin/rm", 20);
    for (const uint64_t nInode : {77U, 30U, 88U}) {  // a script, env, its loader
        m_table.Opened(5, nInode);
    }

    EXPECT_EQ("/bin/env", Acting(5));
    m_table.Opened(5, 20);
    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST_F(ProcessTableTest, TheLastActIsTheNewestImages) {
    Exec(5, "/bin/sh", 10);
    Exec(5, "/bin/rm", 20);

    EXPECT_EQ("/bin/sh", Acting(5, false));
    EXPECT_EQ("/bin/rm", Acting(5, true));
}

TEST_F(ProcessTableTest, AStartOnADeviceThatReportsNoOpeningsCountsAtOnce) {
    m_nDiskMinor = 9;
    Exec(5, "/bin/sh", 10, 8U << 20 | 9);
    Exec(5, "/bin/rm", 20, 8U << 20 | 9);

    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST_F(ProcessTableTest, WhatWasStartedBeforeTheOperationsWereReadCountsWithoutAnOpening) {
    Exec(5, "/bin/sh", 10);
    Exec(5, "/bin/env", 30);
    m_table.SetSettled(m_table.Noted());
    Exec(5, "/bin/rm", 20);

    EXPECT_EQ("/bin/env", Acting(5));
    m_table.SetSettled(m_table.Noted());
    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST_F(ProcessTableTest, InDoubtNobodyActs) {
    Exec(5, "/bin/sh", 10);
    m_table.SetDoubt(true);
    EXPECT_EQ("", Acting(5));
    EXPECT_EQ("", m_table.ActingOf(static_cast<uint32_t>(getpid()), false).strPath);

    m_table.SetDoubt(false);
    EXPECT_EQ("/bin/sh", Acting(5));
}

TEST_F(ProcessTableTest, WithoutAnExactSensorNobodyActsWhoMayHaveStartedAnotherProgram) {
    m_table.SetExact(false);
    Exec(NOBODY, "/bin/sh", 10);
    EXPECT_EQ("", Acting(NOBODY));
    m_table.SetSettled(m_table.Noted());
    EXPECT_EQ("/bin/sh", Acting(NOBODY));
    Fork(NOBODY, 5);
    EXPECT_EQ("", Acting(5));  // a copy, perhaps of another process than its parent
    Exec(5, "/bin/rm", 20);

    EXPECT_EQ("", Acting(5));
    EXPECT_EQ("", Acting(5, true));
    m_table.Opened(5, 20);  // perhaps by a start that failed
    EXPECT_EQ("", Acting(5));
    m_table.SetSettled(m_table.Noted());
    EXPECT_EQ("/bin/rm", Acting(5));
    Exec(5, "/bin/env", 30, DEVICE + 1);  // that reports no openings
    m_nDiskMinor = 2;
    EXPECT_EQ("", Acting(5));
    m_table.SetSettled(m_table.Noted());
    EXPECT_EQ("/bin/env", Acting(5));
}

TEST_F(ProcessTableTest, WithoutAnExactSensorALossOfOpeningsSettlesNothing) {
    m_table.SetExact(false);
    Exec(5, "/bin/sh", 10);
    m_table.SetSettled(m_table.Noted());
    Exec(5, "/bin/rm", 20);

    m_table.CatchUp();

    EXPECT_EQ("", Acting(5));
}

TEST_F(ProcessTableTest, AfterOpeningsWereLostTheNewestImageCounts) {
    Exec(5, "/bin/sh", 10);
    Exec(5, "/bin/rm", 20);
    m_table.CatchUp();

    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST_F(ProcessTableTest, AnEndedProcessIsKnownForHalfAMinute) {
    Exec(5, "/bin/rm", 20);
    Exit(5);
    m_table.Tick(m_now + std::chrono::seconds(30));
    EXPECT_EQ("/bin/rm", Acting(5));

    m_table.Tick(m_now + std::chrono::seconds(31));
    EXPECT_EQ("", Acting(5));
    EXPECT_EQ(0u, m_table.Size());
}

TEST_F(ProcessTableTest, ANumberThatIsUsedAgainOutlivesTheEndOfTheFirst) {
    Exec(5, "/bin/rm", 20);
    Exit(5);
    Exec(5, "/bin/sh", 10);
    m_table.Tick(m_now + std::chrono::seconds(60));

    EXPECT_EQ("/bin/sh", Acting(5));
}

TEST_F(ProcessTableTest, APathThatLeadsToAnotherFileByNowIsNotReported) {
    Exec(5, "/bin/rm", 20);
    m_disk["/bin/rm"] = 21;

    const ActingProgram program = m_table.ActingOf(5, false);
    EXPECT_EQ("", program.strPath);
    EXPECT_EQ("/bin/rm", program.strName);
}

TEST_F(ProcessTableTest, TheProcessesOwnLinkLeadsToAFileThatHasNoOtherName) {
    Exec(5, "/bin/rm", 20);
    m_disk.erase("/bin/rm");
    m_disk["/nowhere/5/exe"] = 20;

    EXPECT_EQ("/nowhere/5/exe", Acting(5));
    m_disk["/nowhere/5/exe"] = 10;  // it runs something else by now
    EXPECT_EQ("", Acting(5));
}

TEST_F(ProcessTableTest, NobodyKnowsAProcessThatWasNeverReported) {
    EXPECT_EQ("", Acting(5));
    EXPECT_EQ("", Acting(0));
    m_table.Opened(5, 20);
    EXPECT_EQ(0u, m_table.Size());
}

TEST_F(ProcessTableTest, ItHoldsABoundedNumberOfProcessesAndTheEndedGoFirst) {
    Exec(1, "/bin/sh", 10);
    for (uint32_t nPid = 2; nPid <= ProcessTable::MOST_PROCESSES + 10; ++nPid) {
        Exec(nPid, "/bin/rm", 20);
        Exit(nPid);
        ASSERT_LE(m_table.Size(), ProcessTable::MOST_PROCESSES);
    }

    EXPECT_EQ("/bin/sh", Acting(1));
    EXPECT_EQ("", Acting(2));
}

TEST_F(ProcessTableTest, ItBeginsAnewWhenNobodyEnds) {
    for (uint32_t nPid = 1; nPid <= ProcessTable::MOST_PROCESSES + 10; ++nPid) {
        Exec(nPid, "/bin/rm", 20);
        ASSERT_LE(m_table.Size(), ProcessTable::MOST_PROCESSES);
    }

    EXPECT_EQ(10u, m_table.Size());
}

TEST_F(ProcessTableTest, ManyStartsAndOpeningsOfOneProcessAreBounded) {
    for (int i = 0; i < 1000; ++i) {
        m_table.Opened(5, 77);
        Exec(5, "/bin/sh", 10);
        m_table.Opened(5, 88);
    }
    Exec(5, "/bin/rm", 20);
    m_table.Opened(5, 20);

    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST(ProcessTableProcTest, ProcessesFromBeforeAreSeededAndLookedUp) {
    char szSelf[PATH_MAX] = "";
    ASSERT_GT(readlink("/proc/self/exe", szSelf, sizeof(szSelf) - 1), 0);
    const auto nSelf = static_cast<uint32_t>(getpid());
    ProcessTable table;

    EXPECT_EQ(szSelf, table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, nSelf)));
    EXPECT_EQ(szSelf, table.ActingOf(nSelf, false).strPath);
    EXPECT_EQ(0u, table.Size());
    table.Seed();
    EXPECT_GE(table.Size(), 1u);
    EXPECT_EQ(szSelf, table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, nSelf)));
    EXPECT_EQ(szSelf, table.ActingOf(nSelf, false).strPath);
}

// What a process runs by now may not be what acted.
TEST(ProcessTableProcTest, WithoutAnExactSensorWhoIsNotKnownIsNotLookedUp) {
    const auto nSelf = static_cast<uint32_t>(getpid());
    ProcessTable table;
    table.SetExact(false);

    EXPECT_EQ("", table.ActingOf(nSelf, false).strPath);
    table.Seed();
    EXPECT_NE("", table.ActingOf(nSelf, false).strPath);
}

TEST(ProcessTableProcTest, MadeAnewItKnowsWhatRunsAndNothingElse) {
    const auto nSelf = static_cast<uint32_t>(getpid());
    ProcessTable table;
    LaunchEvent event = ProcessEvent(LAUNCH_KIND_EXEC, NOBODY, 1);
    event.strPath = "/bin/a";
    table.Note(event, "/bin/a");
    table.Note(ProcessEvent(LAUNCH_KIND_EXIT, NOBODY, 0), "");
    event.nPid = nSelf;
    table.Note(event, "/bin/a");

    table.Renew();

    EXPECT_EQ("", table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, NOBODY)));
    EXPECT_THAT(table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, nSelf)),
                testing::EndsWith("unit_host_kernel_launch"));
    table.Tick(ProcessTable::Clock::now() + std::chrono::hours(1));  // no end is left
    EXPECT_NE("", table.ActingOf(nSelf, false).strPath);
}

// 40,000 programs with names of 4 KiB and their paths, 16 to a process, would be 320 MB.
TEST_F(ProcessTableTest, LongNamesTakeBoundedMemoryAndTheNewestStay) {
    for (uint32_t nPid = 5; nPid < 2505; ++nPid) {
        for (int i = 0; i < 16; ++i) {
            Exec(nPid, "/" + std::string(4000, 'n') + std::to_string(nPid * 16 + i), 10);
        }
        Exit(nPid);
        ASSERT_LE(m_table.Bytes(), ProcessTable::MOST_BYTES + 8192 + sizeof(Image));
    }
    Exec(NOBODY, "/bin/rm", 20);

    EXPECT_GT(m_table.Size(), 400u);
    EXPECT_EQ("/bin/rm", Acting(NOBODY));
}

TEST_F(ProcessTableTest, LongNamesOfRunningProcessesAreForgottenTogether) {
    for (uint32_t nPid = 5; nPid < 20005; ++nPid) {
        Exec(nPid, "/" + std::string(4000, 'n') + std::to_string(nPid), 10);
        ASSERT_LE(m_table.Bytes(), ProcessTable::MOST_BYTES + 8192 + sizeof(Image));
    }

    EXPECT_GT(m_table.Size(), 0u);
}

TEST_F(ProcessTableTest, OfManyImagesTheOldestGoesAndTheActingOneStays) {
    for (uint64_t i = 0; i < 17; ++i) {
        m_disk["/bin/" + std::to_string(i)] = 100 + i;
        if (i < 16) {
            Exec(5, "/bin/" + std::to_string(i), 100 + i);
        }
    }
    ASSERT_EQ("/bin/0", Acting(5));
    m_table.Opened(5, 103);
    ASSERT_EQ("/bin/3", Acting(5));

    Exec(5, "/bin/16", 116);

    EXPECT_EQ("/bin/3", Acting(5));
    m_table.Opened(5, 116);
    EXPECT_EQ("/bin/16", Acting(5));
}

TEST_F(ProcessTableTest, SixtyFourOpeningsWaitForAStartAndTheOldestOfMoreIsForgotten) {
    for (const uint32_t nOthers : {63U, 64U}) {
        const uint32_t nPid = 1000 + nOthers;
        Exec(nPid, "/bin/sh", 10);
        m_table.Opened(nPid, 20);
        for (uint32_t i = 0; i < nOthers; ++i) {
            m_table.Opened(nPid, 77);
        }
        Exec(nPid, "/bin/rm", 20);
        EXPECT_EQ(nOthers == 63 ? "/bin/rm" : "/bin/sh", Acting(nPid)) << nOthers;
    }
}

TEST_F(ProcessTableTest, AnOpeningNeverLeadsBackAndTheSameProgramMayStartTwice) {
    Exec(5, "/bin/sh", 10);
    Exec(5, "/bin/rm", 20);
    m_table.Opened(5, 20);
    ASSERT_EQ("/bin/rm", Acting(5));

    m_table.Opened(5, 10);
    EXPECT_EQ("/bin/rm", Acting(5));

    Exec(5, "/bin/sh", 10);  // the opening that waits is its own
    EXPECT_EQ("/bin/sh", Acting(5));
}

TEST_F(ProcessTableTest, OpeningsBeforeOneThatWasAStartAreForgotten) {
    Exec(5, "/bin/sh", 10);
    Exec(5, "/bin/env", 30);
    m_table.Opened(5, 88);  // a script
    m_table.Opened(5, 20);  // a start that failed
    m_table.Opened(5, 30);
    ASSERT_EQ("/bin/env", Acting(5));

    Exec(5, "/bin/rm", 20);

    EXPECT_EQ("/bin/env", Acting(5));
}

TEST_F(ProcessTableTest, OpeningsFromBeforeALossAreForgotten) {
    Exec(5, "/bin/sh", 10);
    m_table.Opened(5, 20);
    m_table.CatchUp();
    Exec(5, "/bin/rm", 20);

    EXPECT_EQ("/bin/sh", Acting(5));
}

TEST_F(ProcessTableTest, ACopyOfAProcessThatNobodyKnowsIsNotTheOneBeforeIt) {
    Exec(6, "/bin/rm", 20);

    Fork(NOBODY, 6);

    EXPECT_EQ("", Acting(6));
    EXPECT_EQ(0u, m_table.Size());
}

TEST_F(ProcessTableTest, AnEndThatIsReportedTwiceCountsFromTheSecond) {
    Exec(5, "/bin/rm", 20);
    Exit(5);
    m_table.Tick(m_now + std::chrono::seconds(20));
    Exit(5);
    Exit(NOBODY);

    m_table.Tick(m_now + std::chrono::seconds(50));
    EXPECT_EQ("/bin/rm", Acting(5));
    m_table.Tick(m_now + std::chrono::seconds(51));
    EXPECT_EQ(0u, m_table.Size());
}

TEST_F(ProcessTableTest, ThePathOfTheLaunchComesBeforeTheKernelsSpelling) {
    LaunchEvent event = ProcessEvent(LAUNCH_KIND_EXEC, 5, 1);
    event.strPath = "/usr/bin/rm";
    event.nDevice = DEVICE;
    event.nInode = 20;
    m_disk["/usr/bin/rm"] = 20;
    m_table.Note(event, "/bin/rm");
    EXPECT_EQ("/bin/rm", Acting(5));

    m_disk["/bin/rm"] = 21;  // somebody put another file there

    EXPECT_EQ("/usr/bin/rm", Acting(5));
    EXPECT_EQ("/usr/bin/rm", m_table.ActingOf(5, false).strName);
}

// Whoever starts a program chooses its name and its directory.
TEST_F(ProcessTableTest, ARelativeNameIsShownAndNeverFollowed) {
    LaunchEvent event = ProcessEvent(LAUNCH_KIND_EXEC, 5, 1);
    event.strName = "bin/rm";
    event.nDevice = DEVICE;
    event.nInode = 20;
    m_disk["bin/rm"] = 20;
    m_table.Note(event, "");

    EXPECT_EQ("", Acting(5));
    EXPECT_EQ("bin/rm", m_table.ActingOf(5, false).strName);
}

TEST_F(ProcessTableTest, WithoutKnowledgeOfOpeningsTheNewestImageActs) {
    ProcessTable table([](const std::string& strPath, struct stat& status) {
        status.st_mode = S_IFREG | 0755;
        status.st_ino = strPath == "/bin/sh" ? 10 : 20;
        status.st_dev = makedev(8, 1);
        return true;
    });
    for (const auto& [strPath, nInode] : {std::pair<std::string, uint64_t>{"/bin/sh", 10},
                                          std::pair<std::string, uint64_t>{"/bin/rm", 20}}) {
        LaunchEvent event = ProcessEvent(LAUNCH_KIND_EXEC, 5, 1);
        event.strPath = strPath;
        event.nDevice = DEVICE;
        event.nInode = nInode;
        table.Note(event, strPath);
    }

    EXPECT_EQ("/bin/rm", table.ActingOf(5, false).strPath);
}

TEST_F(ProcessTableTest, AnImageThatProcessesShareTakesItsMemoryOnceAndGivesItBack) {
    EXPECT_EQ(0u, m_table.Bytes());
    Exec(5, "/bin/sh", 10);
    const size_t nOne = m_table.Bytes();
    EXPECT_EQ(sizeof(Image) + 14, nOne);

    Fork(5, 6);
    EXPECT_EQ(nOne, m_table.Bytes());
    Exit(5);
    m_table.Tick(m_now + std::chrono::minutes(1));
    EXPECT_EQ(nOne, m_table.Bytes());

    Exit(6);
    m_table.Tick(m_now + std::chrono::minutes(2));
    EXPECT_EQ(0u, m_table.Bytes());
}

TEST(ProcessTableProcTest, OnlyNumbersWithAProgramAreSeededAndWhatIsKnownStays) {
    const TestDir dir;
    const std::string strTool = dir.WriteFile("tool", "");
    for (const char* pszName : {"12", "13", "0", "self", "14"}) {
        dir.WriteFile(std::string("proc/") + pszName + "/stat", "");
        if (std::string(pszName) != "14") {  // a kernel thread
            const std::string strLink = dir.Path() + "/proc/" + pszName + "/exe";
            ASSERT_EQ(0, symlink(strTool.c_str(), strLink.c_str()));
        }
    }
    ProcessTable table({}, dir.Path() + "/proc");
    LaunchEvent event = ProcessEvent(LAUNCH_KIND_EXEC, 13, 1);
    event.strPath = "/bin/known";
    table.Note(event, "/bin/known");

    table.Seed();

    EXPECT_EQ(2u, table.Size());
    EXPECT_EQ(strTool, table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, 12)));
    EXPECT_EQ("/bin/known", table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, 13)));
    EXPECT_EQ("", table.StarterOf(ProcessEvent(LAUNCH_KIND_EXEC, 5, 14)));
    EXPECT_EQ("", table.ActingOf(0, false).strPath);
    ProcessTable without({}, dir.Path() + "/none");
    without.Seed();
    EXPECT_EQ(0u, without.Size());
}
