#include "host/kernel/launch/ProcessLook.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

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
