// The fence is seen through the connection that it is put around.
#include "framework/sqlite/ConnectionFence.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "framework/sqlite/CppSQLite3.h"
#include "tests/support/TestDir.h"
#include "tests/support/ThreadTime.h"
#include "tests/support/clocks/LeapingClocks.h"

namespace {

struct FenceCase {
    const char* pszSQL;
    int nCode;  // 0 when it passes
};

class ConnectionFenceTest : public ::testing::TestWithParam<FenceCase> {
protected:
    ConnectionFenceTest() : m_strFile(m_dir.Database("test.db")) {
        // What another program prepared: a table, an index, a view and a trigger.
        sqlite3* pDB = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pDB));
        EXPECT_EQ(SQLITE_OK,
                  sqlite3_exec(
                      pDB,
                      "pragma synchronous = off; create table t(a, b); insert into t values(1, 2);"
                      "create index i on t(a); create view v as select a from "
                      "t; create table u(c); create trigger g after delete "
                      "on t begin insert into u values(old.a); end",
                      nullptr, nullptr, nullptr));
        sqlite3_close(pDB);
        m_db.open(m_strFile.c_str());
        m_db.execDML("PRAGMA synchronous = OFF");  // a test need not wait for the disk
        EXPECT_TRUE(m_db.tableExists("t"));
    }

    int CodeOf(const char* pszSQL) {
        try {
            m_db.execDML(pszSQL);
        } catch (const CppSQLite3Exception& ex) {
            return ex.errorCode();
        }
        return 0;
    }

    const TestDir m_dir;
    const std::string m_strFile;
    CppSQLite3DB m_db;
};

TEST_P(ConnectionFenceTest, AnswersWithItsCode) {
    EXPECT_EQ(GetParam().nCode, CodeOf(GetParam().pszSQL)) << GetParam().pszSQL;
}

constexpr FenceCase ALLOWED[] = {
    {"select * from t", 0},
    {"select * from v where a in (select b from t)", 0},
    {"with x as (select 1) select * from x", 0},
    {"select count(*), upper('x'), length('y') from t", 0},
    {"select * from sqlite_master", 0},
    {"insert into t values(3, 4)", 0},
    {"replace into t values(3, 4)", 0},
    {"update t set a = 2", 0},
    {"delete from t where a = 1", 0},
    {"begin", 0},
    {"begin transaction", 0},
    {"begin immediate", 0},
    {"create table new(a)", 0},
    {"create table if not exists t(a)", 0},
    {"create table new(a integer primary key autoincrement)", 0},
    {"create table new(a text primary key, b unique)", 0},
    {"create table new(a text primary key) without rowid", 0},
    {"PRAGMA synchronous = OFF", 0},
    {"PRAGMA synchronous = NORMAL", 0},
    {"PRAGMA synchronous = FULL", 0},
    {"pragma Synchronous", 0},
};
INSTANTIATE_TEST_SUITE_P(Allowed, ConnectionFenceTest, ::testing::ValuesIn(ALLOWED));

