#include "tevmon/core/CTevStore.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <new>

#include "tests/support/FileSizeLimit.h"
#include "tests/support/FileText.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/WaitsForLock.h"
#include "tests/support/trace/OtherConnection.h"
#include "tests/support/trace/SqlTrace.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

namespace {

constexpr char LOOK_FOR_TABLE[] =
    "select count(*) from sqlite_master where type = 'table' and rootpage > 0 and name = ? collate "
    "nocase";

class Things : public CTevStore {
public:
    Things() : CTevStore("../data/db/things.db", "things", "create table things( a INTEGER)") {}
    ~Things() = default;

    int Do(const std::string& strStatement) {
        const CCall call(*this);
        return Change([&] { return strStatement; });
    }
    int RunOutOfMemory() {
        const CCall call(*this);
        return Change([]() -> std::string { throw std::bad_alloc(); });
    }
    void AllTransactionCommands() {
        const CCall call(*this);
        BeginTransaction();
        Commit();
        BeginTransaction();
        Rollback();
    }
    CMutex& Mutex() { return m_mutex; }
};

class CTevStoreTest : public testing::Test {
protected:
    TestDir m_dir;
    Things m_store;
    std::string m_strFile = m_dir.Database("things.db");
};

}  // namespace

TEST_F(CTevStoreTest, OpenSwitchesSynchronousOffThenLooksForTheTableThenMakesIt) {
    const SqlTrace trace;

    EXPECT_TRUE(m_store.Open());

    EXPECT_EQ(
        (Texts{"PRAGMA synchronous = OFF", LOOK_FOR_TABLE, "create table things( a INTEGER)"}),
        trace.Statements());
}

TEST_F(CTevStoreTest, OpenTakesTheDirectoryThatIsCurrentWhenItIsCalled) {
    m_dir.WriteFile("elsewhere/run/file", "");
    fs::create_directories(m_dir.Path() + "/elsewhere/data/db");
    fs::current_path(m_dir.Path() + "/elsewhere/run");

    EXPECT_TRUE(m_store.Open());

    EXPECT_TRUE(fs::exists(m_dir.Path() + "/elsewhere/data/db/things.db"));
    EXPECT_FALSE(fs::exists(m_strFile));
}

TEST_F(CTevStoreTest, ASecondOpenKeepsTheTableAndItsRows) {
    ASSERT_TRUE(m_store.Open());
    ASSERT_EQ(0, m_store.Do("insert into things values(7)"));
    const SqlTrace trace;

    EXPECT_TRUE(m_store.Open());

    EXPECT_EQ((Texts{"PRAGMA synchronous = OFF", LOOK_FOR_TABLE}), trace.Statements());
    EXPECT_EQ(Texts{"7"}, OtherConnection(m_strFile).Rows("select * from things"));
}

TEST_F(CTevStoreTest, WithoutTheDirectoryOpenFailsInOneLineAndMakesNone) {
    fs::remove_all(m_dir.Path() + "/data");
    bool bOpen = true;

    const Texts lines = PrintedBy([&] { bOpen = m_store.Open(); });

    EXPECT_FALSE(bOpen);
    EXPECT_EQ(Texts{"unable to open database file"}, lines);
    EXPECT_FALSE(fs::exists(m_dir.Path() + "/data"));
}

TEST_F(CTevStoreTest, AfterAFailedOpenEveryChangeFailsInOneLine) {
    fs::remove_all(m_dir.Path() + "/data");
    (void)PrintedBy([&] { (void)m_store.Open(); });
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.Do("delete from things"); });

    EXPECT_EQ(1000, nResult);
    EXPECT_EQ(Texts{"the database is not open"}, lines);
}

TEST_F(CTevStoreTest, AFailedOpenLeavesNoConnectionBehind) {
    ASSERT_TRUE(m_store.Open());
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    bool bOpen = true;
    (void)PrintedBy([&] { bOpen = m_store.Open(); });
    ASSERT_TRUE(other.Release());
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.Do("delete from things"); });

    EXPECT_FALSE(bOpen);
    EXPECT_EQ(1000, nResult);
    EXPECT_EQ(Texts{"the database is not open"}, lines);
}

