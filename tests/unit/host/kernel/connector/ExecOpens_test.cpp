#include "host/kernel/connector/ExecOpens.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tests/support/NoPrivilege.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/ExecNoticeBytes.h"
#include "tests/support/kernel/FakeKernel.h"

using namespace exec_open_bytes;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ExecOpensTest : public testing::Test {
protected:
    void SetMounts(const std::string& strTable) {
        m_kernel.paths["/proc/self/mountinfo"] = m_dir.WriteFile("mountinfo", strTable);
    }
    void Open() {
        std::string strError;
        ASSERT_TRUE(m_opens.Open(strError)) << strError;
    }
    // A descriptor as the kernel hands it out with an event: the sensor's to close.
    int FdOf(const std::string& strName, const std::string& strContent) {
        return OpenFile(m_dir.WriteFile(strName, strContent));
    }
    int OpenFile(const std::string& strPath) {
        m_fds.push_back(open(strPath.c_str(), O_RDONLY | O_CLOEXEC));
        return m_fds.back();
    }
    void Read(const std::vector<FakeKernel::Told>& events) {
        m_kernel.Tell({}, events);
        m_opens.Read();
    }
    // The names of the files opened for process nPid, without their directory.
    std::vector<std::string> Names(uint32_t nPid) {
        std::vector<std::string> names;
        for (const OpenedFile& file : m_opens.Take(nPid)) {
            names.push_back(file.strPath.substr(file.strPath.rfind('/') + 1));
        }
        return names;
    }
    bool AllClosed() const {
        for (const int nFd : m_fds) {
            if (fcntl(nFd, F_GETFD) != -1) {
                return false;
            }
        }
        return !m_fds.empty();
    }

    FakeKernel m_kernel;
    TestDir m_dir;
    ExecOpens m_opens;
    std::vector<int> m_fds;
};

// The head of a program whose loader is named nAt bytes from its beginning.
std::string ElfWithLoaderAt(size_t nAt, const std::string& strLoader) {
    std::string strBytes = ElfHead(strLoader);
    Elf64_Phdr entry = {};
    std::memcpy(&entry, &strBytes[sizeof(Elf64_Ehdr)], sizeof(entry));
    entry.p_offset = nAt;
    std::memcpy(&strBytes[sizeof(Elf64_Ehdr)], &entry, sizeof(entry));
    strBytes.resize(nAt);
    return strBytes + strLoader + std::string(1, '\0');
}

std::string DeviceOf(const std::string& strPath) {
    struct stat status = {};
    EXPECT_EQ(0, stat(strPath.c_str(), &status));
    return std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev));
}

}  // namespace

TEST(ExecOpensDeathTest, WithoutPrivilegeItSaysWhatIsMissing) {
    ExecOpens opens;
    EXPECT_EXIT(OpenWithoutPrivilege(opens), testing::ExitedWithCode(REFUSED_WITHOUT_PRIVILEGE),
                "refuses to report executed files: .*CAP_SYS_ADMIN");
}

TEST_F(ExecOpensTest, OfAProcessThatOpenedNothingThereIsNothing) {
    EXPECT_TRUE(m_opens.Take(1).empty());
    EXPECT_EQ("", m_opens.Unmarked());
}

TEST_F(ExecOpensTest, EveryLocalFileSystemIsMarkedOnceForExecutedFiles) {
    const std::string& strDir = m_dir.Path();
    SetMounts("1 0 " + DeviceOf(strDir) + " / " + strDir + " rw - ext4 x rw\n2 1 " +
              DeviceOf(strDir) + " /below /again rw - ext4 x rw\n" +
              "3 1 0:5 / /proc rw - proc x rw\n4 1 0:6 / /net rw - nfs4 x rw\n");

    Open();

    const std::vector<FakeKernel::Mark> marks = m_kernel.Marks();
    ASSERT_EQ(1u, marks.size());
    EXPECT_EQ(strDir, marks[0].strPath);
    EXPECT_EQ(unsigned{FAN_MARK_ADD | FAN_MARK_FILESYSTEM}, marks[0].nFlags);
    EXPECT_EQ(uint64_t{FAN_OPEN_EXEC}, marks[0].nMask);
    EXPECT_EQ("", m_opens.Unmarked());
}