constexpr FenceCase REFUSED[] = {
    {"attach ':memory:' as x", 23},
    {"attach '' as x", 23},
    {"detach main", 23},
    {"vacuum", 23},
    {"vacuum into 'copy.db'", 23},
    {"pragma journal_mode = wal", 23},
    {"pragma journal_mode", 23},
    {"pragma writable_schema = on", 23},
    {"pragma user_version = 1", 23},
    {"pragma temp_store_directory = '/'", 23},
    {"pragma busy_timeout = 1000", 23},
    {"pragma wal_checkpoint", 23},
    {"select * from pragma_table_info('t')", 23},
    {"drop table t", 23},
    {"drop index i", 23},
    {"drop view v", 23},
    {"drop trigger g", 23},
    {"alter table t rename to s", 23},
    {"alter table t add column c", 23},
    {"alter table t rename column a to c", 23},
    {"alter table t drop column b", 23},
    {"create index j on t(b)", 23},
    {"create unique index j on t(b)", 23},
    {"create view w as select 1", 23},
    {"create trigger h after insert on t begin delete from t; end", 23},
    {"create temp table x(a)", 23},
    {"create temp view x as select 1", 23},
    {"create temp trigger x after insert on t begin delete from t; end", 23},
    {"create temp table x as select 1", 23},
    {"create virtual table x using fts5(a)", 23},
    {"reindex", 23},
    {"reindex i", 23},
    {"analyze", 23},
    {"savepoint a", 23},
    {"release a", 23},
    {"rollback to a", 23},
    {"with recursive x(n) as (select 1 union all select n + 1 from x) select n from x", 23},
    // SQLite's own words, not the authorizer's.
    {"create index sqlite_autoindex_x on t(b)", 1},
    {"insert into sqlite_master(sql) values('x')", 1},
    {"update sqlite_master set sql = 'x'", 1},
    {"delete from sqlite_master", 1},
    {"select load_extension('x')", 1},
    {"select fts3_tokenizer('simple', x'4141414141414141')", 1},
    // What one call could spend hours in.
    {"select instr('a', 'b')", 1},
    {"select 'a' like '%a%'", 1},
    {"select 'a' glob '*a*'", 1},
    {"select Replace('a', 'a', 'bb')", 1},
    {"select trim('a', 'b'), ltrim('a', 'b'), rtrim('a', 'b')", 1},
    {"select zeroblob(1)", 1},
    {"select randomblob(1)", 1},
    {"select hex('a')", 1},
    {"select quote('a')", 1},
    {"select printf('%9d', 1)", 1},
    {"select format('%9d', 1)", 1},
};
INSTANTIATE_TEST_SUITE_P(Refused, ConnectionFenceTest, ::testing::ValuesIn(REFUSED));

TEST_F(ConnectionFenceTest, AStatementThatWasEndedForItsTimeFailsAtOnceWhenItIsTriedAgain) {
    const std::string strEndless =
        "with n(a) as (values(1),(2),(3),(4),(5),(6),(7),(8),(9),(10)) "
        "select count(*) from n a,n b,n c,n d,n e,n f,n g,n h,n i,n j";
    const double dBegin = ThreadSeconds();

    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(9, CodeOf(strEndless.c_str()));
    }

    EXPECT_LT(ThreadSeconds() - dBegin, HANGS_SECONDS);
    EXPECT_EQ(0, CodeOf("select count(*) from t"));
}

// Ten thousand rows and more instructions than one look is for.
constexpr char LONG_STATEMENT[] =
    "with n(a) as (values(1),(2),(3),(4),(5),(6),(7),(8),(9),(10)) "
    "select count(*) as c from n a,n b,n c,n d";

TEST_F(ConnectionFenceTest, AStatementIsNotEndedForTimeThatItsThreadDidNotUse) {
    const LeapingClocks clocks(10, 0);  // as if the process were stopped again and again

    EXPECT_EQ(10000, m_db.execQuery(LONG_STATEMENT).getIntField("c"));

    EXPECT_LT(100, LeapingClocks::WallLooks());
}

// It may wait for the disk: the lock that its caller holds is held all the time.
TEST_F(ConnectionFenceTest, AStatementOfManyInstructionsIsEndedForTheTimeThatPasses) {
    const LeapingClocks clocks(10, 0);

    EXPECT_EQ(9, CodeOf("with n(a) as (values(1),(2),(3),(4),(5),(6),(7),(8),(9),(10)) "
                        "select count(*) as c from n a,n b,n c,n d,n e"));

    EXPECT_LT(1000, LeapingClocks::WallLooks());
}

