#include "tevmon/core/CTevChennalDB.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/WaitsForLock.h"
#include "tests/support/trace/OtherConnection.h"
#include "tests/support/trace/SqlTrace.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

namespace {

class Queue : public CTevChennalDB {
public:
    Queue() = default;
    ~Queue() = default;
    CMutex& Mutex() { return m_mutex; }
};

Texts Details(const std::list<ChennalRecord>& recordList) {
    Texts details;
    for (const ChennalRecord& record : recordList) {
        details.push_back(record.detail);
    }
    return details;
}

class CTevChennalDBTest : public testing::Test {
protected:
    // The queued messages, oldest first, as they stand.
    Texts Queued() {
        std::list<ChennalRecord> recordList;
        EXPECT_EQ(0, m_store.Fetch(recordList, 1000));
        return Details(recordList);
    }
    void Insert(const Texts& details) {
        for (const std::string& strDetail : details) {
            ASSERT_EQ(0, m_store.Insert({0, 1000, strDetail, 5}));
        }
    }

    TestDir m_dir;
    std::string m_strFile = m_dir.Database("tevchennaldb.db");
    Queue m_store;
};

}  // namespace

TEST_F(CTevChennalDBTest, OnFirstStartTheFileIsMadeInTheDatabaseDirectoryWithItsTable) {
    EXPECT_TRUE(fs::exists(m_strFile));
    // SQLite keeps the statement with its first two words in capitals.
    EXPECT_EQ(
        Texts{"CREATE TABLE msgchennal( id INTEGER PRIMARY KEY autoincrement , createtime "
              "TEXT, detail TEXT, mid INTEGER)"},
        OtherConnection(m_strFile).Rows("select sql from sqlite_master where name = 'msgchennal'"));
    EXPECT_EQ((Texts{"msgchennal", "sqlite_sequence"}),
              OtherConnection(m_strFile).Rows("select name from sqlite_master order by name"));
}

TEST_F(CTevChennalDBTest, TheTableIsMadeByExactlyItsStatement) {
    const TestDir dir;
    const SqlTrace trace;

    const Queue store;

    EXPECT_EQ(1u, trace.Count("create table msgchennal( id INTEGER PRIMARY KEY autoincrement , "
                              "createtime TEXT, detail TEXT, mid INTEGER)"));
    EXPECT_EQ("PRAGMA synchronous = OFF", trace.Statements().front());
}

TEST_F(CTevChennalDBTest, OnTheNextStartTheExistingTableIsKeptWithItsRows) {
    Insert({"one", "two"});

    Queue next;
    std::list<ChennalRecord> recordList;
    ASSERT_EQ(0, next.Fetch(recordList, 10));

    EXPECT_EQ((Texts{"one", "two"}), Details(recordList));
}

TEST_F(CTevChennalDBTest, WithoutTheDirectoryEveryOperationFailsInOneLine) {
    const TestDir dir(false);
    std::list<ChennalRecord> recordList(1);
    int nInsert = 0, nFetch = 0, nFetchAndRemove = 0, nRemove = 0, nCount = -1;
    bool bClear = true;

    const Texts lines = PrintedBy([&] {
        Queue store;
        nInsert = store.Insert({0, 1, "x", 5});
        nFetch = store.Fetch(recordList, 1);
        recordList.resize(1);
        nFetchAndRemove = store.FetchAndRemove(recordList, 1);
        nRemove = store.Remove(1);
        nCount = store.Count();
        bClear = store.Clear();
    });

    EXPECT_EQ(1000, nInsert);
    EXPECT_EQ(1000, nFetch);
    EXPECT_EQ(1000, nFetchAndRemove);
    EXPECT_EQ(1000, nRemove);
    EXPECT_EQ(0, nCount);
    EXPECT_FALSE(bClear);
    EXPECT_TRUE(recordList.empty());
    Texts expected(7, "the database is not open");
    expected[0] = "unable to open database file";
    EXPECT_EQ(expected, lines);
    EXPECT_FALSE(fs::exists(dir.Path() + "/data"));
}

TEST_F(CTevChennalDBTest, InsertQuotesTheTimeAndNotTheIdentifier) {
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.Insert({99, 1000, R"({"type":1})", 5}));

    EXPECT_EQ((Texts{"begin transaction",
                     "insert into msgchennal(createtime,detail,mid) "
                     "values('1000','eyJ0eXBlIjoxfQ==',5)",
                     "commit transaction"}),
              trace.Statements());
    EXPECT_EQ(Texts{"1|text|1000|text|eyJ0eXBlIjoxfQ==|integer|5"},
              OtherConnection(m_strFile).Rows(
                  "select id,typeof(createtime),createtime,typeof(detail),detail,"
                  "typeof(mid),mid from msgchennal"));
}

