#include "tevmon/core/CUserPathMasker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/FakeUsers.h"
#include "tests/support/TestDir.h"
#include "tests/support/clocks/LeapingClocks.h"
#include "tests/support/trace/CallTrace.h"
#include "tests/support/trace/FakeFiles.h"

namespace {

// A masker of the test's own, so that its users are read afresh.
class Masker : public CUserPathMasker {
public:
    std::string Mask(std::string strPath) {
        EXPECT_TRUE(MaskUserPath(strPath));
        return strPath;
    }
};

FakeUser NullName(const std::string& strHome) {
    FakeUser user{"", strHome};
    user.bNullName = true;
    return user;
}

FakeUser NullHome(const std::string& strName) {
    FakeUser user{strName, ""};
    user.bNullHome = true;
    return user;
}

}  // namespace

// Every test says which home directories exist; none of the machine's is read.
class CUserPathMaskerTest : public testing::Test {
protected:
    CUserPathMaskerTest() {
        for (const char* pszHome : {"/home/alice", "/home/carol", "/home/"}) {
            HasDirectory(pszHome);
        }
        for (const char* pszHome : {"/home/gone", "/home/bob"}) {
            m_files.VanishAfter(pszHome, 0);
        }
    }

    void HasDirectory(const char* pszPath) { m_files.Redirect(pszPath, m_dir.Path()); }

    const TestDir m_dir;
    FakeFiles m_files;
    Masker m_masker;
};

TEST_F(CUserPathMaskerTest, TheShortestPathsStayAsTheyAreAndReadNoUsers) {
    const FakeUsers users({{"a", "/home/alice"}});

    EXPECT_EQ("", m_masker.Mask(""));
    EXPECT_EQ("/", m_masker.Mask("/"));
    EXPECT_EQ("a", m_masker.Mask("a"));

    EXPECT_EQ(0, FakeUsers::SetCalls());
    EXPECT_EQ(0, FakeUsers::GetCalls());
}

TEST_F(CUserPathMaskerTest, APathOfTwoCharactersIsMasked) {
    const FakeUsers users({{"a", "/home/alice"}});

    EXPECT_EQ("/$username", m_masker.Mask("/a"));
}

TEST_F(CUserPathMaskerTest, ALoginNameInAPathBecomesUsername) {
    const FakeUsers users({{"alice", "/home/alice"}});

    EXPECT_EQ("/home/$username/run.sh", m_masker.Mask("/home/alice/run.sh"));
    EXPECT_EQ("/home/$username", m_masker.Mask("/home/alice"));
}

TEST_F(CUserPathMaskerTest, ATrailingSlashStaysWhereOneWas) {
    const FakeUsers users({{"alice", "/home/alice"}});

    EXPECT_EQ("/home/$username/", m_masker.Mask("/home/alice/"));
}

TEST_F(CUserPathMaskerTest, APathWithANameLosesItsDoubledSlashes) {
    const FakeUsers users({{"alice", "/home/alice"}});

    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home//alice/x"));
    EXPECT_EQ("/home/$username/x/", m_masker.Mask("//home///alice//x//"));
}

TEST_F(CUserPathMaskerTest, APathWithoutANameKeepsItsDoubledAndTrailingSlashes) {
    const FakeUsers users({{"alice", "/home/alice"}, {"bob", "/home/bob"}});

    EXPECT_EQ("/home//bob/x", m_masker.Mask("/home//bob/x"));
    EXPECT_EQ("//usr//bin//", m_masker.Mask("//usr//bin//"));
    EXPECT_EQ("////", m_masker.Mask("////"));
}

TEST_F(CUserPathMaskerTest, ARelativePathIsMaskedAndStaysRelative) {
    const FakeUsers users({{"alice", "/home/alice"}});

    EXPECT_EQ("$username/x", m_masker.Mask("alice/x"));
    EXPECT_EQ("$username", m_masker.Mask("alice"));
    EXPECT_EQ("./$username/x", m_masker.Mask("./alice/x"));
}

TEST_F(CUserPathMaskerTest, ANameIsMaskedWhereverItStands) {
    const FakeUsers users({{"alice", "/home/alice"}, {"carol", "/home/carol"}});

    EXPECT_EQ("/opt/$username/tool", m_masker.Mask("/opt/alice/tool"));
    EXPECT_EQ("/$username/$username/alice.d/$username",
              m_masker.Mask("/alice/carol/alice.d/alice"));
}

TEST_F(CUserPathMaskerTest, OnlyAWholeComponentIsAName) {
    const FakeUsers users({{"alice", "/home/alice"}});

    for (const char* pszPath : {"/home/alice2/x", "/home/malice/x", "/home/Alice/x",
                                "/home/alice.sh", "/home/ alice/x"}) {
        EXPECT_EQ(pszPath, m_masker.Mask(pszPath));
    }
}

