#include "tevmon/core/CTevCloudCachoDB.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/WaitsForLock.h"
#include "tests/support/clocks/LeapingClocks.h"
#include "tests/support/trace/OtherConnection.h"
#include "tests/support/trace/SqlTrace.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

namespace {

constexpr char ALL_ROWS[] =
    "select vkey,level,tmcreate,tminternal,detail,mid from cachotable order by rowid";

CachoRecord Entry(const std::string& strKey) {
    CachoRecord record;
    record.key = strKey;
    record.nLevel = 40;
    record.nTmCreate = 1000;
    record.nTmInterval = 1200;
    record.eMid = 5;
    record.strDetail = "abc";
    return record;
}

int DeleteLocked(CTevCloudCachoDB& store, const std::string& strKey) {
    store.Lock();
    const int nResult = store.Delete(strKey);
    store.Unlock();
    return nResult;
}

int SelectPageLocked(CTevCloudCachoDB& store, CachoPage& page, int nCount) {
    store.Lock();
    const int nResult = store.SelectPage(page, nCount);
    store.Unlock();
    return nResult;
}

class CTevCloudCachoDBTest : public testing::Test {
protected:
    Texts Rows(const std::string& strQuery = ALL_ROWS) {
        return OtherConnection(m_strFile).Rows(strQuery);
    }
    void InsertNumbered(int nRows) {
        for (int i = 0; i < nRows; ++i) {
            ASSERT_EQ(0, m_store.Insert(Entry("key" + std::to_string(i))));
        }
    }

    TestDir m_dir;
    std::string m_strFile = m_dir.Database("tevcloudcacho.db");
    CTevCloudCachoDB m_store;
};

}  // namespace

TEST_F(CTevCloudCachoDBTest, TheFileIsMadeInTheDatabaseDirectoryWithItsTableAndNothingElse) {
    // SQLite keeps the statement with its first two words in capitals.
    EXPECT_EQ(Texts{"CREATE TABLE cachotable( id INTEGER ,  vkey TEXT PRIMARY KEY, level INTEGER,  "
                    "tmcreate INTEGER, tminternal INTEGER, detail TEXT, mid INTEGER)"},
              Rows("select sql from sqlite_master where name = 'cachotable'"));
    EXPECT_EQ((Texts{"cachotable", "sqlite_autoindex_cachotable_1"}),
              Rows("select name from sqlite_master order by name"));
}

TEST_F(CTevCloudCachoDBTest, TheTableIsMadeByExactlyItsStatementWithSynchronousOff) {
    const TestDir dir;
    const SqlTrace trace;

    const CTevCloudCachoDB store;

    EXPECT_EQ("PRAGMA synchronous = OFF", trace.Statements().front());
    EXPECT_EQ(
        "create table cachotable( id INTEGER ,  vkey TEXT PRIMARY KEY, level INTEGER,  "
        "tmcreate INTEGER, tminternal INTEGER, detail TEXT, mid INTEGER)",
        trace.Statements().back());
}

TEST_F(CTevCloudCachoDBTest, OnTheNextStartTheExistingTableIsKeptWithItsRows) {
    InsertNumbered(2);

    CTevCloudCachoDB next;

    EXPECT_EQ(2, next.Count());
}

TEST_F(CTevCloudCachoDBTest, InsertWritesTheKeyAsItIsAndTheDetailInBase64) {
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.Insert(Entry("K")));

    EXPECT_EQ((Texts{"begin transaction",
                     "insert into cachotable(vkey,level,tmcreate,tminternal,detail,mid) "
                     "values('K',40,1000,1200,'YWJj',5)",
                     "commit transaction"}),
              trace.Statements());
    EXPECT_EQ(Texts{"NULL|K|integer|integer|integer|YWJj|integer"},
              Rows("select id,vkey,typeof(level),typeof(tmcreate),typeof(tminternal),detail,"
                   "typeof(mid) from cachotable"));
}

TEST_F(CTevCloudCachoDBTest, TheColumnIdIsNeverWrittenAndReadsZero) {
    CachoRecord record = Entry("K");
    record.id = 7;

    ASSERT_EQ(0, m_store.Insert(record));

    EXPECT_EQ(Texts{"NULL"}, Rows("select id from cachotable"));
    record.id = 8;
    ASSERT_EQ(1, m_store.Select("K", record));
    EXPECT_EQ(0, record.id);
}