TEST_F(CTevChennalDBTest, InsertWritesNumbersInDecimalAtTheEndsOfTheirRanges) {
    const SqlTrace trace;

    ASSERT_EQ(0, m_store.Insert({0, INT64_MIN, "", INT32_MIN}));
    ASSERT_EQ(0, m_store.Insert({0, INT64_MAX, "", INT32_MAX}));

    EXPECT_EQ(1u, trace.Count("insert into msgchennal(createtime,detail,mid) "
                              "values('-9223372036854775808','',-2147483648)"));
    EXPECT_EQ(1u, trace.Count("insert into msgchennal(createtime,detail,mid) "
                              "values('9223372036854775807','',2147483647)"));
}

TEST_F(CTevChennalDBTest, AMessageTextContainingQuotesIsStoredIntact) {
    const std::string strBody = R"({"cmd":"echo 'it''s'; \"x\""})"
                                "');delete from msgchennal;--";
    ASSERT_EQ(0, m_store.Insert({0, 1000, strBody, 5}));

    EXPECT_EQ(Texts{strBody}, Queued());
}

TEST_F(CTevChennalDBTest, AMessageWithNulAndInvalidUtf8AndFormatSignsIsStoredIntact) {
    const std::string strBody("a\0b\xff\xc3(\n\r%s%n%d\0", 15);
    ASSERT_EQ(0, m_store.Insert({0, 1000, strBody, 5}));

    EXPECT_EQ(Texts{strBody}, Queued());
}

TEST_F(CTevChennalDBTest, AMessageOfOneMegabyteIsStoredIntact) {
    std::string strBody(1024 * 1024, '\0');
    for (size_t i = 0; i < strBody.size(); ++i) {
        strBody[i] = static_cast<char>(i * 7 % 256);
    }
    ASSERT_EQ(0, m_store.Insert({0, 1000, strBody, 5}));

    EXPECT_TRUE(Texts{strBody} == Queued());
}

TEST_F(CTevChennalDBTest, FetchOfAnEmptyTableReturns0AndAnEmptyList) {
    std::list<ChennalRecord> recordList(3);

    EXPECT_EQ(0, m_store.Fetch(recordList, 1));

    EXPECT_TRUE(recordList.empty());
}

TEST_F(CTevChennalDBTest, FetchIsOneStatementWithoutATransaction) {
    std::list<ChennalRecord> recordList;
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.Fetch(recordList, 3));

    EXPECT_EQ(Texts{"select * from msgchennal limit 0,3"}, trace.Statements());
}

TEST_F(CTevChennalDBTest, FetchReadsEveryFieldAndLeavesTheRows) {
    ASSERT_EQ(0, m_store.Insert({0, 1700000000, "body", 6}));
    std::list<ChennalRecord> recordList;

    ASSERT_EQ(0, m_store.Fetch(recordList, 1));

    ASSERT_EQ(1u, recordList.size());
    EXPECT_EQ(1, recordList.front().id);
    EXPECT_EQ(1700000000, recordList.front().createtime);
    EXPECT_EQ("body", recordList.front().detail);
    EXPECT_EQ(6, recordList.front().mid);
    EXPECT_EQ(1, m_store.Count());
}

TEST_F(CTevChennalDBTest, RowsComeBackInTableOrderOldestFirst) {
    Insert({"one", "two", "three"});
    std::list<ChennalRecord> recordList;

    ASSERT_EQ(0, m_store.Fetch(recordList, 2));

    EXPECT_EQ((Texts{"one", "two"}), Details(recordList));
}

TEST_F(CTevChennalDBTest, ARowWithoutValuesReadsEmptyAndZero) {
    ASSERT_EQ(0, OtherConnection(m_strFile).Exec("insert into msgchennal(id) values(8)"));
    std::list<ChennalRecord> recordList;

    ASSERT_EQ(0, m_store.Fetch(recordList, 1));

    ASSERT_EQ(1u, recordList.size());
    EXPECT_EQ(8, recordList.front().id);
    EXPECT_EQ(0, recordList.front().createtime);
    EXPECT_EQ("", recordList.front().detail);
    EXPECT_EQ(0, recordList.front().mid);
}

TEST_F(CTevChennalDBTest, TheTimeIsReadBackWith32Bits) {
    ASSERT_EQ(0, m_store.Insert({0, 4294967301, "x", 5}));
    std::list<ChennalRecord> recordList;

    ASSERT_EQ(0, m_store.Fetch(recordList, 1));

    EXPECT_EQ(5, recordList.front().createtime);
}

