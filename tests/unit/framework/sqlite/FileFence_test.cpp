// The fence is seen through the connection whose files it stands around.
#include "framework/sqlite/FileFence.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "framework/sqlite/CppSQLite3.h"
#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"

namespace fs = std::filesystem;

namespace {

constexpr char MAGIC[] = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
constexpr uint32_t PAGE_SIZE = 4096;
constexpr uint32_t NONCE = 12345;

std::string BigEndian(uint32_t nNumber) {
    std::string strBytes;
    for (int nShift = 24; nShift >= 0; nShift -= 8) {
        strBytes += static_cast<char>(nNumber >> nShift);
    }
    return strBytes;
}

// A journal that puts the first page back as it is, and says at its end that strOther ties several
// databases together: the format of SQLite's rollback journal.
std::string JournalThatNames(const std::string& strOther, const std::string& strDatabase) {
    const std::string strPage = strDatabase.substr(0, PAGE_SIZE);
    const auto nPages = static_cast<uint32_t>(strDatabase.size() / PAGE_SIZE);
    std::string strJournal = MAGIC + BigEndian(1) + BigEndian(NONCE) + BigEndian(nPages) +
                             BigEndian(512) + BigEndian(PAGE_SIZE);
    strJournal.resize(512);
    uint32_t nChecksum = NONCE;
    for (size_t n = PAGE_SIZE - 200; n > 0 && n < PAGE_SIZE; n -= 200) {
        nChecksum += static_cast<unsigned char>(strPage[n]);
    }
    strJournal += BigEndian(1) + strPage + BigEndian(nChecksum);
    uint32_t nNameSum = 0;
    for (const char c : strOther) {
        nNameSum += static_cast<uint32_t>(c);
    }
    return strJournal + BigEndian(0x40000000 / PAGE_SIZE + 1) + strOther +
           BigEndian(static_cast<uint32_t>(strOther.size())) + BigEndian(nNameSum) + MAGIC;
}

void Bare(const std::string& strFile, const char* pszSQL) {
    sqlite3* pDB = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_open(strFile.c_str(), &pDB));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(pDB, pszSQL, nullptr, nullptr, nullptr));
    sqlite3_close(pDB);
}

class FileFenceTest : public testing::Test {
protected:
    FileFenceTest() {
        (void)alarm(100);  // what waits for a FIFO waits for ever
        Bare(m_strFile, "pragma synchronous = off; create table t(a); insert into t values(1)");
    }
    ~FileFenceTest() override { (void)alarm(0); }

    // 0 once the connection is open and the statement has run.
    int CodeOf(const char* pszSQL) {
        try {
            if (!m_db.isOpen()) {
                m_db.open(m_strFile.c_str());
                m_db.execDML("PRAGMA synchronous = OFF");
            }
            m_db.execDML(pszSQL);
        } catch (const CppSQLite3Exception& ex) {
            return ex.errorCode();
        }
        return 0;
    }
    int Number() { return m_db.execQuery("select sum(a) as s from t").getIntField("s"); }

    const TestDir m_dir;
    const std::string m_strFile = m_dir.Database("test.db");
    CppSQLite3DB m_db;
};

}  // namespace

TEST_F(FileFenceTest, AFifoInTheJournalsPlaceIsNotWaitedFor) {
    ASSERT_EQ(0, CodeOf("insert into t values(2)"));
    ASSERT_EQ(0, mkfifo((m_strFile + "-journal").c_str(), 0600));

    EXPECT_EQ(SQLITE_CANTOPEN, CodeOf("insert into t values(4)"));
    EXPECT_EQ(SQLITE_CANTOPEN, CodeOf("select * from t"));

    fs::remove(m_strFile + "-journal");
    EXPECT_EQ(0, CodeOf("insert into t values(8)"));
    EXPECT_EQ(11, Number());
}