TEST_F(ConnectionFenceTest, AStatementThatFailsAfterALongTimeFailsAtOnceWhenItIsTriedAgain) {
    const std::string strLong =
        "with n(a) as (values(1),(2),(3),(4),(5),(6),(7),(8),(9),(10)) select (select count(*) "
        "from n a,n b,n c,n d,n e) >= 0 and abs(-9223372036854775807 - 1)";
    EXPECT_EQ(1, CodeOf(strLong.c_str()));
    std::string strMessage;
    const LeapingClocks clocks(0, 0);

    for (int i = 0; i < 300; ++i) {
        try {
            m_db.execDML(strLong.c_str());
        } catch (const CppSQLite3Exception& ex) {
            strMessage = ex.errorMessage();
        }
    }

    EXPECT_EQ("integer overflow", strMessage);
    EXPECT_EQ(0, LeapingClocks::WallLooks());
}

TEST_F(ConnectionFenceTest, WhatFailsAfterAWhileFailsAtOnceWhenItIsTriedAgain) {
    const char* const pszMismatch = "select * from t limit 'x'";  // code 20, of few instructions
    const LeapingClocks clocks(1, 0);
    EXPECT_EQ(20, CodeOf(pszMismatch));
    const int nLooks = LeapingClocks::WallLooks();
    EXPECT_LT(0, nLooks);

    EXPECT_EQ(20, CodeOf(pszMismatch));
    EXPECT_EQ(nLooks, LeapingClocks::WallLooks());
    EXPECT_EQ(20, CodeOf("select * from t limit 'y'"));
    EXPECT_EQ(2 * nLooks, LeapingClocks::WallLooks());
}

TEST_F(ConnectionFenceTest, WhatFailsBecauseAnotherHoldsTheDatabaseIsTriedAgain) {
    sqlite3* pDB = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pDB));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pDB, "begin exclusive", nullptr, nullptr, nullptr));
    const LeapingClocks clocks(1, 0);
    EXPECT_EQ(5, CodeOf("insert into u values('x')"));
    sqlite3_close(pDB);

    EXPECT_EQ(0, CodeOf("insert into u values('x')"));
}

// Its text is that of every other change of its kind, or of every commit.
TEST_F(ConnectionFenceTest, AChangeThatFailsAfterAWhileIsTriedAgain) {
    m_db.execDML("create table once(a unique)");
    m_db.execDML("insert into once values(1)");
    const LeapingClocks clocks(1, 0);
    EXPECT_EQ(1, CodeOf("commit"));  // there is no transaction
    EXPECT_EQ(19, CodeOf("insert into once values(1)"));
    m_db.execDML("begin");
    m_db.execDML("delete from once");

    EXPECT_EQ(0, CodeOf("insert into once values(1)"));
    EXPECT_EQ(0, CodeOf("commit"));
}

TEST_F(ConnectionFenceTest, WhatHadNoMemoryIsTriedAgain) {
    const std::string strInsert = "insert into u values('" + std::string(3000, 'x') + "')";
    const LeapingClocks clocks(1, 0);
    const sqlite3_int64 nBefore = sqlite3_hard_heap_limit64(sqlite3_memory_used() + 1);
    EXPECT_EQ(7, CodeOf(strInsert.c_str()));
    (void)sqlite3_hard_heap_limit64(nBefore);

    EXPECT_EQ(0, CodeOf(strInsert.c_str()));
}

TEST_F(ConnectionFenceTest, ALongTextThatFailedIsNotKept) {
    const std::string strMismatch = "select * from t limit '" + std::string(5000, 'x') + "'";
    const LeapingClocks clocks(1, 0);
    EXPECT_EQ(20, CodeOf(strMismatch.c_str()));
    const int nLooks = LeapingClocks::WallLooks();

    EXPECT_EQ(20, CodeOf(strMismatch.c_str()));

    EXPECT_EQ(2 * nLooks, LeapingClocks::WallLooks());
}

// A file from elsewhere may make one row of a look take years.
TEST_F(ConnectionFenceTest, AlsoALookWithoutForeignTextEndsAfterAMinuteOfProcessorTime) {
    const LeapingClocks clocks(61, 61);

    EXPECT_THROW((void)m_db.execOwnQuery(LONG_STATEMENT), CppSQLite3Exception);
}

