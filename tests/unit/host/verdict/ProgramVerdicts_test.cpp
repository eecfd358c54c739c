#include "host/verdict/ProgramVerdicts.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/Event.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/OneDigestSource.h"

namespace {

struct stat StatusOf(const std::string& strPath) {
    struct stat status = {};
    EXPECT_EQ(0, stat(strPath.c_str(), &status)) << strPath;
    return status;
}

class ProgramVerdictsTest : public testing::Test {
protected:
    ProgramVerdictsTest() {
        // The program that holds "bad" has a bad verdict.
        m_service.AddSource(std::make_unique<OneDigestSource>(
            "bae60998ffe4923b131e3d6e4c19993e", Verdict{70, "bad list", "bad"}, &m_nLookups));
    }

    TestDir m_dir;
    int m_nLookups = 0;
    VerdictService m_service;
    ProgramVerdicts m_programs{m_service};
};

}  // namespace

TEST_F(ProgramVerdictsTest, AProgramThatNobodyAskedAboutIsReadOnce) {
    EXPECT_EQ(70, m_programs.VerdictOf(m_dir.WriteFile("a", "bad", 0755)).nLevel);
    EXPECT_EQ(40, m_programs.VerdictOf(m_dir.WriteFile("b", "x", 0755)).nLevel);
    EXPECT_EQ(40, m_programs.VerdictOf(m_dir.Path() + "/gone").nLevel);
}

TEST_F(ProgramVerdictsTest, AGivenVerdictHoldsUntilTheFileIsAnother) {
    const std::string strPath = m_dir.WriteFile("a", "x", 0755);
    m_programs.SetVerdict(strPath, {10, "packages", "p"});
    EXPECT_EQ(10, m_programs.VerdictOf(strPath).nLevel);
    EXPECT_EQ("p", m_programs.VerdictOf(strPath).strOwner);

    m_dir.WriteFile("a", "bad", 0755);
    EXPECT_EQ(70, m_programs.VerdictOf(strPath).nLevel);
}

TEST_F(ProgramVerdictsTest, TheStarterIsTheLastOne) {
    EXPECT_EQ("", m_programs.Starter("/bin/a"));
    m_programs.SetStarter("/bin/a", "/bin/b");
    m_programs.SetStarter("/bin/a", "/bin/c");
    EXPECT_EQ("/bin/c", m_programs.Starter("/bin/a"));
}

TEST_F(ProgramVerdictsTest, WhatIsHeldIsBounded) {
    m_programs.SetStarter("/bin/a", "/bin/b");
    for (size_t i = 0; i < ProgramVerdicts::MOST_PROGRAMS; ++i) {
        m_programs.SetStarter(std::to_string(i), "x");
    }
    EXPECT_EQ("", m_programs.Starter("/bin/a"));
}

TEST_F(ProgramVerdictsTest, AProgramIsLookedUpOnceUntilItIsAnother) {
    const std::string strPath = m_dir.WriteFile("a", "bad", 0755);
    EXPECT_EQ(70, m_programs.VerdictOf(strPath).nLevel);
    EXPECT_EQ(70, m_programs.VerdictOf(strPath).nLevel);
    EXPECT_EQ("bad list", m_programs.VerdictOf(strPath).strSource);
    EXPECT_EQ(1, m_nLookups);

    m_dir.WriteFile("a", "good", 0755);
    EXPECT_EQ(40, m_programs.VerdictOf(strPath).nLevel);
    EXPECT_EQ(2, m_nLookups);
}