TEST_F(CTevCloudCachoDBTest, InsertWritesNumbersInDecimalAtTheEndsOfTheirRanges) {
    CachoRecord record = Entry("K");
    record.nLevel = INT32_MIN;
    record.nTmCreate = INT64_MIN;
    record.nTmInterval = INT64_MAX;
    record.eMid = INT32_MAX;
    record.strDetail = "";

    ASSERT_EQ(0, m_store.Insert(record));

    EXPECT_EQ(Texts{"K|-2147483648|-9223372036854775808|9223372036854775807||2147483647"}, Rows());
}

TEST_F(CTevCloudCachoDBTest, InsertingAKeyThatIsPresentReturns19AndLeavesTheRow) {
    ASSERT_EQ(0, m_store.Insert(Entry("K")));
    CachoRecord second = Entry("K");
    second.nLevel = 70;
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.Insert(second); });

    EXPECT_EQ(19, nResult);
    EXPECT_EQ(Texts{"UNIQUE constraint failed: cachotable.vkey"}, lines);
    EXPECT_EQ(Texts{"K|40|1000|1200|YWJj|5"}, Rows());
}

TEST_F(CTevCloudCachoDBTest, SelectOfAKeyWithNoRowReturns0AndLeavesTheRecordUntouched) {
    CachoRecord record = Entry("before");
    const SqlTrace trace;

    EXPECT_EQ(0, m_store.Select("K", record));

    EXPECT_EQ((Texts{"begin transaction", "select * from cachotable  where vkey = 'K'",
                     "commit transaction"}),
              trace.Statements());
    EXPECT_EQ("before", record.key);
    EXPECT_EQ(40, record.nLevel);
    EXPECT_EQ("abc", record.strDetail);
}

TEST_F(CTevCloudCachoDBTest, SelectReadsEveryField) {
    CachoRecord stored = Entry("K");
    stored.nTmCreate = 5000000000;
    stored.nTmInterval = 6000000000;
    stored.strDetail = std::string("'\0\xff", 3);
    ASSERT_EQ(0, m_store.Insert(stored));
    CachoRecord record;
    record.id = 7;
    const SqlTrace trace;

    EXPECT_EQ(1, m_store.Select("K", record));

    EXPECT_EQ((Texts{"begin transaction", "select * from cachotable  where vkey = 'K'",
                     "commit transaction"}),
              trace.Statements());
    EXPECT_EQ(0, record.id);
    EXPECT_EQ("K", record.key);
    EXPECT_EQ(40, record.nLevel);
    EXPECT_EQ(5000000000, record.nTmCreate);
    EXPECT_EQ(6000000000, record.nTmInterval);
    EXPECT_EQ(5, record.eMid);
    EXPECT_EQ(std::string("'\0\xff", 3), record.strDetail);
}

TEST_F(CTevCloudCachoDBTest, KeysAreComparedByteForByte) {
    ASSERT_EQ(0, m_store.Insert(Entry("Key\xff")));
    CachoRecord record;

    EXPECT_EQ(1, m_store.Select("Key\xff", record));
    EXPECT_EQ("Key\xff", record.key);
    EXPECT_EQ(0, m_store.Select("key\xff", record));
    EXPECT_EQ(0, m_store.Select("Key", record));
}

TEST_F(CTevCloudCachoDBTest, SelectOfTheEmptyKeyIsALookupLikeAnyOther) {
    CachoRecord record;
    EXPECT_EQ(0, m_store.Select("", record));
    ASSERT_EQ(0, m_store.Insert(Entry("")));

    EXPECT_EQ(1, m_store.Select("", record));
}

TEST_F(CTevCloudCachoDBTest, ARowWithoutValuesReadsEmptyAndZero) {
    ASSERT_EQ(0, OtherConnection(m_strFile).Exec("insert into cachotable(vkey) values('K')"));
    CachoRecord record = Entry("before");

    ASSERT_EQ(1, m_store.Select("K", record));

    EXPECT_EQ(0, record.nLevel);
    EXPECT_EQ(0, record.nTmCreate);
    EXPECT_EQ(0, record.nTmInterval);
    EXPECT_EQ(0, record.eMid);
    EXPECT_EQ("", record.strDetail);
}

