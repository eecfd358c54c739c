#include "host/account/LaunchAudit.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "host/verdict/ProgramVerdicts.h"
#include "tests/support/Event.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/HeldFiles.h"
#include "tests/support/host/OneDigestSource.h"

namespace {

class LaunchAuditTest : public testing::Test {
protected:
    LaunchAuditTest() { EXPECT_TRUE(m_holding.pLinks->Open(m_dir.Path() + "/run", m_strError)); }

    // The verdict on what stands in strPath now.
    void Give(const std::string& strPath, int nLevel) {
        m_service.AddSource(std::make_unique<OneDigestSource>(
            ProgramVerdicts::KeyOf(strPath).substr(40), Verdict{nLevel, "list", ""}));
    }
    void Begin() {
        m_holding.lanes.Begin([this](const FileVersion& version, const ProgramDigest& digest) {
            m_audit.Digested(version, digest);
            m_nDigests.fetch_add(1);
        });
    }
    bool Wait(int nDigests) {
        return Eventually([&] { return m_nDigests == nDigests; });
    }
    std::vector<std::string> Judged() {
        m_holding.lanes.End();
        return m_judged;
    }
    void Note(const std::string& strName, const HeldFileRef& pFile) {
        m_audit.Note(strName, "/bin/shell", pFile);
    }
    struct stat StatusOf(const std::string& strPath) {
        struct stat status = {};
        EXPECT_EQ(0, stat(strPath.c_str(), &status));
        return status;
    }
    bool IsSame(const std::string& strPath, const HeldFile* pFile,
                const std::optional<FileVersion>& version = {}) {
        return m_audit.SameAs(StatusOf(strPath), ProgramVerdicts::KeyOf(strPath))(pFile, version);
    }
    // The level that is shown when the module has ended with it, by a verdict of that level; 0:
    // none.
    int Shown(const HeldFileRef& pFile, int nModuleLevel = 40, bool bChanged = false) {
        const std::optional<Verdict> verdict =
            m_audit.Of(Ended(pFile, bChanged), Verdict{nModuleLevel, "module", ""});
        return verdict ? verdict->nLevel : 0;
    }
    static EndedQuery Ended(const HeldFileRef& pFile, bool bChanged = false) {
        EndedQuery ended;
        ended.expected.eKind = EXPECTED_LAUNCH;
        ended.pFile = pFile;
        ended.bChanged = bChanged;
        return ended;
    }

    const TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("program", "evil", 0755);
    const HeldFileRef m_pFile = HoldFile(m_strFile);
    std::string m_strError;
    VerdictService m_service;
    std::vector<std::string> m_judged;  // of one thread at a time: lanes, or the test's
    std::vector<LaunchChange> m_changes;
    std::atomic<int> m_nDigests{0};
    uint64_t m_nFresh = 0;
    LaunchHolding m_holding;
    LaunchAudit m_audit{
        m_service, m_holding,
        LaunchAudit::Hooks{[this](const Judgement& judgement) {
                               m_judged.push_back(judgement.strSubject + " by " + judgement.strBy +
                                                  " " + std::to_string(judgement.verdict.nLevel));
                           },
                           [this](const LaunchChange& change) { m_changes.push_back(change); }}};
};

}  // namespace

TEST_F(LaunchAuditTest, ABadProgramIsJudgedByItsOwnDigestForEachLaunch) {
    Give(m_strFile, 70);
    const std::string strOther = m_dir.WriteFile("other", "good", 0755);
    Begin();
    Note("/a", m_pFile);
    ASSERT_TRUE(Wait(1));
    Note("/b", m_pFile);
    Note("/c", HoldFile(strOther));
    ASSERT_TRUE(Wait(2));
    const std::vector<std::string> expected = {"/a by /bin/shell 70", "/b by /bin/shell 70"};
    EXPECT_EQ(expected, Judged());
}

TEST_F(LaunchAuditTest, AProgramThatIsNotBadNeedsNoFurtherReport) {
    Give(m_strFile, 70);
    const HeldFileRef pGood = HoldFile(m_dir.WriteFile("good", "good", 0755));
    const HeldFileRef pUnsure = HoldUnsure(m_dir.WriteFile("unsure", "unsure", 0755), 1);
    Begin();
    for (const HeldFileRef& pFile : {m_pFile, pGood, pUnsure}) {
        EXPECT_FALSE(pFile->IsSettled());
        Note("/a", pFile);
    }
    ASSERT_TRUE(Wait(3));
    EXPECT_FALSE(m_pFile->IsSettled());
    EXPECT_TRUE(pGood->IsSettled());
    EXPECT_FALSE(pUnsure->IsSettled());  // nobody knows what it held
}

