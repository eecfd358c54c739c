#include "host/process/StateDir.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "framework/base/CDir.h"
#include "tests/support/FileText.h"
#include "tests/support/NoPrivilege.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

unsigned Mode(const std::string& strPath) {
    struct stat status = {};
    return stat(strPath.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// Prints why a user without rights is refused, and exits with 0 when there is no refusal.
[[noreturn]] void EnterWithoutRights(const std::string& strPath) {
    BecomeAnotherUser();
    std::string strError;
    const bool bEntered = StateDir().Enter(strPath, strError);
    std::fprintf(stderr, "%s", strError.c_str());
    _exit(bEntered ? 0 : 1);
}

[[noreturn]] void LookWithoutRights(const std::string& strPath) {
    BecomeAnotherUser();
    std::string strText;
    const bool bUsable = StateDir::IsUsable(strPath, strText);
    std::fprintf(stderr, "%s", strText.c_str());
    _exit(bUsable ? 0 : 1);
}

void SetOrUnset(const char* pszName, const char* pszValue) {
    if (pszValue == nullptr) {
        unsetenv(pszName);
    } else {
        setenv(pszName, pszValue, 1);
    }
}

[[noreturn]] void SayDefault(const char* pszStateHome, const char* pszHome) {
    BecomeAnotherUser();
    SetOrUnset("XDG_STATE_HOME", pszStateHome);
    SetOrUnset("HOME", pszHome);
    std::fprintf(stderr, "<%s>", StateDir::DefaultPath().c_str());
    _exit(0);
}

class StateDirTest : public testing::Test {
protected:
    ~StateDirTest() override { umask(m_nUmask); }

    bool Enter(const std::string& strPath) { return m_stateDir.Enter(strPath, m_strError); }
    // "yes: " or "no: ", and what is said about it.
    static std::string Looked(const std::string& strPath) {
        std::string strText;
        const bool bUsable = StateDir::IsUsable(strPath, strText);
        return (bUsable ? "yes: " : "no: ") + strText;
    }
    std::string Made(const std::string& strName, mode_t nMode) const {
        const std::string strPath = m_dir.Path() + "/" + strName;
        EXPECT_EQ(0, mkdir(strPath.c_str(), 0700));
        EXPECT_EQ(0, chmod(strPath.c_str(), nMode));
        return strPath;
    }

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

TEST_F(StateDirTest, ASecondHostsErrorNamesWhoHoldsTheDirectory) {
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

TEST_F(StateDirTest, APartThatOthersMayWriteIsRefused) {
    const std::string strPath = Made("state", 0700);
    for (const char* const pszPart : {"/data", "/data/db", "/run"}) {
        ASSERT_EQ(0, mkdir((strPath + pszPart).c_str(), 0700));
        ASSERT_EQ(0, chmod((strPath + pszPart).c_str(), 0777));
        EXPECT_FALSE(StateDir().Enter(strPath, m_strError));
        EXPECT_THAT(m_strError, HasSubstr(strPath + pszPart));
        ASSERT_EQ(0, chmod((strPath + pszPart).c_str(), 0700));
    }
    EXPECT_TRUE(Enter(strPath)) << m_strError;
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

TEST_F(StateDirTest, ALinkThatLeadsNowhereIsNoUsableDirectory) {
    const std::string strLink = m_dir.Path() + "/link";
    std::filesystem::create_symlink(m_dir.Path() + "/gone", strLink);

    for (const std::string& strPath : {strLink, strLink + "/state"}) {
        std::string strText;
        EXPECT_FALSE(StateDir::IsUsable(strPath, strText)) << strText;
        EXPECT_FALSE(Enter(strPath));
    }
    EXPECT_THAT(Looked(strLink), testing::StartsWith("no: cannot find the state directory " +
                                                     strLink + ": No such file or directory; "));
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

TEST_F(StateDirTest, NeitherTheGroupNorOthersMayWriteToItAndAnybodyMayRead) {
    for (const mode_t nMode : {0720, 0702, 0722}) {
        const std::string strPath = Made("mode" + std::to_string(nMode), nMode);

        EXPECT_FALSE(Enter(strPath)) << nMode;

        EXPECT_EQ("others may write to the state directory " + strPath +
                      "; take that away with chmod 700, or choose another with --state-dir",
                  m_strError);
        EXPECT_EQ("no: " + m_strError, Looked(strPath));
        EXPECT_FALSE(std::filesystem::exists(strPath + "/lock")) << nMode;
    }
    EXPECT_TRUE(Enter(Made("readable", 0755))) << m_strError;
}

TEST_F(StateDirTest, NeitherTheGroupNorOthersMayWriteOnTheWay) {
    for (const mode_t nMode : {0720, 0702}) {
        const std::string strParent = Made("way" + std::to_string(nMode), nMode);

        EXPECT_FALSE(Enter(strParent + "/state"));

        EXPECT_EQ("others may write to " + strParent +
                      ", on the way to the state directory, and could swap it; take that away with "
                      "chmod go-w, or choose another with --state-dir",
                  m_strError);
    }
}

// Whoever may write there could make the link lead elsewhere.
TEST_F(StateDirTest, TheWayAsWrittenIsLookedAtAlthoughItsLinkLeadsToASafePlace) {
    const std::string strShared = Made("shared", 0777);
    std::filesystem::create_directory_symlink(Made("safe", 0700), strShared + "/link");

    EXPECT_FALSE(Enter(strShared + "/link/state"));

    EXPECT_THAT(m_strError, HasSubstr("others may write to " + strShared + ","));
}

TEST_F(StateDirTest, WhatStandsInTheWayOfAPartIsNamed) {
    const std::string strPath = Made("state", 0700);
    m_dir.WriteFile("state/run", "");
    EXPECT_FALSE(Enter(strPath));
    EXPECT_EQ("cannot open " + strPath + "/run: Not a directory; choose another with --state-dir",
              m_strError);
}

TEST_F(StateDirTest, ALinkInPlaceOfTheDatabasesIsRefused) {
    const std::string strPath = Made("state", 0700);
    (void)Made("state/data", 0700);
    std::filesystem::create_directory_symlink(m_dir.Path(), strPath + "/data/db");

    EXPECT_FALSE(Enter(strPath));

    EXPECT_EQ(
        "cannot open " + strPath + "/data/db: Not a directory; choose another with --state-dir",
        m_strError);
}

TEST_F(StateDirTest, ALinkInPlaceOfTheLockIsRefusedAndItsTargetStaysAsItIs) {
    const std::string strPath = Made("state", 0700);
    const std::string strVictim = m_dir.WriteFile("victim", "kept");
    std::filesystem::create_symlink(strVictim, strPath + "/lock");

    EXPECT_FALSE(Enter(strPath));

    EXPECT_EQ("cannot open the lock " + strPath +
                  "/lock: Too many levels of symbolic links; choose another with --state-dir",
              m_strError);
    EXPECT_EQ("kept", FileText(strVictim));
}

TEST_F(StateDirTest, TheLockHoldsNothingButTheNumberOfItsHolderAndNoChildGetsIt) {
    const std::string strPath = Made("state", 0700);
    m_dir.WriteFile("state/lock", "4711\nwhat a host before it left");

    ASSERT_TRUE(Enter(strPath)) << m_strError;

    EXPECT_EQ(std::to_string(getpid()) + "\n", FileText(strPath + "/lock"));
    int nLocks = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == strPath + "/lock") {
            ++nLocks;
            EXPECT_EQ(FD_CLOEXEC, fcntl(std::stoi(entry.path().filename()), F_GETFD));
        }
    }
    EXPECT_EQ(1, nLocks);
}

TEST_F(StateDirTest, ALockWithoutANumberIsHeldAllTheSame) {
    const std::string strPath = m_dir.Path() + "/state";
    ASSERT_TRUE(Enter(strPath));
    m_dir.WriteFile("state/lock", "\x1b[2J nobody");

    StateDir second;
    EXPECT_FALSE(second.Enter(strPath, m_strError));

    EXPECT_EQ("the state directory " + strPath +
                  " is in use by process 0; stop that one, or choose another with --state-dir",
              m_strError);
}

TEST_F(StateDirTest, ALookSaysWhatIsThereAndMakesNothing) {
    const std::string strPath = Made("state", 0700);

    EXPECT_EQ("yes: " + strPath + ", private", Looked(strPath));
    EXPECT_EQ("yes: " + strPath + "/a/b, not there yet, a run makes it", Looked(strPath + "/a/b"));
    EXPECT_TRUE(std::filesystem::is_empty(strPath));
}

TEST_F(StateDirTest, ALookAtAFileOrBelowOneIsRefusedWithTheReason) {
    const std::string strFile = m_dir.WriteFile("file", "");

    EXPECT_EQ("no: cannot open the state directory " + strFile +
                  ": Not a directory; choose another with --state-dir",
              Looked(strFile));
    EXPECT_EQ("no: cannot find the state directory " + strFile +
                  "/a/state: Not a directory; choose another with --state-dir",
              Looked(strFile + "/a/state"));
}

TEST_F(StateDirTest, EveryFinalSlashIsTakenAway) {
    EXPECT_EQ("/", StateDir::Absolute("//"));
    EXPECT_EQ("/a", StateDir::Absolute("/a///"));
    EXPECT_EQ(CDir::currentDir() + "x", StateDir::Absolute("x//"));
}

TEST(StateDirDeathTest, OfAUserWithoutRightsTheDefaultIsBelowTheUsersOwnDirectory) {
    EXPECT_EXIT(SayDefault("/xdg", "/home/a"), testing::ExitedWithCode(0), "^</xdg/tevmon>$");
    for (const char* pszNone : {static_cast<const char*>(nullptr), "", "xdg"}) {
        EXPECT_EXIT(SayDefault(pszNone, "/home/a"), testing::ExitedWithCode(0),
                    "^</home/a/.local/state/tevmon>$");
        EXPECT_EXIT(SayDefault(pszNone, pszNone), testing::ExitedWithCode(0), "^<>$");
    }
}

TEST(StateDirDeathTest, ADirectoryOfAnotherUserIsRefused) {
    EXPECT_EXIT(EnterWithoutRights("/usr"), testing::ExitedWithCode(1),
                "^the state directory /usr belongs to another user; choose another with "
                "--state-dir$");
    EXPECT_EXIT(LookWithoutRights("/usr"), testing::ExitedWithCode(1),
                "^the state directory /usr belongs to another user; ");
}

TEST(StateDirDeathTest, WhereAUserMayMakeNothingThatIsSaid) {
    EXPECT_EXIT(EnterWithoutRights("/usr/none/state"), testing::ExitedWithCode(1),
                "^cannot make the state directory /usr/none: [A-Z].*; choose another");
    EXPECT_EXIT(LookWithoutRights("/usr/none/state"), testing::ExitedWithCode(1),
                "^cannot make the state directory in /usr: [A-Z].*; choose another");
}

TEST(StateDirDeathTest, AnotherUsersDirectoryOnTheWayIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a directory of another user";
    }
    const TestDir dir;
    const std::string strOthers = dir.Path() + "/others";
    ASSERT_EQ(0, mkdir(strOthers.c_str(), 0755));
    if (chown(strOthers.c_str(), 65533, 65533) != 0) {
        GTEST_SKIP() << "this root may not make a directory of another user";
    }
    std::string strError;

    EXPECT_FALSE(StateDir().Enter(strOthers + "/state", strError));

    EXPECT_EQ(strOthers +
                  ", on the way to the state directory, belongs to another user, who could swap "
                  "it; choose another with --state-dir",
              strError);
}