TEST_F(CTevCloudCachoDBTest, SelectOnALockedDatabaseReturnsMinus1AndLeavesTheRecordUntouched) {
    ASSERT_EQ(0, m_store.Insert(Entry("K")));
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    CachoRecord record = Entry("before");
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.Select("K", record); });

    EXPECT_EQ(-1, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
    EXPECT_EQ("before", record.key);
}

TEST_F(CTevCloudCachoDBTest, UpdateOfAnyRecordReturns0AndLeavesTheRowAsItWas) {
    ASSERT_EQ(0, m_store.Insert(Entry("K")));
    CachoRecord record = Entry("K");
    record.nLevel = 70;
    record.nTmCreate = 2000;
    int nResult = 1;
    const SqlTrace trace;

    const Texts lines = PrintedBy([&] { nResult = m_store.Update(record); });

    EXPECT_EQ(0, nResult);
    EXPECT_EQ(Texts{"near \")\": syntax error"}, lines);
    EXPECT_EQ((Texts{"begin transaction",
                     "update cachotable set vkey = 'K',level = 70,tmcreate = 2000,tminternal = "
                     "1200,detail = 'YWJj',mid = 5)where vkey = 'K'",
                     "rollback transaction"}),
              trace.Statements());
    EXPECT_EQ(Texts{"K|40|1000|1200|YWJj|5"}, Rows());
}

TEST_F(CTevCloudCachoDBTest, UpdateOfAKeyWithNoRowReturns0AndAddsNone) {
    int nResult = 1;

    const Texts lines = PrintedBy([&] { nResult = m_store.Update(Entry("K")); });

    EXPECT_EQ(0, nResult);
    EXPECT_EQ(1u, lines.size());
    EXPECT_EQ(Texts{}, Rows());
}

TEST_F(CTevCloudCachoDBTest, DeleteOfAnEmptyKeyReturns1WithoutAStatement) {
    ASSERT_EQ(0, m_store.Insert(Entry("")));
    const SqlTrace trace;

    EXPECT_EQ(1, DeleteLocked(m_store, ""));

    EXPECT_EQ(Texts{}, trace.Statements());
    EXPECT_EQ(1u, Rows().size());
}

TEST_F(CTevCloudCachoDBTest, DeleteRemovesTheRowInATransactionAndReturns0) {
    InsertNumbered(2);
    const SqlTrace trace;

    EXPECT_EQ(0, DeleteLocked(m_store, "key0"));

    EXPECT_EQ((Texts{"begin transaction", "delete from cachotable where vkey = 'key0'",
                     "commit transaction"}),
              trace.Statements());
    EXPECT_EQ(Texts{"key1|40|1000|1200|YWJj|5"}, Rows());
}

TEST_F(CTevCloudCachoDBTest, DeleteOfAKeyWithNoRowReturns0) {
    EXPECT_EQ(0, DeleteLocked(m_store, "K"));
}

TEST_F(CTevCloudCachoDBTest, DeleteOnABusyDatabaseReturns1AndNot5) {
    ASSERT_EQ(0, m_store.Insert(Entry("K")));
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockWrite());
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = DeleteLocked(m_store, "K"); });

    EXPECT_EQ(1, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
    EXPECT_EQ(1u, Rows().size());
}

TEST_F(CTevCloudCachoDBTest, SelectPageOf25RowsBy10Yields10And10And5And0) {
    InsertNumbered(25);
    CachoPage page;
    const SqlTrace trace;

    EXPECT_EQ(10, SelectPageLocked(m_store, page, 10));
    EXPECT_EQ("key0", page.recordList.front().key);
    EXPECT_EQ(10, SelectPageLocked(m_store, page, 10));
    EXPECT_EQ("key10", page.recordList.front().key);
    EXPECT_EQ(20, page.nOffset);
    EXPECT_EQ(5, SelectPageLocked(m_store, page, 10));
    EXPECT_EQ(5u, page.recordList.size());
    EXPECT_EQ(25, page.nOffset);
    EXPECT_EQ(0, SelectPageLocked(m_store, page, 10));

    EXPECT_EQ(25, page.nOffset);
    EXPECT_TRUE(page.recordList.empty());
    EXPECT_EQ(4u, trace.Count("begin transaction"));
    EXPECT_EQ(1u, trace.Count("select * from cachotable limit 0,10"));
    EXPECT_EQ(1u, trace.Count("select * from cachotable limit 10,10"));
    EXPECT_EQ(1u, trace.Count("select * from cachotable limit 20,10"));
    EXPECT_EQ(1u, trace.Count("select * from cachotable limit 25,10"));
    EXPECT_EQ(4u, trace.Count("commit transaction"));
}