TEST_F(CTevChennalDBTest, AnIdPast32BitsIsReadWhole) {
    ASSERT_EQ(0, OtherConnection(m_strFile).Exec("insert into msgchennal(id) values(4294967301)"));
    std::list<ChennalRecord> recordList;

    ASSERT_EQ(0, m_store.Fetch(recordList, 1));

    EXPECT_EQ(4294967301, recordList.front().id);
}

TEST_F(CTevChennalDBTest, RemoveDeletesOneRowInATransaction) {
    Insert({"one", "two", "three"});
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.Remove(2));

    EXPECT_EQ(
        (Texts{"begin transaction", "delete from msgchennal where id = 2", "commit transaction"}),
        trace.Statements());
    EXPECT_EQ((Texts{"one", "three"}), Queued());
}

TEST_F(CTevChennalDBTest, RemoveOfAnIdThatIsNotPresentSucceedsWith0) {
    Insert({"one"});

    EXPECT_EQ(0, m_store.Remove(77));

    EXPECT_EQ(Texts{"one"}, Queued());
}

TEST_F(CTevChennalDBTest, RemoveTakesOnlyTheLow32BitsOfTheId) {
    Insert({"one", "two"});
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.Remove(4294967298));
    EXPECT_EQ(0, m_store.Remove(2147483648));

    EXPECT_EQ(1u, trace.Count("delete from msgchennal where id = 2"));
    EXPECT_EQ(1u, trace.Count("delete from msgchennal where id = -2147483648"));
    EXPECT_EQ(Texts{"one"}, Queued());
}

TEST_F(CTevChennalDBTest, TheIdOfARemovedMessageIsNotUsedAgain) {
    Insert({"one", "two"});
    ASSERT_EQ(0, m_store.Remove(2));
    Insert({"three"});

    EXPECT_EQ((Texts{"1", "3"}), OtherConnection(m_strFile).Rows("select id from msgchennal"));
}

TEST_F(CTevChennalDBTest, FetchAndRemoveDeletesExactlyTheRowsItReturnedFromTheHead) {
    Insert({"one", "two", "three"});
    std::list<ChennalRecord> recordList(1);
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.FetchAndRemove(recordList, 2));

    EXPECT_EQ((Texts{"one", "two"}), Details(recordList));
    EXPECT_EQ((Texts{"begin transaction", "select * from msgchennal limit 0,2",
                     "delete from msgchennal where id  in(select id from msgchennal limit 2)",
                     "commit transaction"}),
              trace.Statements());
    EXPECT_EQ(Texts{"three"}, Queued());
}

TEST_F(CTevChennalDBTest, FetchAndRemoveNamesTheNumberOfRowsThatItActuallyFetched) {
    Insert({"one"});
    std::list<ChennalRecord> recordList;
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.FetchAndRemove(recordList, 10));
    EXPECT_EQ(0, m_store.FetchAndRemove(recordList, 10));

    EXPECT_EQ(
        1u, trace.Count("delete from msgchennal where id  in(select id from msgchennal limit 1)"));
    EXPECT_EQ(
        1u, trace.Count("delete from msgchennal where id  in(select id from msgchennal limit 0)"));
    EXPECT_TRUE(recordList.empty());
}

TEST_F(CTevChennalDBTest, FetchAndRemoveThatCannotDeleteReturnsNoRowsAndKeepsThem) {
    Insert({"one", "two"});
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockWrite());
    std::list<ChennalRecord> recordList;
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.FetchAndRemove(recordList, 2); });

    EXPECT_EQ(5, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
    EXPECT_TRUE(recordList.empty());
    ASSERT_TRUE(other.Release());
    EXPECT_EQ((Texts{"one", "two"}), Queued());
}

TEST_F(CTevChennalDBTest, FetchAndRemoveThatCannotCommitReturnsNoRowsAndKeepsThem) {
    Insert({"one", "two"});
    OtherConnection reader(m_strFile);
    ASSERT_TRUE(reader.LockRead());
    std::list<ChennalRecord> recordList;
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.FetchAndRemove(recordList, 2); });

    EXPECT_EQ(5, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
    EXPECT_TRUE(recordList.empty());
    ASSERT_TRUE(reader.Release());
    EXPECT_EQ((Texts{"one", "two"}), Queued());
    Insert({"three"});  // no transaction was left open
}