TEST_F(ExecOpensTest, FileSystemsThatCannotBeMarkedAreNamedUntilTheyCan) {
    SetMounts("1 0 8:1 / /one rw - ext4 x rw\n2 1 8:2 / /two rw - btrfs x rw\n");
    m_kernel.markErrors = {{"/one", EXDEV}, {"/two", EXDEV}};
    Open();
    EXPECT_EQ("/one, /two", m_opens.Unmarked());

    m_kernel.markErrors.erase("/one");
    m_opens.Read();
    EXPECT_EQ("/one, /two", m_opens.Unmarked());  // nothing was mounted since

    m_kernel.ChangeMounts();
    m_opens.Read();
    EXPECT_EQ("/two", m_opens.Unmarked());
}

TEST_F(ExecOpensTest, FilesAreKeptByProcessWithTheirKindAndInterpreterUntilTheyAreTaken) {
    Open();
    Read({{Opened(20, FdOf("script", "#!/bin/sh -e\nexit\n")) +
           Opened(20, FdOf("program", ElfHead("/lib64/ld.so"))) +
           Opened(21, FdOf("text", "no program"))}});

    const std::vector<OpenedFile> files = m_opens.Take(20);
    ASSERT_EQ(2u, files.size());
    EXPECT_EQ(m_dir.Path() + "/script", files[0].strPath);
    EXPECT_EQ(OPENED_SCRIPT, files[0].eKind);
    EXPECT_EQ("/bin/sh", files[0].strInterp);
    EXPECT_EQ(OPENED_PROGRAM, files[1].eKind);
    EXPECT_EQ("/lib64/ld.so", files[1].strInterp);
    FileStatus status;
    ASSERT_TRUE(file_look::AtTarget(m_dir.Path() + "/program", status));
    EXPECT_EQ(process_look::IdOf(status), files[1].id);
    EXPECT_EQ(status.Changed(), files[1].id.nChanged);
    EXPECT_THAT(m_opens.Take(20), IsEmpty());
    EXPECT_THAT(Names(21), ElementsAre("text"));
    EXPECT_TRUE(AllClosed());
}

TEST_F(ExecOpensTest, AFileThatLostItsNameHasNoPathAndIsStillKnownByItsNumbers) {
    Open();
    const int nFd = FdOf("gone", ElfHead(""));
    ASSERT_EQ(0, unlink((m_dir.Path() + "/gone").c_str()));
    Read({{Opened(20, nFd)}});

    const std::vector<OpenedFile> files = m_opens.Take(20);
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ("", files[0].strPath);
    EXPECT_TRUE(files[0].id.IsKnown());
    EXPECT_EQ(OPENED_PROGRAM, files[0].eKind);
}

TEST_F(ExecOpensTest, WhatIsNoFileIsClosedAndForgotten) {
    Open();
    Read({{Opened(20, OpenFile(m_dir.Path())) + Opened(20, OpenFile("/dev/null")) +
           Opened(20, FAN_NOFD)}});

    EXPECT_THAT(m_opens.Take(20), IsEmpty());
    EXPECT_TRUE(AllClosed());
}

TEST_F(ExecOpensTest, AnEmptyFileIsNoProgram) {
    Open();
    Read({{Opened(20, FdOf("empty", ""))}});

    const std::vector<OpenedFile> files = m_opens.Take(20);
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(OPENED_OTHER, files[0].eKind);
}

TEST_F(ExecOpensTest, AfterAnOverflowWhatWasKeptIsForgottenAndWhatFollowsIsNot) {
    Open();
    Read({{Opened(20, FdOf("before", "x")) + Overflow() + Opened(20, FdOf("after", "x"))}});

    EXPECT_THAT(Names(20), ElementsAre("after"));
    EXPECT_TRUE(AllClosed());
}