TEST_F(ConnectionFenceTest, AStatementIsEndedForTheProcessorTimeOfItsThread) {
    const LeapingClocks clocks(10, 10);

    EXPECT_EQ(9, CodeOf(LONG_STATEMENT));

    EXPECT_LT(1, LeapingClocks::WallLooks());
}

std::vector<int> Values(CppSQLite3Query query) {
    std::vector<int> values;
    for (; !query.eof(); query.nextRow()) {
        values.push_back(query.getIntField("c"));
    }
    return values;
}

TEST_F(ConnectionFenceTest, ALookWithoutForeignTextTakesItsTimeAndTheNextStatementIsFenced) {
    std::string strInsert = "insert into u values(0)";
    for (int i = 0; i < 400; ++i) {
        strInsert += ",(1)";
    }
    m_db.execDML((strInsert + ",(2)").c_str());
    const LeapingClocks clocks(10, 1);

    // One has passed over three hundred rows at its first step, the other steps over them later.
    EXPECT_EQ(102u, Values(m_db.execOwnQuery("select c from u limit 300,102")).size());
    EXPECT_EQ((std::vector<int>{0, 2}), Values(m_db.execOwnQuery("select c from u where c != 1")));
    EXPECT_THROW(Values(m_db.execQuery("select c from u where c != 1")), CppSQLite3Exception);
    EXPECT_EQ(9, CodeOf(LONG_STATEMENT));
}

// The tables of a file are read when its first statement is prepared.
TEST_F(ConnectionFenceTest, AfterAStatementThatWasEndedAFileOfManyTablesIsReadAllTheSame) {
    const std::string strMany = m_dir.Database("many.db");
    sqlite3* pDB = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(strMany.c_str(), &pDB));
    std::string strTables = "begin;";
    for (int i = 0; i < 500; ++i) {
        strTables += "create table t" + std::to_string(i) + "(a);";
    }
    ASSERT_EQ(SQLITE_OK,
              sqlite3_exec(pDB, (strTables + "commit").c_str(), nullptr, nullptr, nullptr));
    sqlite3_close(pDB);
    ASSERT_EQ(9, CodeOf("with n(a) as (values(1),(2),(3),(4),(5),(6),(7),(8),(9),(10)) "
                        "select count(*) from n a,n b,n c,n d,n e,n f,n g,n h,n i,n j"));

    CppSQLite3DB many;
    many.open(strMany.c_str());

    EXPECT_TRUE(many.tableExists("t499"));
}

TEST_F(ConnectionFenceTest, WhatIsRefusedLeavesTheDatabaseAsItWas) {
    const std::string strQuery =
        "select group_concat(name || ifnull(sql, '')) as s from sqlite_master";
    const std::string strBefore = m_db.execQuery(strQuery.c_str()).getStringField("s");

    for (const FenceCase& one : REFUSED) {
        CodeOf(one.pszSQL);
    }

    EXPECT_EQ(strBefore, m_db.execQuery(strQuery.c_str()).getStringField("s"));
    EXPECT_EQ(1, m_db.execQuery("select count(*) as n from t").getIntField("n"));
}

TEST_F(ConnectionFenceTest, AHostileKeyInALookupReachesNoOtherDatabase) {
    const std::string strHead = "select * from t  where a = '";
    const char* const keys[] = {
        "x'; attach '/tmp/x' as y; --",
        "x' union select fts3_tokenizer('simple', x'41'), 1 --",
        "x' union select load_extension('/tmp/x'), 1 --",
    };

    for (const char* pszKey : keys) {
        EXPECT_EQ(1, CodeOf((strHead + pszKey + "'").c_str())) << pszKey;
    }
}

