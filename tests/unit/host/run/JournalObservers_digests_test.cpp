#include <gtest/gtest.h>

#include "framework/digest/FileHash.h"
#include "host/run/JournalObservers.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/CallingListener.h"
#include "tests/support/host/HeldFiles.h"
#include "tests/support/host/RunHappenings.h"

namespace {

class DigestRunTest : public testing::Test {
protected:
    DigestRunTest() {
        EXPECT_TRUE(m_holding.pLinks->Open(m_dir.Path() + "/run", m_strError));
        m_journal.AddListener(m_listener);
    }
    // As the module does: on this thread.
    void Hash(const std::string& strPath) {
        std::string strMd5, strSha1;
        EXPECT_TRUE(utils::getMD5AndSHA1(strPath, strMd5, strSha1));
    }
    // The message is in the module's hand; files are held of its elements.
    void Analyse(const std::string& strBody, const std::vector<HeldFileRef>& files) {
        EventBatch batch;
        batch.nNumber = ++m_nMessages;
        batch.strBody = strBody;
        batch.nEvents = files.size();
        batch.files = files;
        m_journal.Record(BatchSent{batch});
        m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, strBody}});
    }
    static std::string Body(const std::string& strPath, const HeldFile& file) {
        return event_message::CreationsOf(
            {{strPath, "cmd", 7, file_version::Text(file.Version())}});
    }

    const TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("program", "evil", 0755);
    std::string m_strError;
    uint64_t m_nMessages = 0;
    int m_nChanged = 0;
    CallingListener m_listener{[this](const RunEvent& event) {
        m_nChanged += std::holds_alternative<LaunchChanged>(event) ? 1 : 0;
    }};
    VerdictService m_service;
    LaunchHolding m_holding;
    RunJournal m_journal{m_service, {}, true, 0, &m_holding};
    DigestRun m_run{m_holding.lanes, m_journal};
};

}  // namespace

TEST_F(DigestRunTest, AnotherFileUnderTheNameIsSeenWhenTheModuleHashesIt) {
    const HeldFileRef pFile = HoldFile(m_strFile);
    m_run.Begin();
    Analyse(Body(m_strFile, *pFile), {pFile});
    (void)m_dir.WriteFile("next", "good", 0755);
    ASSERT_EQ(0, rename((m_dir.Path() + "/next").c_str(), m_strFile.c_str()));
    Hash(m_strFile);

    EXPECT_EQ(1, m_nChanged);
    EXPECT_EQ(1u, m_holding.pAgain->Take().size());
    Hash(m_strFile);  // for somebody else: the launch was hashed
    EXPECT_EQ(1, m_nChanged);
}

TEST_F(DigestRunTest, TheFileThatWasStartedIsNoChange) {
    const HeldFileRef pFile = HoldFile(m_strFile);
    m_run.Begin();
    Analyse(Body(m_strFile, *pFile), {pFile});
    Hash(m_strFile);
    EXPECT_EQ(0, m_nChanged);
    EXPECT_EQ(0u, m_holding.pAgain->Take().size());
}

TEST_F(DigestRunTest, AMessageOfAnEarlierRunKnowsItsFileByItsVersion) {
    const HeldFileRef pFile = HoldFile(m_strFile);
    m_run.Begin();
    const std::string strBody = Body(m_strFile, *pFile);
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, strBody}});
    (void)m_dir.WriteFile("next", "good", 0755);
    ASSERT_EQ(0, rename((m_dir.Path() + "/next").c_str(), m_strFile.c_str()));
    Hash(m_strFile);
    EXPECT_EQ(1, m_nChanged);
    EXPECT_EQ(0u, m_holding.pAgain->Take().size());
}

TEST_F(DigestRunTest, AFileThatIsGoneIsReportedAgain) {
    const HeldFileRef pFile = HoldFile(m_strFile);
    m_run.Begin();
    ASSERT_EQ(0, unlink(m_strFile.c_str()));
    Analyse(Body(m_strFile, *pFile), {pFile});
    EXPECT_EQ(0, m_nChanged);
    EXPECT_EQ(1u, m_holding.pAgain->Take().size());
}

TEST_F(DigestRunTest, WhatAnotherThreadHashesIsNotTheModules) {
    const HeldFileRef pFile = HoldFile(m_strFile);
    m_run.Begin();
    Analyse(Body(m_strFile, *pFile), {pFile});
    (void)m_dir.WriteFile("next", "good", 0755);
    ASSERT_EQ(0, rename((m_dir.Path() + "/next").c_str(), m_strFile.c_str()));
    std::thread([this] { Hash(m_strFile); }).join();
    EXPECT_EQ(0, m_nChanged);
    Hash(m_strFile);
    EXPECT_EQ(1, m_nChanged);
}

TEST_F(DigestRunTest, AfterItsEndNobodyListens) {
    const HeldFileRef pFile = HoldFile(m_strFile);
    m_run.Begin();
    Analyse(Body(m_strFile, *pFile), {pFile});
    m_run.End();
    (void)m_dir.WriteFile("next", "good", 0755);
    ASSERT_EQ(0, rename((m_dir.Path() + "/next").c_str(), m_strFile.c_str()));
    Hash(m_strFile);
    EXPECT_EQ(0, m_nChanged);
}
