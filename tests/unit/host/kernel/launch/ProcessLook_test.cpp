#include "host/kernel/launch/ProcessLook.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/TestDir.h"

namespace {

const std::string NUL(1, '\0');

class ProcessLookTest : public testing::Test {
protected:
    // A process 12 in a /proc of the test's own.
    void MakeProcess(const std::string& strArgs) {
        m_dir.WriteFile("proc/12/cmdline", strArgs);
        m_dir.WriteFile("proc/12/stat", "12 (a) b) S 34 12 0");
        m_dir.WriteFile("proc/12/ns/mnt", "");
        const std::string strProgram = m_dir.WriteFile("program", "");
        ASSERT_EQ(0, symlink(strProgram.c_str(), (m_dir.Path() + "/proc/12/exe").c_str()));
        ASSERT_EQ(0, symlink("/srv", (m_dir.Path() + "/proc/12/cwd").c_str()));
    }
    ProcessState Look() const { return process_look::Look(12, m_dir.Path() + "/proc"); }

    TestDir m_dir;
};

}  // namespace

TEST_F(ProcessLookTest, AProcessIsDescribedAsProcHasIt) {
    MakeProcess("a" + NUL + "b" + NUL);
    struct stat status = {};
    ASSERT_EQ(0, stat((m_dir.Path() + "/program").c_str(), &status));

    const ProcessState state = Look();

    EXPECT_EQ("a" + NUL + "b" + NUL, state.strArgs);
    EXPECT_FALSE(state.bArgsCut);
    EXPECT_EQ(m_dir.Path() + "/program", state.strExe);
    EXPECT_EQ(status.st_ino, state.exe.nInode);
    EXPECT_EQ(major(status.st_dev) << 20 | minor(status.st_dev), state.exe.nDevice);
    EXPECT_EQ("/srv", state.strDirectory);
    EXPECT_EQ(34u, state.nParent);
    EXPECT_NE(0u, state.nMountNs);
}

TEST_F(ProcessLookTest, ArgumentsBeyond16KiBAreCut) {
    MakeProcess(std::string(16385, 'x'));

    const ProcessState state = Look();

    EXPECT_EQ(16384u, state.strArgs.size());
    EXPECT_TRUE(state.bArgsCut);
}

TEST_F(ProcessLookTest, AProcessThatIsGoneIsNotKnown) {
    const ProcessState state = Look();

    EXPECT_FALSE(state.exe.IsKnown());
    EXPECT_EQ("", state.strArgs);
    EXPECT_EQ(0u, state.nParent);
}

TEST_F(ProcessLookTest, ALinkToAFileWithoutANameHasNoPath) {
    const std::string strLink = m_dir.Path() + "/link";
    for (const char* pszTarget : {"/srv/a (deleted)", "pipe:[4]"}) {
        ASSERT_EQ(0, symlink(pszTarget, strLink.c_str()));
        EXPECT_EQ("", process_look::LinkOf(AT_FDCWD, strLink.c_str()));
        ASSERT_EQ(0, unlink(strLink.c_str()));
    }
}

TEST_F(ProcessLookTest, Arguments16KiBLongAreWhole) {
    MakeProcess(std::string(16384, 'x'));

    const ProcessState state = Look();

    EXPECT_EQ(16384u, state.strArgs.size());
    EXPECT_FALSE(state.bArgsCut);
}

TEST_F(ProcessLookTest, TheUserAndTheMountNamespaceAreThoseOfItsEntries) {
    MakeProcess("");
    const std::string strProcess = m_dir.Path() + "/proc/12";
    if (geteuid() == 0) {
        (void)!chown(strProcess.c_str(), 65533, 65533);
    }
    struct stat process = {}, space = {};
    ASSERT_EQ(0, stat(strProcess.c_str(), &process));
    ASSERT_EQ(0, stat((strProcess + "/ns/mnt").c_str(), &space));

    const ProcessState state = Look();

    EXPECT_EQ(process.st_uid, state.nUid);
    EXPECT_EQ(static_cast<uint32_t>(space.st_ino), state.nMountNs);
}