TEST_F(ExecOpensTest, ALengthThatCannotBeEndsTheReadingOfThatPieceOnly) {
    const int32_t nWhole = sizeof(fanotify_event_metadata);
    for (const uint32_t nLength : {0u, 23u, 0xffffffffu}) {
        ExecOpens opens;
        std::string strError;
        ASSERT_TRUE(opens.Open(strError));
        std::string strBad = Opened(20, FAN_NOFD);
        std::memcpy(&strBad[0], &nLength, sizeof(nLength));
        const std::string strCut = Opened(20, FAN_NOFD).substr(0, nWhole - 1);
        m_kernel.Tell({}, {{Opened(20, FdOf("first", "x")) + strBad},
                           {strCut},
                           {Opened(20, FdOf("second", "x"))}});

        opens.Read();

        EXPECT_EQ(2u, opens.Take(20).size()) << nLength;
    }
    EXPECT_TRUE(AllClosed());
}

TEST_F(ExecOpensTest, AFileThatTheKernelCouldNotOpenDoesNotHideTheNext) {
    for (const int nError : {ENOENT, EMFILE, ETXTBSY, EINTR}) {
        ExecOpens opens;
        std::string strError;
        ASSERT_TRUE(opens.Open(strError));
        m_kernel.Tell({}, {{"", nError}, {Opened(20, FdOf("next", "x"))}});

        opens.Read();

        EXPECT_EQ(1u, opens.Take(20).size()) << nError;
    }
}

TEST_F(ExecOpensTest, WhatEndsTheQueueEndsTheReading) {
    for (const int nError : {EAGAIN, EBADF, EINVAL, 0}) {
        ExecOpens opens;
        std::string strError;
        ASSERT_TRUE(opens.Open(strError));
        m_kernel.Tell({}, {{"", nError}, {Opened(20, FdOf("next", "x"))}});

        opens.Read();
        EXPECT_THAT(opens.Take(20), IsEmpty()) << nError;

        opens.Read();
        EXPECT_EQ(1u, opens.Take(20).size()) << nError;
    }
}

TEST_F(ExecOpensTest, OfOneProcessTheLastFilesAreKept) {
    Open();
    std::string strEvents;
    for (int i = 0; i < 66; ++i) {
        strEvents += Opened(20, FdOf("file" + std::to_string(i), "x"));
    }
    Read({{strEvents}});

    const std::vector<std::string> names = Names(20);
    ASSERT_EQ(64u, names.size());
    EXPECT_EQ("file2", names.front());
    EXPECT_EQ("file65", names.back());
}

TEST_F(ExecOpensTest, TheNumberOfProcessesIsBounded) {
    Open();
    const std::string strPath = m_dir.WriteFile("file", "x");
    for (int32_t nPid = 1; nPid <= 4096; ++nPid) {
        Read({{Opened(nPid, OpenFile(strPath))}});
    }
    Read({{Opened(4096, OpenFile(strPath))}});  // one that is known
    EXPECT_EQ(1u, m_opens.Take(1).size());
    Read({{Opened(1, OpenFile(strPath))}});

    Read({{Opened(5000, OpenFile(strPath))}});

    EXPECT_THAT(m_opens.Take(4096), IsEmpty());
    EXPECT_EQ(1u, m_opens.Take(5000).size());
}

TEST_F(ExecOpensTest, AProcessThatEndedIsForgotten) {
    Open();
    Read({{Opened(20, FdOf("a", "x")) + Opened(21, FdOf("b", "x"))}});

    m_opens.Forget(20);

    EXPECT_THAT(m_opens.Take(20), IsEmpty());
    EXPECT_THAT(Names(21), ElementsAre("b"));
}

TEST_F(ExecOpensTest, TheGroupOnlyReportsNeverWaitsAndIsNoChilds) {
    SetMounts("not a table\n");
    Open();

    EXPECT_EQ(std::vector<unsigned>{FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK},
              m_kernel.GroupFlags());
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == m_dir.Path() + "/mountinfo") {
            EXPECT_EQ(FD_CLOEXEC, fcntl(std::stoi(entry.path().filename()), F_GETFD));
        }
    }
}