TEST_F(LaunchAuditTest, ItsVerdictIsShownOnceAndAnothersWhenTheModuleIsDone) {
    Give(m_strFile, 70);
    const std::string strOther = m_dir.WriteFile("other", "good", 0755);
    const HeldFileRef pOther = HoldFile(strOther);
    Give(strOther, 20);
    Begin();
    Note("/a", m_pFile);
    Note("/b", pOther);
    ASSERT_TRUE(Wait(2));

    EXPECT_EQ(0, Shown(m_pFile, 70));
    EXPECT_EQ(20, Shown(pOther, 40));  // its own, whatever the module had
    EXPECT_EQ(0, Shown(pOther, 70, true));
    EXPECT_EQ(1u, Judged().size());
}

TEST_F(LaunchAuditTest, WithoutADigestTheModulesHasToDo) {
    Note("/a", m_pFile);  // no lane runs
    EXPECT_EQ(40, Shown(m_pFile, 40));
    EXPECT_EQ(70, Shown(m_pFile, 70));
    EXPECT_EQ(0, Shown(m_pFile, 70, true));
}

TEST_F(LaunchAuditTest, ABadProgramThatWasNotJudgedInTimeIsWhenTheModuleIsDone) {
    Give(m_strFile, 70);
    Note("/a", m_pFile);  // no lane runs
    Begin();
    Note("/b", m_pFile);
    ASSERT_TRUE(Wait(1));
    EXPECT_EQ(70, Shown(m_pFile));
    EXPECT_EQ(0, Shown(m_pFile));
    EXPECT_EQ(std::vector<std::string>{"/b by /bin/shell 70"}, Judged());
}

TEST_F(LaunchAuditTest, WhatMayHaveBeenWrittenToIsBadOrNotKnown) {
    Give(m_strFile, 70);
    const std::string strOther = m_dir.WriteFile("other", "good", 0755);
    const HeldFileRef pOther = HoldFile(strOther);
    Give(strOther, 20);
    ASSERT_EQ(0, unlink(m_strFile.c_str()));
    ASSERT_EQ(0, unlink(strOther.c_str()));
    Begin();
    Note("/a", m_pFile);
    Note("/b", pOther);
    ASSERT_TRUE(Wait(2));

    EXPECT_EQ(0, Shown(m_pFile, 70));  // it was shown
    EXPECT_EQ(70, Shown(pOther, 70));  // what the module found is bad
    EXPECT_EQ(std::vector<std::string>{"/a by /bin/shell 70"}, Judged());
}

TEST_F(LaunchAuditTest, AModuleThatIsDoneBeforeTheDigestIsWaitedFor) {
    m_audit.Note("/a", "", nullptr);
    Give(m_strFile, 20);
    EXPECT_EQ(40, Shown(HoldUnknown(m_strFile)));

    ASSERT_EQ(0, chmod(m_strFile.c_str(), 0700));
    Event asked, answer;
    m_holding.lanes.Begin([&](const FileVersion& version, const ProgramDigest& digest) {
        asked.Set();
        answer.Wait();
        m_audit.Digested(version, {DIGEST_DONE, digest.strKey, digest.strSha256});
    });
    Note("/a", m_pFile);
    asked.Wait();
    EXPECT_EQ(0, Shown(m_pFile));
    answer.Set();
    EXPECT_EQ(std::vector<std::string>{m_strFile + " by /bin/shell 20"}, Judged());
}

TEST_F(LaunchAuditTest, TheSameFileIsKnownByItsStateOrItsContent) {
    EXPECT_TRUE(IsSame(m_strFile, m_pFile.get()));
    EXPECT_TRUE(IsSame(m_strFile, nullptr, m_pFile->Version()));
    EXPECT_TRUE(IsSame(m_strFile, nullptr));
    Begin();
    Note("/a", m_pFile);
    ASSERT_TRUE(Wait(1));

    const std::string strCopy = m_dir.WriteFile("copy", "evil", 0755);
    EXPECT_TRUE(IsSame(strCopy, m_pFile.get()));
    ASSERT_EQ(0, chmod(m_strFile.c_str(), 0700));
    EXPECT_TRUE(IsSame(m_strFile, m_pFile.get()));
    const std::string strOther = m_dir.WriteFile("other", "good", 0755);
    EXPECT_FALSE(IsSame(strOther, m_pFile.get()));
    EXPECT_FALSE(IsSame(strOther, nullptr, m_pFile->Version()));
}

TEST_F(LaunchAuditTest, AStrayLaunchIsReportedOnceMoreAsItWas) {
    const std::string strBody =
        R"({"param":[{"path":"/a"},{"path":"/b","cmd":"/b x","pid":7,"version":"1:2:3:4"}]})";
    m_audit.Begin(strBody, {{1, "/b", m_pFile}, {1, "/b", nullptr}, {2, "/c", m_pFile}});

    const std::vector<LaunchAgain> again = m_holding.pAgain->Take();
    ASSERT_EQ(1u, again.size());
    EXPECT_EQ("/b", again[0].creation.strPath);
    EXPECT_EQ("/b x", again[0].creation.strCommand);
    EXPECT_EQ(7u, again[0].creation.nPid);
    EXPECT_EQ("1:2:3:4", again[0].creation.strVersion);
    EXPECT_EQ(m_pFile, again[0].pFile);
}