TEST_F(CTevChennalDBTest, CountCountsTheRows) {
    Insert({"one", "two"});
    const SqlTrace trace;

    EXPECT_EQ(2, m_store.Count());

    EXPECT_EQ(Texts{"select count(*) as rownum from msgchennal "}, trace.Statements());
}

TEST_F(CTevChennalDBTest, CountOfAnEmptyTableIs0AndSoIsAnError) {
    EXPECT_EQ(0, m_store.Count());
    Insert({"one"});
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    int nCount = -1;

    const Texts lines = PrintedBy([&] { nCount = m_store.Count(); });

    EXPECT_EQ(0, nCount);
    EXPECT_EQ(Texts{"database is locked"}, lines);
}

TEST_F(CTevChennalDBTest, ClearDeletesEveryRowInATransaction) {
    Insert({"one", "two"});
    const SqlTrace trace;

    EXPECT_TRUE(m_store.Clear());

    EXPECT_EQ((Texts{"begin transaction", "delete from msgchennal", "commit transaction"}),
              trace.Statements());
    EXPECT_EQ(0, m_store.Count());
}

TEST_F(CTevChennalDBTest, ALockedDatabaseMakesEveryOperationFailWith5AtOnceInOneLine) {
    Insert({"one"});
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    std::list<ChennalRecord> recordList(1);
    int nInsert = 0, nFetch = 0, nFetchAndRemove = 0, nRemove = 0;
    bool bClear = true;

    const Texts lines = PrintedBy([&] {
        nInsert = m_store.Insert({0, 1, "x", 5});
        nFetch = m_store.Fetch(recordList, 1);
        nFetchAndRemove = m_store.FetchAndRemove(recordList, 1);
        nRemove = m_store.Remove(1);
        bClear = m_store.Clear();
    });

    EXPECT_EQ(5, nInsert);
    EXPECT_EQ(5, nFetch);
    EXPECT_EQ(5, nFetchAndRemove);
    EXPECT_EQ(5, nRemove);
    EXPECT_FALSE(bClear);
    EXPECT_TRUE(recordList.empty());
    EXPECT_EQ(Texts(5, "database is locked"), lines);
    ASSERT_TRUE(other.Release());
    EXPECT_EQ(Texts{"one"}, Queued());
}

TEST_F(CTevChennalDBTest, ATableOfAnotherShapeIsUsedAsItIs) {
    const TestDir dir;
    OtherConnection other(dir.Database("tevchennaldb.db"));
    ASSERT_EQ(0, other.Exec("create table msgchennal(a); insert into msgchennal values(1)"));
    Queue store;
    std::list<ChennalRecord> recordList;
    int nFetch = 0;
    int nInsert = 0;

    const Texts lines = PrintedBy([&] {
        nFetch = store.Fetch(recordList, 1);
        nInsert = store.Insert({0, 1, "x", 5});
    });

    EXPECT_EQ(1000, nFetch);
    EXPECT_EQ(1, nInsert);
    EXPECT_EQ(
        (Texts{"the query has no column id", "table msgchennal has no column named createtime"}),
        lines);
    EXPECT_EQ(1, store.Count());
}

TEST_F(CTevChennalDBTest, EveryOperationWaitsForTheStoresMutex) {
    std::list<ChennalRecord> recordList;

    EXPECT_TRUE(WaitsForLock(m_store.Mutex(), [&] { (void)m_store.Insert({0, 1, "x", 5}); }));
    EXPECT_TRUE(WaitsForLock(m_store.Mutex(), [&] { (void)m_store.Fetch(recordList, 1); }));
    EXPECT_TRUE(
        WaitsForLock(m_store.Mutex(), [&] { (void)m_store.FetchAndRemove(recordList, 1); }));
    EXPECT_TRUE(WaitsForLock(m_store.Mutex(), [&] { (void)m_store.Remove(1); }));
    EXPECT_TRUE(WaitsForLock(m_store.Mutex(), [&] { (void)m_store.Count(); }));
    EXPECT_TRUE(WaitsForLock(m_store.Mutex(), [&] { (void)m_store.Clear(); }));
}

// A process of its own for this test, as ctest gives it, so that nothing has opened the store yet.
TEST_F(CTevChennalDBTest, TheProcesssStoreIsOneAndOpensOnFirstUse) {
    const TestDir dir;
    ASSERT_FALSE(fs::exists(dir.Database("tevchennaldb.db")));

    CTevChennalDB* pStore = CTevChennalDB::Instance();

    ASSERT_NE(nullptr, pStore);
    EXPECT_EQ(pStore, CTevChennalDB::Instance());
    EXPECT_TRUE(fs::exists(dir.Database("tevchennaldb.db")));
}