TEST_F(FileFenceTest, AFifoInTheLogsPlaceIsNotWaitedFor) {
    Bare(m_strFile, "pragma journal_mode = wal");
    ASSERT_EQ(0, mkfifo((m_strFile + "-wal").c_str(), 0600));

    EXPECT_EQ(SQLITE_CANTOPEN, CodeOf("insert into t values(2)"));
}

TEST_F(FileFenceTest, WhatIsNoRegularFileIsNoDatabase) {
    for (const char* pszDevice : {"/dev/null", "/dev/zero", "/dev/full"}) {
        fs::remove(m_strFile);
        fs::create_symlink(pszDevice, m_strFile);
        EXPECT_EQ(SQLITE_CANTOPEN, CodeOf("create table t(a)")) << pszDevice;
    }
    fs::remove(m_strFile);
    ASSERT_EQ(0, mkfifo(m_strFile.c_str(), 0600));
    EXPECT_EQ(SQLITE_CANTOPEN, CodeOf("create table t(a)"));
}

TEST_F(FileFenceTest, ADatabaseMayBeLinkedTo) {
    fs::rename(m_strFile, m_dir.Path() + "/elsewhere.db");
    fs::create_symlink(m_dir.Path() + "/elsewhere.db", m_strFile);

    EXPECT_EQ(0, CodeOf("insert into t values(2)"));

    EXPECT_EQ(3, Number());
    EXPECT_TRUE(fs::is_symlink(m_strFile));
}

TEST_F(FileFenceTest, AJournalThatNamesAnotherFileDeletesNothingAndIsDropped) {
    const std::string strOther = m_dir.WriteFile("other", "not a journal");
    std::ofstream(m_strFile + "-journal", std::ios::binary)
        << JournalThatNames(strOther, FileText(m_strFile));

    EXPECT_EQ(0, CodeOf("insert into t values(2)"));

    EXPECT_EQ("not a journal", FileText(strOther));
    EXPECT_FALSE(fs::exists(m_strFile + "-journal"));
    EXPECT_EQ(3, Number());
}

TEST_F(FileFenceTest, TheJournalOfAChangeThatWasKilledIsRolledBack) {
    const pid_t nChild = fork();
    if (nChild == 0) {
        sqlite3* pDB = nullptr;
        (void)sqlite3_open(m_strFile.c_str(), &pDB);
        // So much that it does not wait in memory for its commit.
        (void)sqlite3_exec(pDB,
                           "pragma synchronous = off; pragma cache_size = 2; begin;"
                           "update t set a = 64; insert into t values(zeroblob(1000000))",
                           nullptr, nullptr, nullptr);
        _exit(0);
    }
    ASSERT_EQ(nChild, waitpid(nChild, nullptr, 0));
    ASSERT_LT(PAGE_SIZE, fs::file_size(m_strFile + "-journal"));

    EXPECT_EQ(0, CodeOf("insert into t values(2)"));

    EXPECT_EQ(3, Number());
    EXPECT_FALSE(fs::exists(m_strFile + "-journal"));
}

TEST_F(FileFenceTest, OpeningLeavesSQLitesListOfFileSystemsAsItWas) {
    const sqlite3_vfs* pDefault = sqlite3_vfs_find(nullptr);
    const sqlite3_vfs* pSecond = pDefault->pNext;

    EXPECT_EQ(0, CodeOf("select * from t"));

    EXPECT_EQ(pDefault, sqlite3_vfs_find(nullptr));
    EXPECT_EQ(pSecond, pDefault->pNext);
}

TEST_F(FileFenceTest, AStatementThatSortsMoreThanItsMemoryMakesNoFile) {
    const std::string strTen = "(values(1),(2),(3),(4),(5),(6),(7),(8),(9),(10))";
    std::string strRows = strTen + " a";
    for (int i = 0; i < 4; ++i) {
        strRows += "," + strTen + " b" + std::to_string(i);
    }
    const std::string strText(200, 'x');

    EXPECT_EQ(SQLITE_CANTOPEN, CodeOf(("select count(*) from (select '" + strText + "' as t from " +
                                       strRows + " order by b0.column1, t limit 90000)")
                                          .c_str()));
}
