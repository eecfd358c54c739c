#include "host/process/StateDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "framework/base/CDir.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

unsigned Mode(const std::string& strPath) {
    struct stat status = {};
    return stat(strPath.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class StateDirTest : public testing::Test {
protected:
    ~StateDirTest() override { umask(m_nUmask); }

    bool Enter(const std::string& strPath) { return m_stateDir.Enter(strPath, m_strError); }

    TestDir m_dir;
    const mode_t m_nUmask = umask(022);
    StateDir m_stateDir;
    std::string m_strError;
};

}  // namespace

TEST_F(StateDirTest, EverythingIsMadePrivateWithItsParents) {
    const std::string strPath = m_dir.Path() + "/a/b/state";

    ASSERT_TRUE(Enter(strPath)) << m_strError;

    for (const char* pszPart : {"", "/data", "/data/db", "/run"}) {
        EXPECT_EQ(0700u, Mode(strPath + pszPart)) << pszPart;
    }
    EXPECT_EQ(0600u, Mode(strPath + "/lock"));
    EXPECT_EQ(0700u, Mode(m_dir.Path() + "/a"));
}

TEST_F(StateDirTest, TheProcessWorksInRunAndMakesPrivateFiles) {
    const std::string strPath = m_dir.Path() + "/state";

    ASSERT_TRUE(Enter(strPath));

    EXPECT_EQ(std::filesystem::canonical(strPath + "/run").string() + "/", CDir::currentDir());
    EXPECT_EQ(0700u, Mode("../data/db"));
    EXPECT_EQ(077u, umask(077));
}

TEST_F(StateDirTest, ASecondHostIsToldWhoHoldsTheDirectory) {
    const std::string strPath = m_dir.Path() + "/state";
    ASSERT_TRUE(Enter(strPath));

    StateDir second;
    EXPECT_FALSE(second.Enter(strPath, m_strError));

    EXPECT_EQ("the state directory " + strPath + " is in use by process " +
                  std::to_string(getpid()) + "; stop that one, or choose another with --state-dir",
              m_strError);
}

TEST_F(StateDirTest, TheLockGoesWithItsHolder) {
    const std::string strPath = m_dir.Path() + "/state";
    auto pFirst = std::make_unique<StateDir>();
    ASSERT_TRUE(pFirst->Enter(strPath, m_strError));

    pFirst.reset();

    EXPECT_TRUE(Enter(strPath)) << m_strError;
}

TEST_F(StateDirTest, ADirectoryThatOthersMayWriteIsRefused) {
    const std::string strPath = m_dir.Path() + "/open";
    std::filesystem::create_directory(strPath);
    std::filesystem::permissions(strPath, std::filesystem::perms::all);

    EXPECT_FALSE(Enter(strPath));

    EXPECT_THAT(m_strError, HasSubstr("chmod 700"));
}

TEST_F(StateDirTest, AParentThatOthersMayWriteIsRefusedUnlessItIsSticky) {
    using std::filesystem::perms;
    const std::string strParent = m_dir.Path() + "/shared";
    std::filesystem::create_directory(strParent);
    std::filesystem::permissions(strParent, perms::all);

    EXPECT_FALSE(Enter(strParent + "/a/state"));
    EXPECT_THAT(m_strError, HasSubstr("others may write to " + strParent + ","));

    std::filesystem::permissions(strParent, perms::all | perms::sticky_bit);
    EXPECT_TRUE(Enter(strParent + "/a/state")) << m_strError;
}

TEST_F(StateDirTest, WhatARunWouldRefuseOnTheWayIsNotUsable) {
    const std::string strParent = m_dir.Path() + "/shared";
    ASSERT_EQ(0, mkdir(strParent.c_str(), 0777));
    ASSERT_EQ(0, chmod(strParent.c_str(), 0777));
    std::string strText;

    EXPECT_FALSE(StateDir::IsUsable(strParent + "/state", strText));
    EXPECT_FALSE(Enter(strParent + "/state"));

    EXPECT_EQ(m_strError, strText);
}

TEST_F(StateDirTest, ALinkOnTheWayIsFollowedAndWhereItLeadsIsLookedAt) {
    using std::filesystem::perms;
    const std::string strTarget = m_dir.Path() + "/target";
    std::filesystem::create_directories(strTarget + "/deep");
    std::filesystem::create_directory_symlink(strTarget + "/deep", m_dir.Path() + "/link");
    std::filesystem::permissions(strTarget, perms::all);

    EXPECT_FALSE(Enter(m_dir.Path() + "/link/state"));
    EXPECT_THAT(m_strError, HasSubstr(strTarget + ","));

    std::filesystem::permissions(strTarget, perms::owner_all);
    EXPECT_TRUE(Enter(m_dir.Path() + "/link/state")) << m_strError;
}

TEST_F(StateDirTest, AFileInTheWayIsNamed) {
    const std::string strFile = m_dir.WriteFile("file", "");

    EXPECT_FALSE(Enter(strFile));
    EXPECT_THAT(m_strError, HasSubstr(strFile + ": Not a directory"));
    EXPECT_FALSE(Enter(strFile + "/state"));
    EXPECT_THAT(m_strError, HasSubstr("choose another"));
}

TEST_F(StateDirTest, ALinkInPlaceOfAPartIsRefused) {
    const std::string strPath = m_dir.Path() + "/state";
    std::filesystem::create_directories(strPath);
    std::filesystem::permissions(strPath, std::filesystem::perms::owner_all);
    std::filesystem::create_directory_symlink(m_dir.Path(), strPath + "/data");

    EXPECT_FALSE(Enter(strPath));

    EXPECT_THAT(m_strError, HasSubstr(strPath + "/data"));
}

TEST_F(StateDirTest, WithoutAPathTheRemedyIsNamed) {
    EXPECT_FALSE(Enter(""));

    EXPECT_THAT(m_strError, HasSubstr("--state-dir"));
}

TEST_F(StateDirTest, PathsBecomeAbsolute) {
    EXPECT_EQ("/a/b", StateDir::Absolute("/a/b/"));
    EXPECT_EQ("/", StateDir::Absolute("/"));
    EXPECT_EQ("", StateDir::Absolute(""));
    EXPECT_EQ(CDir::currentDir() + "x", StateDir::Absolute("x"));
}

TEST_F(StateDirTest, TheDefaultIsThatOfTheUser) {
    setenv("XDG_STATE_HOME", "/xdg", 1);

    EXPECT_EQ(geteuid() == 0 ? "/var/lib/tevmon" : "/xdg/tevmon", StateDir::DefaultPath());

    unsetenv("XDG_STATE_HOME");
}