// The expiry scan's pages step over all rows before them; a lookup holds a foreign text.
TEST_F(CTevCloudCachoDBTest, APageAtALargeOffsetMayTakeItsTimeAndALookupMayNot) {
    {
        OtherConnection other(m_strFile);
        ASSERT_EQ(
            0, other.Exec("with recursive n(i) as (select 0 union all select i + 1 from n where i "
                          "< 999) insert into cachotable(vkey,level,tmcreate,tminternal,mid) "
                          "select 'k'||i,40,1,1,5 from n"));
    }
    const LeapingClocks clocks(10, 1);
    CachoPage page;
    page.nOffset = 900;

    EXPECT_EQ(10, SelectPageLocked(m_store, page, 10));

    EXPECT_EQ(910, page.nOffset);
    EXPECT_EQ(1000, m_store.Count());
    CachoRecord record;
    const Texts lines = PrintedBy(
        [&] { EXPECT_EQ(-1, m_store.Select("x' or 1 order by detail,level--", record)); });
    EXPECT_EQ(Texts{"interrupted"}, lines);
}

TEST_F(CTevCloudCachoDBTest, SelectPageOnALockedDatabaseReturnsMinus1WithTheListEmptyAndTheOffset) {
    InsertNumbered(3);
    CachoPage page;
    ASSERT_EQ(2, SelectPageLocked(m_store, page, 2));
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = SelectPageLocked(m_store, page, 2); });

    EXPECT_EQ(-1, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
    EXPECT_TRUE(page.recordList.empty());
    EXPECT_EQ(2, page.nOffset);
}

TEST_F(CTevCloudCachoDBTest, CountCountsTheRowsAndAnswersMinus1OnAnError) {
    EXPECT_EQ(0, m_store.Count());
    InsertNumbered(2);
    {
        const SqlTrace trace;
        EXPECT_EQ(2, m_store.Count());
        EXPECT_EQ(Texts{"select count(*) as rownum from cachotable "}, trace.Statements());
    }
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    int nCount = 0;

    const Texts lines = PrintedBy([&] { nCount = m_store.Count(); });

    EXPECT_EQ(-1, nCount);
    EXPECT_EQ(Texts{"database is locked"}, lines);
}

TEST_F(CTevCloudCachoDBTest, ClearDeletesEveryRowAndAnswers0OnAnError) {
    InsertNumbered(2);
    {
        const SqlTrace trace;
        EXPECT_EQ(1, m_store.Clear());
        EXPECT_EQ((Texts{"begin transaction", "delete from cachotable", "commit transaction"}),
                  trace.Statements());
    }
    EXPECT_EQ(Texts{}, Rows());
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockWrite());
    int nResult = 1;

    const Texts lines = PrintedBy([&] { nResult = m_store.Clear(); });

    EXPECT_EQ(0, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
}

TEST_F(CTevCloudCachoDBTest, InsertOnABusyDatabaseReturns5) {
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockWrite());
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = m_store.Insert(Entry("K")); });

    EXPECT_EQ(5, nResult);
    EXPECT_EQ(Texts{"database is locked"}, lines);
}

TEST_F(CTevCloudCachoDBTest, WithoutTheDirectoryEveryOperationFailsInOneLine) {
    const TestDir dir(false);
    CachoRecord record;
    CachoPage page;
    int nInsert = 0, nSelect = 0, nUpdate = 1, nDelete = 0, nPage = 0, nCount = 0, nClear = 1;

    const Texts lines = PrintedBy([&] {
        CTevCloudCachoDB store;
        nInsert = store.Insert(Entry("K"));
        nSelect = store.Select("K", record);
        nUpdate = store.Update(Entry("K"));
        nDelete = DeleteLocked(store, "K");
        nPage = SelectPageLocked(store, page, 10);
        nCount = store.Count();
        nClear = store.Clear();
    });

    EXPECT_EQ(1000, nInsert);
    EXPECT_EQ(-1, nSelect);
    EXPECT_EQ(0, nUpdate);
    EXPECT_EQ(1, nDelete);
    EXPECT_EQ(-1, nPage);
    EXPECT_EQ(-1, nCount);
    EXPECT_EQ(0, nClear);
    Texts expected(8, "the database is not open");
    expected[0] = "unable to open database file";
    EXPECT_EQ(expected, lines);
}