TEST_F(CTevStoreTest, ATableThatCannotBeMadeFailsTheOpenInOneLine) {
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockWrite());
    bool bOpen = true;

    const Texts lines = PrintedBy([&] { bOpen = m_store.Open(); });

    EXPECT_FALSE(bOpen);
    EXPECT_EQ(Texts{"database is locked"}, lines);
}

TEST_F(CTevStoreTest, AStoreThatFailedToOpenCanBeOpenedAgain) {
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    (void)PrintedBy([&] { EXPECT_FALSE(m_store.Open()); });
    ASSERT_TRUE(other.Release());

    EXPECT_TRUE(m_store.Open());

    EXPECT_EQ(0, m_store.Do("insert into things values(1)"));
}

TEST_F(CTevStoreTest, AFileThatIsNoDatabaseFailsToOpenAndStaysAsItIs) {
    const std::string strText(4096, 'x');
    m_dir.WriteFile("data/db/things.db", strText);
    bool bOpen = true;

    const Texts lines = PrintedBy([&] { bOpen = m_store.Open(); });

    EXPECT_FALSE(bOpen);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ("file is not a database", lines.back());
    EXPECT_EQ(strText, FileText(m_strFile));
}

TEST_F(CTevStoreTest, ADatabaseThatTheHostPreparedInAnotherJournalModeIsUsedAsItIs) {
    ASSERT_EQ(0, OtherConnection(m_strFile).Exec("pragma journal_mode=wal; create table x(a)"));

    ASSERT_TRUE(m_store.Open());
    ASSERT_EQ(0, m_store.Do("insert into things values(1)"));

    EXPECT_EQ(Texts{"wal"}, OtherConnection(m_strFile).Rows("pragma journal_mode"));
    EXPECT_EQ(Texts{"1"}, OtherConnection(m_strFile).Rows("select * from things"));
}

TEST_F(CTevStoreTest, AFreshDatabaseKeepsSqlitesOwnJournalMode) {
    ASSERT_TRUE(m_store.Open());

    EXPECT_EQ(Texts{"delete"}, OtherConnection(m_strFile).Rows("pragma journal_mode"));
}

struct SynchronousCase {
    int nMode;
    const char* pszStatement;
    int nSetting;  // as SQLite answers it afterwards; 2 is what a connection begins with
};

class CTevStoreSynchronousTest : public testing::TestWithParam<SynchronousCase> {};

TEST_P(CTevStoreSynchronousTest, AModeRunsItsStatement) {
    const TestDir dir;
    Things store;
    CppSQLite3DB db;
    db.open(dir.Database("other.db").c_str());
    const SqlTrace trace;

    EXPECT_EQ(0, store.SetSynchronous(db, GetParam().nMode));

    EXPECT_EQ(Texts{GetParam().pszStatement}, trace.Statements());
    EXPECT_EQ(GetParam().nSetting, db.execQuery("PRAGMA synchronous").getIntField("synchronous"));
}

INSTANTIATE_TEST_SUITE_P(Modes, CTevStoreSynchronousTest,
                         testing::Values(SynchronousCase{0, "PRAGMA synchronous = OFF", 0},
                                         SynchronousCase{1, "PRAGMA synchronous = NORMAL", 1},
                                         SynchronousCase{2, "PRAGMA synchronous = FULL", 2},
                                         SynchronousCase{3, "", 2}, SynchronousCase{-1, "", 2}));

TEST_F(CTevStoreTest, SetSynchronousOnAClosedConnectionPrintsAndReturnsItsCode) {
    CppSQLite3DB db;
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.SetSynchronous(db, 0); });

    EXPECT_EQ(1000, nResult);
    EXPECT_EQ(Texts{"the database is not open"}, lines);
}

TEST_F(CTevStoreTest, OpenAndSetSynchronousWaitForTheStoresMutex) {
    CppSQLite3DB db;
    db.open(m_dir.Database("other.db").c_str());

    EXPECT_TRUE(WaitsForLock(m_store.Mutex(), [&] { (void)m_store.Open(); }));
    EXPECT_TRUE(WaitsForLock(m_store.Mutex(), [&] { (void)m_store.SetSynchronous(db, 0); }));
}

TEST_F(CTevStoreTest, TheTransactionCommandsDoNotLock) {
    ASSERT_TRUE(m_store.Open());
    const SqlTrace trace;

    m_store.AllTransactionCommands();  // holds the mutex; a second lock would stand still

    EXPECT_EQ((Texts{"begin transaction", "commit transaction", "begin transaction",
                     "rollback transaction"}),
              trace.Statements());
}