TEST_F(ExecOpensTest, AMountThatAnotherOneHidesCountsAsTheOneItsPathLeadsTo) {
    const std::string& strDir = m_dir.Path();
    SetMounts("1 0 9:9 / " + strDir + " rw - ext4 x rw\n2 1 " + DeviceOf(strDir) +
              " / /same rw - ext4 x rw\n3 1 9:9 / /hidden rw - ext4 x rw\n");

    Open();

    const std::vector<FakeKernel::Mark> marks = m_kernel.Marks();
    ASSERT_EQ(2u, marks.size());
    EXPECT_EQ(strDir, marks[0].strPath);
    EXPECT_EQ("/hidden", marks[1].strPath);
}

// Anybody who may mount in a namespace of his own makes the table long.
TEST_F(ExecOpensTest, ALongTableOfMountsIsReadToItsEnd) {
    std::string strTable;
    for (int i = 0; i < 2000; ++i) {
        strTable += "1 0 0:5 / /proc/" + std::to_string(i) + " rw - proc x rw\n";
    }
    SetMounts(strTable + "2 1 8:1 / /last rw - ext4 x rw\n");

    Open();

    const std::vector<FakeKernel::Mark> marks = m_kernel.Marks();
    ASSERT_EQ(1u, marks.size());
    EXPECT_EQ("/last", marks[0].strPath);
}

TEST_F(ExecOpensTest, ALoaderIsKnownAsFarAsItsNameStandsInTheFirstTwoKiB) {
    Open();
    Read({{Opened(20, FdOf("near", ElfWithLoaderAt(2040, "/lib/ld"))) +
           Opened(20, FdOf("cut", ElfWithLoaderAt(2044, "/lib/ld"))) +
           Opened(20, FdOf("far", ElfWithLoaderAt(2048, "/lib/ld")))}});

    const std::vector<OpenedFile> files = m_opens.Take(20);
    ASSERT_EQ(3u, files.size());
    EXPECT_EQ("/lib/ld", files[0].strInterp);
    EXPECT_EQ("/lib", files[1].strInterp);
    EXPECT_EQ("", files[2].strInterp);
    EXPECT_EQ(OPENED_PROGRAM, files[2].eKind);
}

TEST_F(ExecOpensTest, AsManyEventsAsTheKernelHasAreTakenAtOnce) {
    Open();
    std::string strEvents;
    for (int i = 0; i < 681; ++i) {
        strEvents += Opened(20, FAN_NOFD);
    }
    strEvents += Opened(20, FdOf("last", "x"));
    ASSERT_EQ(16368u, strEvents.size());  // one more would not fit

    Read({{strEvents}});

    EXPECT_THAT(Names(20), ElementsAre("last"));
}

TEST_F(ExecOpensTest, AnEventThatIsShorterThanItsHeadIsNone) {
    Open();
    const int nFd = FdOf("short", "x");
    std::string strShort = Opened(20, nFd);
    strShort[0] = 23;  // the low byte of its length

    Read({{strShort}});

    EXPECT_THAT(m_opens.Take(20), IsEmpty());
    EXPECT_FALSE(AllClosed());
    (void)close(nFd);
}

TEST_F(ExecOpensTest, AnEventThatIsLongerThanItsHeadIsFollowedByTheNext) {
    Open();
    std::string strLong = Opened(20, FdOf("long", "x")) + std::string(16, '\xff');
    strLong[0] = static_cast<char>(strLong.size());

    Read({{strLong + Opened(20, FdOf("next", "x"))}});

    EXPECT_THAT(Names(20), ElementsAre("long", "next"));
    EXPECT_TRUE(AllClosed());
}