TEST_F(CTevCloudCachoDBTest, ATableOfAnotherShapeIsUsedAsItIs) {
    const TestDir dir;
    OtherConnection other(dir.Database("tevcloudcacho.db"));
    ASSERT_EQ(0, other.Exec("create table cachotable(vkey); insert into cachotable values('K')"));
    CTevCloudCachoDB store;
    CachoRecord record;
    int nSelect = 0;

    const Texts lines = PrintedBy([&] { nSelect = store.Select("K", record); });

    EXPECT_EQ(-1, nSelect);
    EXPECT_EQ(Texts{"the query has no column id"}, lines);
    EXPECT_EQ(1, store.Count());
}

TEST_F(CTevCloudCachoDBTest, EveryOperationButDeleteAndSelectPageWaitsForTheMutex) {
    CachoRecord record;

    EXPECT_TRUE(WaitsForLock(m_store, [&] { (void)m_store.Open(); }));
    EXPECT_TRUE(WaitsForLock(m_store, [&] { (void)m_store.Insert(Entry("K")); }));
    EXPECT_TRUE(WaitsForLock(m_store, [&] { (void)m_store.Select("K", record); }));
    EXPECT_TRUE(WaitsForLock(m_store, [&] { (void)m_store.Count(); }));
    EXPECT_TRUE(WaitsForLock(m_store, [&] { (void)m_store.Clear(); }));
    (void)PrintedBy(
        [&] { EXPECT_TRUE(WaitsForLock(m_store, [&] { (void)m_store.Update(Entry("K")); })); });
}

TEST_F(CTevCloudCachoDBTest, AKeyWithADoubledQuoteIsStoredWithOneAndCannotBeDeletedByIt) {
    ASSERT_EQ(0, m_store.Insert(Entry("it''s")));
    CachoRecord record;
    ASSERT_EQ(1, m_store.Select("it''s", record));
    EXPECT_EQ("it's", record.key);
    int nResult = 0;

    const Texts lines = PrintedBy([&] { nResult = DeleteLocked(m_store, record.key); });

    EXPECT_EQ(1, nResult);
    EXPECT_EQ(1u, lines.size());
    EXPECT_EQ(1u, Rows().size());
}

// Keys that try to be more than a text: each stands in a statement as it is.
class CTevCloudCachoDBHostileKeyTest : public CTevCloudCachoDBTest,
                                       public testing::WithParamInterface<const char*> {};

TEST_P(CTevCloudCachoDBHostileKeyTest, NoOperationMakesAFileOrLeavesTheTable) {
    InsertNumbered(3);
    const std::string strKey = GetParam();
    CachoRecord record = Entry(strKey);
    const Texts rowsBefore = Rows();

    (void)PrintedBy([&] {
        (void)m_store.Insert(record);
        (void)m_store.Select(strKey, record);
        (void)m_store.Update(Entry(strKey));
        (void)DeleteLocked(m_store, strKey);
    });

    EXPECT_EQ(rowsBefore, Rows());
    EXPECT_EQ((Texts{"cachotable", "sqlite_autoindex_cachotable_1"}),
              Rows("select name from sqlite_master order by name"));
    EXPECT_EQ(Texts{"delete"}, Rows("pragma journal_mode"));
    EXPECT_EQ(Texts{"0"}, Rows("pragma user_version"));
    Texts files;
    for (const auto& entry : fs::recursive_directory_iterator(m_dir.Path())) {
        files.push_back(entry.path().lexically_relative(m_dir.Path()).string());
    }
    std::sort(files.begin(), files.end());
    EXPECT_EQ((Texts{"data", "data/db", "data/db/tevcloudcacho.db", "run"}), files);
    EXPECT_EQ(0, m_store.Insert(Entry("later")));  // and the store works on
}