TEST_F(ConnectionFenceTest, AHostileKeyWhoseLookupWouldTakeYearsIsEnded) {
    const std::string strLookup =
        "select * from t  where a = 'x' or (with n(i) as (values(1),(2),(3),(4),(5),(6),(7),(8)) "
        "select sum(n.i) from n, n b, n c, n d, n e, n f, n g, n h, n j, n k, n l, n m, n o) or "
        "'x'='y'";

    EXPECT_EQ(9, CodeOf(strLookup.c_str()));

    EXPECT_EQ(0, CodeOf("select * from t"));
    EXPECT_EQ(0, CodeOf("insert into t values(5, 6)"));
}

TEST_F(ConnectionFenceTest, AStatementOverManyRowsMayTakeItsInstructions) {
    std::string strInsert = "insert into t values(0, 0)";
    for (int i = 0; i < 400; ++i) {
        strInsert += ",(1, 2)";
    }
    m_db.execDML(strInsert.c_str());

    EXPECT_EQ(
        402 * 402,
        m_db.execQuery("select count(*) as n from t, t b where t.a + b.a >= 0").getIntField("n"));
}

TEST_F(ConnectionFenceTest, LoadingAnExtensionIsNotEvenTried) {
    std::string strMessage;

    try {
        m_db.execDML("select load_extension('x')");
    } catch (const CppSQLite3Exception& ex) {
        strMessage = ex.errorMessage();
    }

    EXPECT_EQ("not authorized", strMessage);
}

TEST_F(ConnectionFenceTest, AStatementLearnsNoCodeAddress) {
    EXPECT_EQ("none", m_db.execQuery("select fts3_tokenizer('simple') as address")
                          .getStringField("address", "none"));
}

TEST_F(ConnectionFenceTest, AStatementMayStillFireAPreparedTrigger) {
    EXPECT_EQ(1, m_db.execDML("delete from t"));

    EXPECT_EQ(1, m_db.execQuery("select c from u").getIntField("c"));
}

TEST_F(ConnectionFenceTest, AHostilePreparedSchemaCallsNoUnsafeFunctionAndLosesNoShadowTable) {
    sqlite3* pDB = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &pDB));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pDB,
                                      "create view unsafe as select rtreedepth(x'0000000000') as n;"
                                      "create virtual table words using fts5(word)",
                                      nullptr, nullptr, nullptr));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(pDB, "select * from unsafe", nullptr, nullptr, nullptr));
    EXPECT_EQ(SQLITE_OK,
              sqlite3_exec(pDB, "delete from words_config where 0", nullptr, nullptr, nullptr));
    sqlite3_close(pDB);

    EXPECT_EQ(1, CodeOf("select * from unsafe"));
    EXPECT_EQ(1, CodeOf("delete from words_config where 0"));
}

}  // namespace

// The text's pages are one piece of memory, mapped over and over.
TEST_F(ConnectionFenceTest, ATextOfMoreThan2GiBIsTooLongAndNotReadOn) {
    constexpr size_t PIECE = size_t{32} * 1024 * 1024;
    constexpr size_t PIECES = 66;
    const int nPiece = memfd_create("piece", MFD_CLOEXEC);
    ASSERT_EQ(0, ftruncate(nPiece, PIECE));
    // A page before the text for its beginning, and zeros behind it for its end.
    const size_t nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t nRoom = nPage + (PIECES + 1) * PIECE;
    void* pRoom = mmap(nullptr, nRoom, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, pRoom);
    char* pText = static_cast<char*>(pRoom);
    (void)memcpy(pText + nPage - 8, "select '", 8);
    for (size_t i = 0; i < PIECES; ++i) {
        ASSERT_NE(MAP_FAILED, mmap(pText + nPage + i * PIECE, PIECE, PROT_READ | PROT_WRITE,
                                   MAP_SHARED | MAP_FIXED, nPiece, 0));
    }
    (void)memset(pText + nPage, 'x', PIECE);

    std::string strError;
    const int nResult = m_db.tryDML(pText + nPage - 8, strError);

    EXPECT_EQ(SQLITE_TOOBIG, nResult);
    EXPECT_EQ("string or blob too big", strError);
    (void)munmap(pRoom, nRoom);
    (void)close(nPiece);
}
