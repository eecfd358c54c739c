#include "host/kernel/launch/ProcessTable.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <climits>
#include <map>

namespace {

constexpr uint32_t NOBODY = 0x7ffffff0;  // beyond every process number
constexpr uint32_t DEVICE = 8U << 20 | 1;

LaunchEvent Event(LaunchKind eKind, uint32_t nPid, uint32_t nPpid) {
    LaunchEvent event;
    event.eKind = eKind;
    event.nPid = nPid;
    event.nPpid = nPpid;
    return event;
}

class ProcessTableTest : public testing::Test {
protected:
    ProcessTableTest() {
        m_disk = {{"/bin/sh", 10}, {"/bin/rm", 20}, {"/bin/env", 30}};
        m_table.SetTellsStarts([](uint32_t nDevice) { return nDevice == DEVICE; });
        m_table.Tick(m_now);
    }

    void Exec(uint32_t nPid, const std::string& strPath, uint64_t nInode,
              uint32_t nDevice = DEVICE) {
        LaunchEvent event = Event(LAUNCH_KIND_EXEC, nPid, 1);
        event.strPath = strPath;
        event.nInode = nInode;
        event.nDevice = nDevice;
        m_table.Note(event, strPath);
    }
    void Fork(uint32_t nParent, uint32_t nChild) {
        m_table.Note(Event(LAUNCH_KIND_FORK, nChild, nParent), "");
    }
    void Exit(uint32_t nPid) { m_table.Note(Event(LAUNCH_KIND_EXIT, nPid, 0), ""); }
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

    EXPECT_EQ("/bin/sh", m_table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, NOBODY + 1)));
    Exec(NOBODY + 1, "/bin/rm", 20);
    EXPECT_EQ("/bin/rm", m_table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, NOBODY + 1)));
    EXPECT_EQ("/bin/sh", m_table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, NOBODY)));
}

TEST_F(ProcessTableTest, AStartCountsFromItsOpeningOn) {
    Exec(NOBODY, "/bin/sh", 10);
    Fork(NOBODY, 5);
    Exec(5, "/bin/rm", 20);

    EXPECT_EQ("/bin/sh", Acting(5));
    m_table.Opened(5, 20);
    EXPECT_EQ("/bin/rm", Acting(5));
}

TEST_F(ProcessTableTest, AnOpeningMayBeToldBeforeItsStartIsKnown) {
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

TEST_F(ProcessTableTest, AStartOnADeviceThatTellsNoOpeningsCountsAtOnce) {
    m_nDiskMinor = 9;
    Exec(5, "/bin/sh", 10, 8U << 20 | 9);
    Exec(5, "/bin/rm", 20, 8U << 20 | 9);

    EXPECT_EQ("/bin/rm", Acting(5));
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

TEST_F(ProcessTableTest, APathThatLeadsToAnotherFileByNowIsNotTold) {
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

TEST_F(ProcessTableTest, NobodyKnowsAProcessThatWasNeverTold) {
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

    EXPECT_EQ(szSelf, table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, nSelf)));
    EXPECT_EQ(szSelf, table.ActingOf(nSelf, false).strPath);
    EXPECT_EQ(0u, table.Size());
    table.Seed();
    EXPECT_GE(table.Size(), 1u);
    EXPECT_EQ(szSelf, table.StarterOf(Event(LAUNCH_KIND_EXEC, 5, nSelf)));
    EXPECT_EQ(szSelf, table.ActingOf(nSelf, false).strPath);
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