TEST_F(LaunchAuditTest, AChangeIsToldWithBothKeysAndALinkIsNotReportedAgain) {
    Begin();
    Note("/a", m_pFile);
    ASSERT_TRUE(Wait(1));
    const std::string strLink = m_pFile->LinkIn(*m_holding.pLinks, "/a");
    m_audit.Begin(R"({"param":[{"path":"/a"}]})", {});
    const struct stat status = {};
    m_audit.Changed({0, "/a", m_pFile}, status, "other");
    m_audit.Changed({0, strLink, m_pFile}, status, "other");
    m_audit.Changed({0, "/a", nullptr}, status, "other");

    ASSERT_EQ(3u, m_changes.size());
    EXPECT_EQ("/a", m_changes[0].strFile);
    EXPECT_EQ("other", m_changes[0].strHashedKey);
    EXPECT_EQ(ProgramVerdicts::KeyOf(m_strFile), m_changes[0].strKey);
    EXPECT_TRUE(m_changes[0].bAgain);
    EXPECT_EQ("/a", m_changes[1].strFile);
    EXPECT_FALSE(m_changes[1].bAgain);
    EXPECT_EQ("", m_changes[2].strKey);
    EXPECT_EQ(1u, m_holding.pAgain->Take().size());
}

TEST_F(LaunchAuditTest, AnUnsureFileIsShownOnceIfItIsBadAndNeverElse) {
    const auto unsure = [this] {
        FileVersion version = m_pFile->Version();
        version.nFresh = ++m_nFresh;
        return std::make_shared<HeldFile>(UniqueFd(open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC)),
                                          version, m_pFile->Status(), "/a", false);
    };
    const auto pGood = unsure();
    EXPECT_TRUE(LaunchAudit::IsDoubtful(Ended(pGood)));
    EXPECT_FALSE(LaunchAudit::IsDoubtful(Ended(m_pFile)));
    EXPECT_FALSE(LaunchAudit::IsDoubtful(Ended(nullptr)));
    EXPECT_EQ(0, Shown(pGood, 10));
    EXPECT_EQ(70, Shown(pGood, 70));  // by the module, which is better than nobody
    EXPECT_EQ(0, Shown(pGood, 70));

    Give(m_strFile, 70);
    const auto pBad = unsure();
    Begin();
    Note("/b", pBad);
    ASSERT_TRUE(Wait(1));
    EXPECT_EQ(0, Shown(pBad, 70));
    EXPECT_EQ(std::vector<std::string>{"/b by /bin/shell 70"}, Judged());
}

TEST_F(LaunchAuditTest, ABadContentThatWasWrittenLaterIsNotWhatWasStarted) {
    const HeldFileRef pUnread = HoldFile(m_dir.WriteFile("unread", "evil too", 0755));
    Begin();
    Note("/a", m_pFile);
    ASSERT_TRUE(Wait(1));
    for (const std::string& strFile : {m_strFile, pUnread->Name()}) {
        std::ofstream(strFile) << "bad later";
    }
    Give(m_strFile, 70);
    const std::string strBadKey = ProgramVerdicts::KeyOf(m_strFile);
    m_audit.Changed({0, "/a", m_pFile}, StatusOf(m_strFile), strBadKey);
    m_audit.Changed({0, "/b", pUnread}, StatusOf(pUnread->Name()), strBadKey);  // perhaps
    EXPECT_EQ(std::vector<std::string>{"/b by  70"}, Judged());
}

TEST_F(LaunchAuditTest, ABadContentOfTheStartedFileIsShownWhoeverHashedIt) {
    Begin();
    Note("/a", m_pFile);
    ASSERT_TRUE(Wait(1));
    const std::string strOther = m_dir.WriteFile("other", "bad now", 0755);
    Give(strOther, 70);
    const std::string strBadKey = ProgramVerdicts::KeyOf(strOther);

    // The state says that it is the same, the content that it is not.
    const struct stat status = StatusOf(m_strFile);
    EXPECT_FALSE(m_audit.SameAs(status, strBadKey)(m_pFile.get(), std::nullopt));
    m_audit.Changed({0, "/a", m_pFile}, StatusOf(strOther), strBadKey);  // another file
    EXPECT_TRUE(m_judged.empty());
    m_audit.Changed({0, "/a", m_pFile}, status, strBadKey);
    m_audit.Changed({0, "/a", m_pFile}, status, strBadKey);
    EXPECT_EQ(std::vector<std::string>{"/a by  70"}, Judged());
    EXPECT_EQ(70, m_audit.LastHashed().nLevel);
}