// A program names its threads as it likes.
TEST_F(ProcessLookTest, NoNameOfAProcessIsTakenForItsParent) {
    MakeProcess("");
    const std::pair<const char*, uint32_t> cases[] = {{"12 (a) S 1 (b) S 34 12 0", 34},
                                                      {"12 (\n) R 7) R 34 12", 34},
                                                      {"12 (a) S", 0},
                                                      {"12 (a)", 0},
                                                      {"12 a S 34", 0},
                                                      {"", 0},
                                                      {"12 (a) S 4294967295", 4294967295}};
    for (const auto& [pszStat, nParent] : cases) {
        m_dir.WriteFile("proc/12/stat", pszStat);
        EXPECT_EQ(nParent, Look().nParent) << pszStat;
    }
}

TEST_F(ProcessLookTest, AKernelThreadHasNeitherProgramNorDirectory) {
    MakeProcess("");
    std::filesystem::remove(m_dir.Path() + "/proc/12/exe");

    const ProcessState state = Look();

    EXPECT_FALSE(state.exe.IsKnown());
    EXPECT_EQ("", state.strExe);
    EXPECT_EQ("", state.strDirectory);
    EXPECT_EQ(34u, state.nParent);
}

TEST_F(ProcessLookTest, ALinkIsDeletedByItsWholeLastWordOnly) {
    const std::string strLink = m_dir.Path() + "/link";
    const std::pair<const char*, const char*> cases[] = {{"/a (deleted) ", "/a (deleted) "},
                                                         {"/a(deleted)", "/a(deleted)"},
                                                         {"/ (deleted)", ""},
                                                         {"/a (deleted) (deleted)", ""},
                                                         {" (deleted)", ""},
                                                         {"relative", ""},
                                                         {"(deleted)", ""},
                                                         {"/(deleted)x", "/(deleted)x"}};
    for (const auto& [pszTarget, pszPath] : cases) {
        ASSERT_EQ(0, symlink(pszTarget, strLink.c_str()));
        EXPECT_EQ(pszPath, process_look::LinkOf(AT_FDCWD, strLink.c_str())) << pszTarget;
        ASSERT_EQ(0, unlink(strLink.c_str()));
    }
    EXPECT_EQ("", process_look::LinkOf(AT_FDCWD, strLink.c_str()));
}

TEST_F(ProcessLookTest, OfAFileAsMuchIsReadAsWasAskedFor) {
    const std::string strFile = m_dir.WriteFile("file", "12345");

    EXPECT_EQ("1234", process_look::ReadFile(AT_FDCWD, strFile.c_str(), 4));
    EXPECT_EQ("12345", process_look::ReadFile(AT_FDCWD, strFile.c_str(), 5));
    EXPECT_EQ("12345", process_look::ReadFile(AT_FDCWD, strFile.c_str(), 100));
    EXPECT_EQ("", process_look::ReadFile(AT_FDCWD, strFile.c_str(), 0));
    EXPECT_EQ("", process_look::ReadFile(AT_FDCWD, (strFile + "none").c_str(), 100));
    EXPECT_EQ("", process_look::ReadFile(AT_FDCWD, m_dir.Path().c_str(), 100));
}

TEST_F(ProcessLookTest, ADeviceIsNumberedAsTheKernelDoes) {
    FileStatus status;
    status.st_ino = 5000000000;
    status.st_dev = makedev(259, 300);

    EXPECT_EQ((FileId{5000000000, 259U << 20 | 300}), process_look::IdOf(status));
    EXPECT_FALSE((FileId{5000000000, 259U << 20 | 301}) == process_look::IdOf(status));
    EXPECT_FALSE((FileId{5000000001, 259U << 20 | 300}) == process_look::IdOf(status));
}

TEST_F(ProcessLookTest, AFileIsTheSameInAnotherState) {
    FileStatus status;
    status.st_ino = 5;
    status.st_size = 100;
    status.st_ctim = {7, 9};
    status.nMountId = 31;
    const FileId id = process_look::IdOf(status);

    EXPECT_EQ(100u, id.nSize);
    EXPECT_EQ(7000000009, id.nChanged);
    EXPECT_EQ(31u, id.nMountId);
    EXPECT_EQ(FileId{5}, id);
}

TEST_F(ProcessLookTest, AFileIsKnownByWhereItsPathLeads) {
    const std::string strFile = m_dir.WriteFile("file", "");
    ASSERT_EQ(0, symlink(strFile.c_str(), (m_dir.Path() + "/link").c_str()));
    FileStatus status;
    ASSERT_TRUE(file_look::AtTarget(strFile, status));

    EXPECT_TRUE(process_look::FileOf(m_dir.Path() + "/link") == process_look::IdOf(status));
    EXPECT_FALSE(process_look::FileOf(m_dir.Path() + "/gone").IsKnown());
}