TEST_F(ExecOpensTest, AFileMayHaveTheFirstDescriptorAndStandAnywhere) {
    Open();
    const int nSaved = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nFile = FdOf("script", "#!/bin/sh\n");
    ASSERT_EQ(5, lseek(nFile, 5, SEEK_SET));
    ASSERT_EQ(STDIN_FILENO, dup2(nFile, STDIN_FILENO));

    Read({{Opened(20, STDIN_FILENO)}});
    const bool bClosed = fcntl(STDIN_FILENO, F_GETFD) == -1;
    (void)dup2(nSaved, STDIN_FILENO);

    const std::vector<OpenedFile> files = m_opens.Take(20);
    EXPECT_TRUE(bClosed);
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ("/bin/sh", files[0].strInterp);
    (void)close(nFile);
    (void)close(nSaved);
}

TEST_F(ExecOpensTest, AFileThatCannotBeReadIsKnownByItsNumbersAlone) {
    Open();
    const int nFd = open(m_dir.WriteFile("closed", "#!/bin/sh\n").c_str(), O_WRONLY | O_CLOEXEC);

    Read({{Opened(20, nFd)}});

    const std::vector<OpenedFile> files = m_opens.Take(20);
    ASSERT_EQ(1u, files.size());
    EXPECT_TRUE(files[0].id.IsKnown());
    EXPECT_EQ(OPENED_OTHER, files[0].eKind);
    EXPECT_EQ(-1, fcntl(nFd, F_GETFD));
}

TEST_F(ExecOpensTest, ANumberOfAProcessHasThirtyTwoBits) {
    Open();
    Read({{Opened(70000, FdOf("a", "x")) + Opened(4464, FdOf("b", "x"))}});

    EXPECT_THAT(Names(70000), ElementsAre("a"));
    EXPECT_THAT(Names(4464), ElementsAre("b"));
}

TEST_F(ExecOpensTest, WhatWasTakenLeavesRoomForOtherProcesses) {
    Open();
    const std::string strPath = m_dir.WriteFile("file", "x");
    Read({{Opened(1, OpenFile(strPath))}});
    for (int32_t nPid = 2; nPid <= 4200; ++nPid) {
        Read({{Opened(nPid, OpenFile(strPath))}});
        ASSERT_EQ(1u, m_opens.Take(static_cast<uint32_t>(nPid)).size());
    }

    EXPECT_EQ(1u, m_opens.Take(1).size());
}

TEST_F(ExecOpensTest, AnEmptyReadEndsTheReadingWhateverErrorCameBefore) {
    Open();
    m_kernel.Tell({}, {{""}, {Opened(20, FdOf("next", "x"))}});

    errno = ENOENT;
    m_opens.Read();
    EXPECT_THAT(m_opens.Take(20), IsEmpty());

    m_opens.Read();
    EXPECT_THAT(Names(20), ElementsAre("next"));
}

// A lease on a file would keep its opening waiting for whoever holds it.
TEST_F(ExecOpensTest, OpeningAFileWaitsForNobody) {
    Open();

    ASSERT_EQ(1u, m_kernel.FileFlags().size());
    EXPECT_NE(0u, m_kernel.FileFlags()[0] & O_NONBLOCK);
}

TEST_F(ExecOpensTest, AFileThatCannotBeOpenedAtOnceKeepsNoneOfTheNextBack) {
    m_kernel.bPolled = true;
    Open();

    Read({{"", EAGAIN}, {"", EAGAIN}, {Opened(5, FdOf("next", "x"))}});

    EXPECT_THAT(Names(5), ElementsAre("next"));
}

TEST_F(ExecOpensTest, WhoOpensFasterThanItReadsDoesNotHoldIt) {
    Open();
    std::vector<FakeKernel::Told> events;
    for (int i = 0; i < 100; ++i) {
        events.push_back({Opened(5 + i, FdOf("file", "x"))});
    }

    Read(events);
    EXPECT_THAT(Names(5 + 63), ElementsAre("file"));
    EXPECT_THAT(Names(5 + 99), IsEmpty());
    Read({});

    EXPECT_THAT(Names(5 + 99), ElementsAre("file"));
}