TEST_F(CTevStoreTest, AChangeRunsInATransactionOfItsOwn) {
    ASSERT_TRUE(m_store.Open());
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.Do("insert into things values(1)"));

    EXPECT_EQ((Texts{"begin transaction", "insert into things values(1)", "commit transaction"}),
              trace.Statements());
}

TEST_F(CTevStoreTest, AFailedStatementIsRolledBackAndPrintedInOneLine) {
    ASSERT_TRUE(m_store.Open());
    int nResult = 0;
    const SqlTrace trace;

    const Texts lines = PrintedBy([&] { nResult = m_store.Do("insert into nowhere values(1)"); });

    EXPECT_EQ(1, nResult);
    EXPECT_EQ(Texts{"no such table: nowhere"}, lines);
    EXPECT_EQ((Texts{"begin transaction", "insert into nowhere values(1)", "rollback transaction"}),
              trace.Statements());
    EXPECT_EQ(0, m_store.Do("insert into things values(1)"));
}

TEST_F(CTevStoreTest, ACommitThatAnothersReadLockRefusesReturns5AndLeavesNoTransactionOpen) {
    ASSERT_TRUE(m_store.Open());
    OtherConnection reader(m_strFile);
    ASSERT_TRUE(reader.LockRead());
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.Do("insert into things values(1)"); });

    EXPECT_EQ(5, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
    EXPECT_EQ(0, OtherConnection(m_strFile).Exec("begin immediate; rollback"));  // nor its lock
    ASSERT_TRUE(reader.Release());
    EXPECT_EQ(0, m_store.Do("insert into things values(2)"));
    EXPECT_EQ(Texts{"2"}, reader.Rows("select * from things"));
}

TEST_F(CTevStoreTest, AWriteErrorThatSqliteRolledBackItselfIsStillOneLine) {
    ASSERT_TRUE(m_store.Open());
    const std::string strInsert = "insert into things values('" + std::string(1000000, 'x') + "')";
    int nResult = 0;

    Texts lines;
    {
        const FileSizeLimit limit(64 * 1024);
        lines = PrintedBy([&] { nResult = m_store.Do(strInsert); });
    }

    EXPECT_EQ(10, nResult);
    EXPECT_EQ(Texts{"disk I/O error"}, lines);
    EXPECT_EQ(0, m_store.Do("insert into things values(2)"));
    EXPECT_EQ(Texts{"2"}, OtherConnection(m_strFile).Rows("select * from things"));
}

// Both with the signal at its default, where it would end the process.
TEST_F(CTevStoreTest, AFileThatMayNotGrowRaisesNoSignalWhenItIsOpened) {
    bool bOpen = true;

    const Texts lines = PrintedBy([&] {
        const FileSizeLimit limit(1000);
        (void)signal(SIGXFSZ, SIG_DFL);
        bOpen = m_store.Open();
    });

    EXPECT_FALSE(bOpen);
    EXPECT_EQ(Texts{"disk I/O error"}, lines);
}

TEST_F(CTevStoreTest, AFileThatMayNotGrowRaisesNoSignalWhenItIsClosed) {
    (void)OtherConnection(m_strFile).Rows("pragma journal_mode = wal");
    auto pStore = std::make_unique<Things>();
    ASSERT_TRUE(pStore->Open());
    ASSERT_EQ(0, pStore->Do("insert into things values('" + std::string(100000, 'x') + "')"));
    const auto nBefore = fs::file_size(m_strFile);

    {
        const FileSizeLimit limit(nBefore);
        (void)signal(SIGXFSZ, SIG_DFL);
        pStore.reset();  // what the log holds does not fit into the file
    }

    EXPECT_EQ(nBefore, fs::file_size(m_strFile));
    EXPECT_EQ(Texts{"1"}, OtherConnection(m_strFile).Rows("select count(*) from things"));
}

TEST_F(CTevStoreTest, MemoryThatRanOutIsAnErrorLikeSqlitesOwn) {
    ASSERT_TRUE(m_store.Open());
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.RunOutOfMemory(); });

    EXPECT_EQ(7, nResult);
    EXPECT_EQ(Texts{"out of memory"}, lines);
    EXPECT_EQ(0, m_store.Do("insert into things values(1)"));
}