TEST_F(CUserPathMaskerTest, TheLoginNameCountsNotTheNameOfTheHome) {
    const FakeUsers users({{"ally", "/home/alice"}});

    EXPECT_EQ("/home/alice/x", m_masker.Mask("/home/alice/x"));
    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/ally/x"));
}

TEST_F(CUserPathMaskerTest, AccountsWithoutAnExistingHomeUnderHomeAreNeverMasked) {
    HasDirectory("/root");
    HasDirectory("/var/lib/daemon");
    HasDirectory("/srv/home/eve");
    HasDirectory("/home");
    const FakeUsers users({{"root", "/root"},
                           {"daemon", "/var/lib/daemon"},
                           {"eve", "/srv/home/eve"},
                           {"top", "/home"},
                           {"gone", "/home/gone"},
                           {"none", ""}});

    for (const char* pszName : {"root", "daemon", "eve", "top", "gone", "none"}) {
        const std::string strPath = std::string("/home/") + pszName + "/x";
        EXPECT_EQ(strPath, m_masker.Mask(strPath));
    }
}

TEST_F(CUserPathMaskerTest, HomeItselfWithItsSlashIsAHome) {
    const FakeUsers users({{"top", "/home/"}});

    EXPECT_EQ("/x/$username", m_masker.Mask("/x/top"));
}

TEST_F(CUserPathMaskerTest, AHomeThatIsALinkToADirectoryOrAFileExists) {
    m_files.Redirect("/home/file", m_dir.WriteFile("file", ""));
    const FakeUsers users({{"file", "/home/file"}});

    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/file/x"));
}

TEST_F(CUserPathMaskerTest, EntriesWithoutANameOrAHomeArePassedOver) {
    const FakeUsers users({NullName("/home/alice"),
                           NullHome("nobody"),
                           {"", "/home/alice"},
                           {"alice", "/home/alice"}});

    EXPECT_EQ("/nobody//x/", m_masker.Mask("/nobody//x/"));
    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/alice/x"));
}

TEST_F(CUserPathMaskerTest, ANameThatStandsTwiceIsMaskedIfEitherEntryQualifies) {
    const FakeUsers users({{"alice", "/root"}, {"alice", "/home/alice"}, {"alice", "/home/carol"}});

    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/alice/x"));
}

TEST_F(CUserPathMaskerTest, TheUsersAreReadOnceAndKept) {
    {
        const FakeUsers users({{"alice", "/home/alice"}});
        EXPECT_EQ("/$username", m_masker.Mask("/alice"));
        EXPECT_EQ(2, FakeUsers::GetCalls());  // the entry and the end
    }
    const FakeUsers later({{"carol", "/home/carol"}});

    EXPECT_EQ("/$username/carol", m_masker.Mask("/alice/carol"));

    EXPECT_EQ(0, FakeUsers::GetCalls());
}

TEST_F(CUserPathMaskerTest, WhileNobodyQualifiesTheUsersAreReadAtEveryCall) {
    {
        const FakeUsers users({{"bob", "/home/bob"}});
        EXPECT_EQ("/bob", m_masker.Mask("/bob"));
        EXPECT_EQ("/usr/bin", m_masker.Mask("/usr/bin"));
        EXPECT_EQ("//", m_masker.Mask("//"));
        EXPECT_EQ(6, FakeUsers::GetCalls());
    }
    const FakeUsers later({{"bob", "/home/carol"}});

    EXPECT_EQ("/$username", m_masker.Mask("/bob"));
}

TEST_F(CUserPathMaskerTest, TheUserDatabaseIsRewoundBeforeAndAfterAndNotClosed) {
    const FakeUsers users({{"alice", "/home/alice"}});

    EXPECT_EQ("/$username", m_masker.Mask("/alice"));

    EXPECT_EQ(2, FakeUsers::SetCalls());
    EXPECT_EQ(0, FakeUsers::EndCalls());
}

TEST_F(CUserPathMaskerTest, AnEmptyUserDatabaseMasksNothing) {
    const FakeUsers users({});

    EXPECT_EQ("/home/alice/x", m_masker.Mask("/home/alice/x"));
}

TEST_F(CUserPathMaskerTest, LoadUsersForgetsWhoIsNotThereAnyMore) {
    {
        const FakeUsers users({{"alice", "/home/alice"}});
        EXPECT_EQ("/$username", m_masker.Mask("/alice"));
    }
    const FakeUsers later({{"carol", "/home/carol"}});

    m_masker.LoadUsers();

    EXPECT_EQ("/alice/$username", m_masker.Mask("/alice/carol"));
}