// A local user can give a file its old size and its old time of modification, but not of change.
TEST_F(ProgramVerdictsTest, AProgramOfTheSameSizeAndAgeIsAnotherOne) {
    const std::string strPath = m_dir.WriteFile("a", "ok!", 0755);
    m_programs.SetVerdict(strPath, {20, "good list", "a"});
    const struct stat before = StatusOf(strPath);
    ASSERT_TRUE(Eventually([&] {  // until the clock of the file system has moved
        m_dir.WriteFile("a", "bad", 0755);
        const timespec times[] = {before.st_atim, before.st_mtim};
        const struct stat now = StatusOf(strPath);
        return utimensat(AT_FDCWD, strPath.c_str(), times, 0) == 0 &&
               now.st_ctim.tv_nsec != before.st_ctim.tv_nsec;
    }));
    ASSERT_EQ(before.st_mtim.tv_nsec, StatusOf(strPath).st_mtim.tv_nsec);
    ASSERT_EQ(before.st_ino, StatusOf(strPath).st_ino);

    EXPECT_EQ(70, m_programs.VerdictOf(strPath).nLevel);
}

TEST_F(ProgramVerdictsTest, ALinkHasTheVerdictOfTheFileThatItLeadsToNow) {
    const std::string strGood = m_dir.WriteFile("good", "x", 0755);
    const std::string strBad = m_dir.WriteFile("bad", "bad", 0755);
    const std::string strLink = m_dir.Path() + "/link";
    std::filesystem::create_symlink(strGood, strLink);
    EXPECT_EQ(40, m_programs.VerdictOf(strLink).nLevel);

    std::filesystem::remove(strLink);
    std::filesystem::create_symlink(strBad, strLink);
    EXPECT_EQ(70, m_programs.VerdictOf(strLink).nLevel);
    EXPECT_EQ(40, m_programs.VerdictOf(strGood).nLevel);
    m_dir.WriteFile("bad", "no more", 0755);  // behind a link that stays as it is
    EXPECT_EQ(40, m_programs.VerdictOf(strLink).nLevel);
}

TEST_F(ProgramVerdictsTest, AVerdictOutlivesItsFileAndIsForgottenWithTheNextOne) {
    const std::string strPath = m_dir.Path() + "/a";
    m_programs.SetVerdict(strPath, {70, "bad list", "gone"});  // was gone when the answer came
    EXPECT_EQ("gone", m_programs.VerdictOf(strPath).strOwner);

    m_dir.WriteFile("a", "x", 0755);
    EXPECT_EQ(40, m_programs.VerdictOf(strPath).nLevel);
}

TEST_F(ProgramVerdictsTest, AStarterIsNoVerdictAndAVerdictNoStarter) {
    m_programs.SetStarter("/gone", "/bin/b");
    EXPECT_EQ("none", m_programs.VerdictOf("/gone").strSource);

    m_programs.SetVerdict("/gone", {70, "bad list", "x"});
    EXPECT_EQ("/bin/b", m_programs.Starter("/gone"));
    m_programs.SetStarter("/gone", "/bin/c");
    EXPECT_EQ(70, m_programs.VerdictOf("/gone").nLevel);
}

TEST_F(ProgramVerdictsTest, WhatIsHeldAlreadyNeedsNoRoom) {
    for (size_t i = 0; i < ProgramVerdicts::MOST_PROGRAMS; ++i) {
        m_programs.SetStarter(std::to_string(i), "x");
    }
    m_programs.SetStarter("17", "y");
    EXPECT_EQ("y", m_programs.Starter("17"));
    EXPECT_EQ("x", m_programs.Starter("0"));

    m_programs.SetVerdict("one more", {70, "bad list", "x"});
    EXPECT_EQ("", m_programs.Starter("0"));
}

TEST_F(ProgramVerdictsTest, AKeyIsTheTwoDigestsOfARegularFile) {
    EXPECT_EQ("1902e3d6fc4e78a0bcc50ba12b882769afbf4a8cbae60998ffe4923b131e3d6e4c19993e",
              ProgramVerdicts::KeyOf(m_dir.WriteFile("a", "bad")));
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    for (const std::string& strPath :
         {m_dir.Path(), strPipe, m_dir.Path() + "/gone", std::string("/dev/zero"), std::string()}) {
        EXPECT_EQ("", ProgramVerdicts::KeyOf(strPath)) << strPath;
    }
}