INSTANTIATE_TEST_SUITE_P(
    Keys, CTevCloudCachoDBHostileKeyTest,
    testing::Values("x'; attach database 'evil.db' as evil; --",
                    "x',1,1,1,'',1); attach database 'evil.db' as evil; --",
                    "x'; delete from cachotable; --", "x',1,1,1,'',1); delete from cachotable; --",
                    "x'; drop table cachotable; --", "x'; create table evil(a); --",
                    "x'; pragma journal_mode = wal; --", "x'; pragma user_version = 7; --",
                    "x'; vacuum into 'evil.db'; --",
                    "x' and (select journal_mode from pragma_journal_mode('wal')) --",
                    "x' and load_extension('evil.so') --", "x'; ", "x';--", "it's", "'", "--",

                    "'--",
                    // Statements of the kind that is expected, about rows that are not the key's.
                    "x' or 1=1 --", "x' or '1'='1", "x' or vkey = 'key0' --",
                    "x' where vkey = 'key0' --", "x', level = 70 where vkey = 'key0' --",
                    "x',1,1,1,'',1),('y',70,1,999999999999,'',5) --",
                    "key0',70,1,1,'',1) on conflict(vkey) do update set level = 70 --",
                    "'||(select max(vkey) from cachotable)||'x", "x'||'y", "''' or 1=1 --",
                    "x''' or ''''=''''"));

// SQLite would spend years on some of them before it ran anything.
TEST_F(CTevCloudCachoDBTest, AKeyThatEndsItsTextIsNotGivenToSQLiteWhereItCouldCost) {
    for (const std::string& strKey :
         {std::string("x' or (with a as (values(1)),b as (values(2)) values(3))--"),
          std::string("x' union SELECT * from cachotable--"), std::string("x' or detail||detail--"),
          std::string("x' or detail->1--"), std::string("x';"), std::string("x'; \0", 5),
          "it's" + std::string(253, 'x')}) {
        CachoRecord record;
        const SqlTrace trace;
        int nInsert = 0, nDelete = 0, nSelect = 0, nUpdate = 1;

        const Texts lines = PrintedBy([&] {
            nInsert = m_store.Insert(Entry(strKey));
            nSelect = m_store.Select(strKey, record);
            nUpdate = m_store.Update(Entry(strKey));
            nDelete = DeleteLocked(m_store, strKey);
        });

        EXPECT_EQ(23, nInsert);
        EXPECT_EQ((std::tuple{-1, 0, 1}), (std::tuple{nSelect, nUpdate, nDelete}));
        EXPECT_EQ(Texts(4, "the key ends its text"), lines);
        EXPECT_EQ(8u, trace.Statements().size());  // to begin and roll back
    }
}

TEST_F(CTevCloudCachoDBTest, AShortKeyThatEndsItsTextGetsSQLitesOwnError) {
    const std::string strKey = "it's" + std::string(252, 'x');
    CachoRecord record;
    int nInsert = 0, nSelect = 0;

    const Texts lines = PrintedBy([&] {
        nInsert = m_store.Insert(Entry(strKey));
        nSelect = m_store.Select(strKey, record);
    });

    EXPECT_EQ(1, nInsert);
    EXPECT_EQ(-1, nSelect);
    const std::string strError = "near \"s" + std::string(252, 'x') + "\": syntax error";
    EXPECT_EQ((Texts{strError, strError}), lines);
}

// A key that ends nothing may have any length.
TEST_F(CTevCloudCachoDBTest, ALongKeyWithDoubledQuotesIsStoredAndFound) {
    const std::string strKey = "it''s" + std::string(2000000, 'x');
    CachoRecord record;

    EXPECT_EQ(0, m_store.Insert(Entry(strKey)));
    EXPECT_EQ(1, m_store.Select(strKey, record));

    EXPECT_EQ("it's" + std::string(2000000, 'x'), record.key);
}

TEST_F(CTevCloudCachoDBTest, AKeyThatEndsItsTextGetsTheCodeOfWhatIsNotAllowed) {
    ASSERT_EQ(0, m_store.Insert(Entry("key0")));
    int nInsert = 0, nDelete = 0;

    const Texts lines = PrintedBy([&] {
        nInsert = m_store.Insert(Entry("x',1,1,1,'',1) --"));
        nDelete = DeleteLocked(m_store, "x' or 1=1 --");
    });

    EXPECT_EQ(23, nInsert);
    EXPECT_EQ(1, nDelete);
    EXPECT_EQ((Texts{"the key ends its text", "the key ends its text"}), lines);
    EXPECT_EQ(Texts{"key0|40|1000|1200|YWJj|5"}, Rows());
}