TEST_F(CUserPathMaskerTest, AFailureHalfWayLeavesNoPartOfTheUsers) {
    const FakeUsers users({{"alice", "/home/alice"}, {"carol", "/home/carol"}});
    FakeUsers::FailOnceAfter(1);

    EXPECT_THROW(m_masker.Mask("/home/alice/x"), std::bad_alloc);

    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/carol/x"));
    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/alice/x"));
}

TEST_F(CUserPathMaskerTest, AFailureOfTheDatabaseHalfWayLeavesNoPartOfTheUsersEither) {
    for (const int nErrno : {ENOMEM, EIO, EMFILE, ENFILE, EINTR}) {
        const FakeUsers users({{"alice", "/home/alice"}, {"carol", "/home/carol"}});
        Masker masker;
        FakeUsers::FailOnceAfter(1, nErrno);

        EXPECT_EQ("/home/alice/x", masker.Mask("/home/alice/x")) << nErrno;

        EXPECT_EQ("/home/$username/x", masker.Mask("/home/carol/x")) << nErrno;
        EXPECT_EQ("/home/$username/x", masker.Mask("/home/alice/x")) << nErrno;
    }
}

TEST_F(CUserPathMaskerTest, AnErrorThatIsLeftAtTheDatabasesEndCountsForNothing) {
    const FakeUsers users({{"alice", "/home/alice"}});
    FakeUsers::FailOnceAfter(1, ENOENT);
    const LeapingClocks clocks(60, 0);

    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/alice/x"));
    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/alice/x"));

    EXPECT_EQ(2, FakeUsers::GetCalls());
}

// A service behind the file of users that does not answer: the file's own are known by then.
TEST_F(CUserPathMaskerTest, WhereTheDatabaseEndsInAnErrorItIsReadAgainUntilAnEndIsClean) {
    for (const int nErrno : {EAGAIN, ECONNREFUSED, ETIMEDOUT, EACCES}) {
        const FakeUsers users({{"alice", "/home/alice"}, {"carol", "/home/carol"}});
        Masker masker;
        FakeUsers::FailOnceAfter(1, nErrno);
        EXPECT_EQ("/home/$username/x", masker.Mask("/home/alice/x")) << nErrno;
        EXPECT_EQ("/home/carol/x", masker.Mask("/home/carol/x")) << nErrno;  // not a minute later
        EXPECT_EQ(2, FakeUsers::GetCalls()) << nErrno;
        const LeapingClocks clocks(60, 0);
        FakeUsers::FailOnceAfter(0, nErrno);  // nobody answers

        EXPECT_EQ("/home/$username/x", masker.Mask("/home/alice/x")) << nErrno;
        EXPECT_EQ(3, FakeUsers::GetCalls()) << nErrno;
        EXPECT_EQ("/home/$username/x", masker.Mask("/home/carol/x")) << nErrno;
        EXPECT_EQ(6, FakeUsers::GetCalls()) << nErrno;

        EXPECT_EQ("/home/$username/x", masker.Mask("/home/carol/x")) << nErrno;
        EXPECT_EQ(6, FakeUsers::GetCalls()) << nErrno;  // the last end was clean
    }
}

TEST_F(CUserPathMaskerTest, AFailureHalfWayLeavesTheUsersKnownBefore) {
    {
        const FakeUsers users({{"alice", "/home/alice"}, {"carol", "/home/carol"}});
        ASSERT_EQ("/home/$username/x", m_masker.Mask("/home/carol/x"));
        FakeUsers::FailOnceAfter(1);

        EXPECT_THROW(m_masker.LoadUsers(), std::bad_alloc);
    }

    // The database is empty by now: nobody would be read again.
    EXPECT_EQ("/home/$username/x", m_masker.Mask("/home/carol/x"));
}

TEST_F(CUserPathMaskerTest, TheHomeIsLookedAtBeforeTheName) {
    const FakeUsers users({NullName("/home/alice"), {"root", "/root"}, {"carol", "/home/carol"}});
    const CallTrace trace;

    m_masker.LoadUsers();

    EXPECT_THAT(trace.Calls(),
                testing::ElementsAre("stat /home/alice", "stat /root", "stat /home/carol"));
}

// Singletons live as long as the process, and the tests' runner gives each test a process.
TEST(CUserPathMaskerInstanceTest, TheProcessHasOne) {
    ASSERT_NE(nullptr, CUserPathMasker::Instance());
    EXPECT_EQ(CUserPathMasker::Instance(), CUserPathMasker::Instance());
}
