#include "framework/sqlite/CppSQLite3.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestDir.h"

namespace {

std::atomic<int> s_nSleeps{0};

}  // namespace

// What SQLite's busy time-out calls; this program's own counts the calls and does not wait.
extern "C" {
__attribute__((visibility("default"))) int CountSleep(useconds_t nMicroseconds) __asm__("usleep");

int CountSleep(useconds_t) {
    ++s_nSleeps;
    return 0;
}
}

namespace {

constexpr char CREATE_CHENNAL[] =
    "create table msgchennal( id INTEGER PRIMARY KEY autoincrement , createtime TEXT, detail TEXT, "
    "mid INTEGER)";
constexpr char CREATE_CACHO[] =
    "create table cachotable( id INTEGER ,  vkey TEXT PRIMARY KEY, level INTEGER,  tmcreate "
    "INTEGER, tminternal INTEGER, detail TEXT, mid INTEGER)";

// The code that the call throws; 0 when it does not.
int CodeOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const CppSQLite3Exception& ex) {
        return ex.errorCode();
    }
    return 0;
}

// A connection of SQLite's own, as another program would hold one.
class CPlainConnection {
public:
    explicit CPlainConnection(const std::string& strFile) {
        EXPECT_EQ(SQLITE_OK, sqlite3_open(strFile.c_str(), &m_pDB));
    }
    ~CPlainConnection() { sqlite3_close(m_pDB); }

    CPlainConnection(const CPlainConnection&) = delete;
    CPlainConnection& operator=(const CPlainConnection&) = delete;

    int Exec(const char* pszSQL) { return sqlite3_exec(m_pDB, pszSQL, nullptr, nullptr, nullptr); }
    sqlite3* Get() { return m_pDB; }

private:
    sqlite3* m_pDB = nullptr;
};

class CppSQLite3Test : public ::testing::Test {
protected:
    CppSQLite3Test() : m_strFile(m_dir.Database("test.db")) {
        m_db.open(m_strFile.c_str());
        m_db.execDML("PRAGMA synchronous = OFF");  // a test need not wait for the disk
    }

    int64_t Number(const std::string& strQuery) {
        CppSQLite3Query query = m_db.execQuery(strQuery.c_str());
        return query.getInt64Field("n");
    }

    const TestDir m_dir;
    const std::string m_strFile;
    CppSQLite3DB m_db;
};

struct StatementCase {
    const char* pszSQL;
    int nChanged;
};

TEST_F(CppSQLite3Test, EveryStatementOfTheMessageQueuePasses) {
    const std::vector<StatementCase> cases = {
        {"PRAGMA synchronous = OFF", 0},
        {"PRAGMA synchronous = NORMAL", 0},
        {"PRAGMA synchronous = FULL", 0},
        {CREATE_CHENNAL, 0},
        {"begin transaction", 0},
        {"insert into msgchennal(createtime,detail,mid) values('1000','eyJ0eXBlIjoxfQ==',5)", 1},
        {"commit transaction", 0},
        {"begin transaction", 0},
        {"insert into msgchennal(createtime,detail,mid) values('1001','',6)", 1},
        {"rollback transaction", 0},
        {"select * from msgchennal limit 0,1", 0},
        {"select count(*) as rownum from msgchennal ", 0},
        {"delete from msgchennal where id  in(select id from msgchennal limit 1)", 1},
        {"delete from msgchennal where id = 7", 0},
        {"insert into msgchennal(createtime,detail,mid) values('1002','',5)", 1},
        {"insert into msgchennal(createtime,detail,mid) values('1003','',5)", 1},
        {"delete from msgchennal", 2},
        {"", 0},
    };

    for (const StatementCase& one : cases) {
        EXPECT_NO_THROW(EXPECT_EQ(one.nChanged, m_db.execDML(one.pszSQL)) << one.pszSQL)
            << one.pszSQL;
    }

    EXPECT_TRUE(m_db.tableExists("msgchennal"));
}

TEST_F(CppSQLite3Test, EveryStatementOfTheVerdictCachePassesButTheUpdate) {
    const std::vector<StatementCase> cases = {
        {"PRAGMA synchronous = OFF", 0},
        {CREATE_CACHO, 0},
        {"begin transaction", 0},
        {"insert into cachotable(vkey,level,tmcreate,tminternal,detail,mid) "
         "values('k',70,1000,1296000,'ZA==',5)",
         1},
        {"commit transaction", 0},
        {"select * from cachotable  where vkey = 'k'", 0},
        {"select * from cachotable limit 0,10", 0},
        {"select count(*) as rownum from cachotable ", 0},
        {"delete from cachotable where vkey = 'k'", 1},
        {"delete from cachotable", 0},
    };

    for (const StatementCase& one : cases) {
        EXPECT_NO_THROW(EXPECT_EQ(one.nChanged, m_db.execDML(one.pszSQL)) << one.pszSQL)
            << one.pszSQL;
    }

    EXPECT_TRUE(m_db.tableExists("cachotable"));
}

TEST_F(CppSQLite3Test, TheUpdateWithItsStrayParenthesisIsASyntaxError) {
    m_db.execDML(CREATE_CACHO);
    std::string strMessage;

    try {
        m_db.execDML(
            "update cachotable set vkey = 'k',level = 70,tmcreate = 1000,tminternal = "
            "1296000,detail = 'ZA==',mid = 5)where vkey = 'k'");
    } catch (const CppSQLite3Exception& ex) {
        EXPECT_EQ(1, ex.errorCode());
        strMessage = ex.errorMessage();
    }

    EXPECT_EQ("near \")\": syntax error", strMessage);
}

TEST_F(CppSQLite3Test, TheSchemaKeepsTheStatementsTextByteForByte) {
    m_db.execDML(CREATE_CHENNAL);
    m_db.execDML(CREATE_CACHO);

    CPlainConnection plain(m_strFile);
    std::vector<std::string> texts;
    sqlite3_exec(
        plain.Get(), "select sql from sqlite_master where name in ('msgchennal','cachotable')",
        [](void* pTexts, int, char** ppszValues, char**) {
            static_cast<std::vector<std::string>*>(pTexts)->emplace_back(ppszValues[0]);
            return 0;
        },
        &texts, nullptr);

    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ("CREATE TABLE " + std::string(CREATE_CHENNAL).substr(13), texts[0]);
    EXPECT_EQ("CREATE TABLE " + std::string(CREATE_CACHO).substr(13), texts[1]);
}

TEST_F(CppSQLite3Test, ASecondStatementInTheTextIsErrorOneAndNothingRuns) {
    m_db.execDML(CREATE_CACHO);
    m_db.execDML("insert into cachotable(vkey) values('k')");

    const std::vector<const char*> texts = {
        "delete from cachotable; delete from cachotable",
        "delete from cachotable;delete",
        "delete from cachotable;;",
        "delete from cachotable; -- a comment",
        "delete from cachotable;--'",
        "delete from cachotable; /* a comment */",
        "delete from cachotable;\v",
        "delete from cachotable where vkey = 'k'; attach ':memory:' as x;--'",
    };
    for (const char* pszText : texts) {
        EXPECT_EQ(1, CodeOf([&] { m_db.execDML(pszText); })) << pszText;
        EXPECT_EQ(1, CodeOf([&] { m_db.execQuery(pszText); })) << pszText;
    }

    EXPECT_EQ(1, Number("select count(*) as n from cachotable"));
}

TEST_F(CppSQLite3Test, BlanksAfterTheStatementAreNotText) {
    m_db.execDML(CREATE_CACHO);
    m_db.execDML("insert into cachotable(vkey) values('k')");

    const int nChanged = m_db.execDML("delete from cachotable; \t\r\n\f");

    EXPECT_EQ(1, nChanged);
}

TEST_F(CppSQLite3Test, AnEmptyStatementSucceedsWithNothingDone) {
    m_db.execDML(CREATE_CACHO);
    m_db.execDML("insert into cachotable(vkey) values('k')");

    for (const char* pszText : {"", " \n", ";", "-- a comment", "/* a comment */ ;"}) {
        EXPECT_EQ(0, m_db.execDML(pszText)) << pszText;
        EXPECT_TRUE(m_db.execQuery(pszText).eof()) << pszText;
    }
}

TEST_F(CppSQLite3Test, ABusyDatabaseAnswersFiveWithoutASleep) {
    m_db.execDML(CREATE_CACHO);
    CPlainConnection other(m_strFile);
    ASSERT_EQ(SQLITE_OK, other.Exec("begin exclusive"));
    s_nSleeps = 0;

    EXPECT_EQ(5, CodeOf([&] { m_db.execDML("insert into cachotable(vkey) values('k')"); }));
    EXPECT_EQ(5, CodeOf([&] { m_db.execQuery("select * from cachotable limit 0,10"); }));
    EXPECT_EQ(5, CodeOf([&] { m_db.tableExists("cachotable"); }));
    EXPECT_EQ(0, s_nSleeps);

    // The counter sees SQLite's own sleeping.
    CPlainConnection patient(m_strFile);
    sqlite3_busy_timeout(patient.Get(), 1);
    EXPECT_EQ(SQLITE_BUSY, patient.Exec("insert into cachotable(vkey) values('k')"));
    EXPECT_GT(s_nSleeps, 0);
}

TEST_F(CppSQLite3Test, ACommitUnderAReadersLockFailsWithFiveAndKeepsTheTransactionOpen) {
    m_db.execDML(CREATE_CACHO);
    m_db.execDML("insert into cachotable(vkey) values('k')");
    CPlainConnection reader(m_strFile);
    ASSERT_EQ(SQLITE_OK, reader.Exec("begin; select * from cachotable"));
    m_db.execDML("begin transaction");
    m_db.execDML("insert into cachotable(vkey) values('l')");

    EXPECT_EQ(5, CodeOf([&] { m_db.execDML("commit transaction"); }));

    EXPECT_EQ(1, CodeOf([&] { m_db.execDML("begin transaction"); }));
    EXPECT_EQ(0, CodeOf([&] { m_db.execDML("rollback transaction"); }));
    EXPECT_EQ(1, Number("select count(*) as n from cachotable"));
}

TEST_F(CppSQLite3Test, AConstraintFailsWithItsPrimaryCode) {
    m_db.execDML(CREATE_CACHO);
    m_db.execDML("insert into cachotable(vkey,level) values('k',70)");

    const int nCode =
        CodeOf([&] { m_db.execDML("insert into cachotable(vkey,level) values('k',10)"); });

    EXPECT_EQ(19, nCode);
    EXPECT_EQ(70, Number("select level as n from cachotable where vkey = 'k'"));
}

TEST_F(CppSQLite3Test, ARollbackWithoutATransactionIsErrorOne) {
    EXPECT_EQ(1, CodeOf([&] { m_db.execDML("rollback transaction"); }));
}

TEST_F(CppSQLite3Test, AClosedConnectionThrowsAThousand) {
    m_db.close();

    EXPECT_FALSE(m_db.isOpen());
    EXPECT_EQ(1000, CodeOf([&] { m_db.execDML("begin transaction"); }));
    EXPECT_EQ(1000, CodeOf([&] { m_db.execDML(""); }));
    EXPECT_EQ(1000, CodeOf([&] { m_db.execQuery("select 1"); }));
    EXPECT_EQ(1000, CodeOf([&] { m_db.tableExists("msgchennal"); }));
    m_db.close();
}

TEST_F(CppSQLite3Test, NullTextsThrowAThousand) {
    EXPECT_EQ(1000, CodeOf([&] { m_db.execDML(nullptr); }));
    EXPECT_EQ(1000, CodeOf([&] { m_db.execQuery(nullptr); }));
    EXPECT_EQ(1000, CodeOf([&] { m_db.tableExists(nullptr); }));
    EXPECT_EQ(1000, CodeOf([&] { m_db.open(nullptr); }));
}

TEST_F(CppSQLite3Test, OpeningWhereThereIsNoDirectoryFailsAndLeavesItClosed) {
    std::string strMessage;

    try {
        m_db.open((m_dir.Path() + "/missing/test.db").c_str());
    } catch (const CppSQLite3Exception& ex) {
        EXPECT_EQ(14, ex.errorCode());
        strMessage = ex.what();
    }

    EXPECT_EQ("unable to open database file", strMessage);
    EXPECT_FALSE(m_db.isOpen());
    EXPECT_EQ(1000, CodeOf([&] { m_db.execDML("begin transaction"); }));
}

TEST_F(CppSQLite3Test, OpeningAgainClosesTheFirstConnectionAndItsTransaction) {
    m_db.execDML(CREATE_CACHO);
    m_db.execDML("begin transaction");
    m_db.execDML("insert into cachotable(vkey) values('k')");

    m_db.open(m_strFile.c_str());

    EXPECT_EQ(0, Number("select count(*) as n from cachotable"));
    CPlainConnection other(m_strFile);
    EXPECT_EQ(SQLITE_OK, other.Exec("begin exclusive"));
}

TEST_F(CppSQLite3Test, OpeningAfterAFailureWorks) {
    EXPECT_EQ(14, CodeOf([&] { m_db.open(m_dir.Path().c_str()); }));

    m_db.open(m_strFile.c_str());

    EXPECT_TRUE(m_db.isOpen());
    EXPECT_EQ(0, m_db.execDML("begin transaction"));
}

TEST_F(CppSQLite3Test, AFileThatIsNoDatabaseFailsWithTwentySix) {
    const std::string strFile = m_dir.WriteFile("text", std::string(4096, 'x'));
    m_db.open(strFile.c_str());

    EXPECT_EQ(26, CodeOf([&] { m_db.tableExists("msgchennal"); }));
}

TEST_F(CppSQLite3Test, ANewFilesModeIsLeftToTheUmask) {
    const mode_t nOldMask = umask(077);
    const std::string strFile = m_dir.Database("private.db");
    CppSQLite3DB db;
    db.open(strFile.c_str());
    db.execDML(CREATE_CACHO);
    umask(nOldMask);

    struct stat status = {};
    ASSERT_EQ(0, stat(strFile.c_str(), &status));

    EXPECT_EQ(0600u, status.st_mode & 0777u);
}

TEST_F(CppSQLite3Test, ADatabasePreparedWithAWriteAheadLogIsUsedAsItIs) {
    CPlainConnection host(m_strFile);
    ASSERT_EQ(SQLITE_OK, host.Exec("pragma journal_mode = wal; create table cachotable(vkey)"));

    m_db.execDML("insert into cachotable(vkey) values('k')");

    EXPECT_EQ(0, access((m_strFile + "-wal").c_str(), F_OK));
    EXPECT_EQ(1, Number("select count(*) as n from cachotable"));
}

TEST_F(CppSQLite3Test, TableExistsKnowsTablesByNameInAnyCaseAndNothingElse) {
    CPlainConnection host(m_strFile);
    ASSERT_EQ(SQLITE_OK, host.Exec("create table one(a); create view two as select 1; "
                                   "create index three on one(a);"
                                   "create virtual table four using fts4(content='one')"));

    EXPECT_TRUE(m_db.tableExists("one"));
    EXPECT_TRUE(m_db.tableExists("ONE"));
    EXPECT_FALSE(m_db.tableExists("two"));
    EXPECT_FALSE(m_db.tableExists("three"));
    EXPECT_FALSE(m_db.tableExists("four"));
    EXPECT_FALSE(m_db.tableExists("on"));
    EXPECT_FALSE(m_db.tableExists(""));
    EXPECT_FALSE(m_db.tableExists("one' or '1'='1"));
}

TEST_F(CppSQLite3Test, RowsAreReadByColumnNameOneAfterTheOther) {
    m_db.execDML(CREATE_CHENNAL);
    m_db.execDML("insert into msgchennal(createtime,detail,mid) values('1000','a',5)");
    m_db.execDML("insert into msgchennal(createtime,detail,mid) values('1001','b',6)");

    CppSQLite3Query query = m_db.execQuery("select * from msgchennal limit 0,9");

    ASSERT_FALSE(query.eof());
    EXPECT_EQ(1, query.getInt64Field("id"));
    EXPECT_EQ(1000, query.getIntField("createtime"));
    EXPECT_EQ("a", query.getStringField("detail"));
    EXPECT_EQ("5", query.getStringField("MID"));
    query.nextRow();
    ASSERT_FALSE(query.eof());
    EXPECT_EQ("b", query.getStringField("detail"));
    query.nextRow();
    EXPECT_TRUE(query.eof());
}

TEST_F(CppSQLite3Test, AStepPastTheLastRowDoesNotStartTheQueryAgain) {
    CppSQLite3Query query = m_db.execQuery("select 1 as n");
    query.nextRow();
    ASSERT_TRUE(query.eof());

    query.nextRow();

    EXPECT_TRUE(query.eof());
    EXPECT_EQ(1000, CodeOf([&] { query.getIntField("n"); }));
}

TEST_F(CppSQLite3Test, NullColumnsGiveTheValueAskedFor) {
    CppSQLite3Query query = m_db.execQuery("select null as n");

    EXPECT_EQ(0, query.getIntField("n"));
    EXPECT_EQ(-7, query.getIntField("n", -7));
    EXPECT_EQ(0, query.getInt64Field("n"));
    EXPECT_EQ(-8, query.getInt64Field("n", -8));
    EXPECT_EQ("", query.getStringField("n"));
    EXPECT_EQ("none", query.getStringField("n", "none"));
    EXPECT_EQ("", query.getStringField("n", nullptr));
}

TEST_F(CppSQLite3Test, WideNumbersAndTextsAreConvertedAsSQLiteDoes) {
    CppSQLite3Query query = m_db.execQuery(
        "select 9223372036854775807 as big, '42abc' as text, 'x' as word, 2.9 as real, x'' as "
        "blob");

    EXPECT_EQ(9223372036854775807LL, query.getInt64Field("big"));
    EXPECT_EQ(-1, query.getIntField("big"));
    EXPECT_EQ(42, query.getIntField("text"));
    EXPECT_EQ(0, query.getIntField("word"));
    EXPECT_EQ(2, query.getInt64Field("real"));
    EXPECT_EQ("2.9", query.getStringField("real"));
    EXPECT_EQ("", query.getStringField("blob", "none"));
}

TEST_F(CppSQLite3Test, ATextKeepsItsNulBytes) {
    CppSQLite3Query query = m_db.execQuery("select cast(x'610062' as text) as t");

    EXPECT_EQ(std::string("a\0b", 3), query.getStringField("t"));
}

TEST_F(CppSQLite3Test, AColumnThatTheQueryDoesNotHaveThrowsAThousand) {
    CppSQLite3Query query = m_db.execQuery("select 1 as n");

    EXPECT_EQ(1000, CodeOf([&] { query.getIntField("other"); }));
    EXPECT_EQ(1000, CodeOf([&] { query.getInt64Field(""); }));
    EXPECT_EQ(1000, CodeOf([&] { query.getStringField(nullptr); }));
    EXPECT_EQ(1, query.getIntField("n"));
}

TEST_F(CppSQLite3Test, AFinalizedQueryHasNoRowsAndThrowsAThousand) {
    CppSQLite3Query query = m_db.execQuery("select 1 as n");

    query.finalize();
    query.finalize();

    EXPECT_TRUE(query.eof());
    EXPECT_EQ(1000, CodeOf([&] { query.nextRow(); }));
    EXPECT_EQ(1000, CodeOf([&] { query.getIntField("n"); }));
    EXPECT_EQ(1000, CodeOf([] { CppSQLite3Query().nextRow(); }));
}

TEST_F(CppSQLite3Test, AFinalizedQueryLetsGoOfTheReadLock) {
    m_db.execDML("create table t(a)");
    m_db.execDML("insert into t(a) values(1),(2)");
    CPlainConnection other(m_strFile);
    CppSQLite3Query query = m_db.execQuery("select a from t");
    ASSERT_EQ(SQLITE_BUSY, other.Exec("delete from t"));

    query.finalize();

    EXPECT_EQ(SQLITE_OK, other.Exec("delete from t"));
}

TEST_F(CppSQLite3Test, AMovedQueryTakesItsRowsAlongAndReleasesTheOldOnes) {
    CppSQLite3Query first = m_db.execQuery("select 1 as n union all select 2");
    CppSQLite3Query second(std::move(first));
    EXPECT_TRUE(first.eof());
    EXPECT_EQ(1000, CodeOf([&] { first.getIntField("n"); }));

    CppSQLite3Query third = m_db.execQuery("select 9 as n");
    third = std::move(second);
    CppSQLite3Query& same = third;
    third = std::move(same);

    EXPECT_EQ(1, third.getIntField("n"));
    third.nextRow();
    EXPECT_EQ(2, third.getIntField("n"));
    EXPECT_TRUE(second.eof());
}

TEST_F(CppSQLite3Test, AQueryThatOutlivesItsConnectionStaysSafe) {
    auto pDB = std::make_unique<CppSQLite3DB>();
    pDB->open(m_strFile.c_str());
    CppSQLite3Query query = pDB->execQuery("select 1 as n union all select 2");

    pDB.reset();
    query.nextRow();

    EXPECT_EQ(2, query.getIntField("n"));
}

TEST_F(CppSQLite3Test, AnErrorInALaterRowIsThrownAndEndsTheQuery) {
    m_db.execDML("create table t(a)");
    m_db.execDML("insert into t(a) values('{}'),('no json')");
    CppSQLite3Query query = m_db.execQuery("select json(a) as n from t");
    ASSERT_EQ("{}", query.getStringField("n"));

    EXPECT_EQ(1, CodeOf([&] { query.nextRow(); }));

    EXPECT_TRUE(query.eof());
}

TEST_F(CppSQLite3Test, ExecDMLOfASelectReturnsNothingChanged) {
    m_db.execDML("create table t(a)");
    ASSERT_EQ(3, m_db.execDML("insert into t(a) values(1),(2),(3)"));

    EXPECT_EQ(0, m_db.execDML("select * from t"));
    EXPECT_EQ(2, m_db.execDML("update t set a = 0 where a > 1"));
}

}  // namespace

TEST_F(CppSQLite3Test, ATextFieldIsTheColumnsTextAndEmptyForNull) {
    const CppSQLite3Query query = m_db.execQuery("select 'abc' as t, null as n, 12 as i, '' as e");

    EXPECT_EQ("abc", query.getTextField("t"));
    EXPECT_EQ("", query.getTextField("n"));
    EXPECT_EQ("12", query.getTextField("I"));
    EXPECT_EQ("", query.getTextField("e"));
    EXPECT_EQ("", query.getStringField("e", "given for null only"));
    EXPECT_EQ(1000, CodeOf([&] { query.getTextField("x"); }));
}

TEST_F(CppSQLite3Test, OfColumnsWithOneNameTheFirstIsRead) {
    CppSQLite3Query query =
        m_db.execQuery("select 1 as a, 2 as b, 3 as a union all select 4, 5, 6");

    EXPECT_EQ(2, query.getIntField("b"));
    EXPECT_EQ(1, query.getIntField("a"));
    query.nextRow();
    EXPECT_EQ(4, query.getIntField("a"));
}

TEST_F(CppSQLite3Test, AQueryThatTakesAnothersPlaceKnowsItsOwnNames) {
    CppSQLite3Query query = m_db.execQuery("select 1 as a, 2 as b");
    ASSERT_EQ(2, query.getIntField("b"));

    query = m_db.execQuery("select 3 as b, 4 as a");

    EXPECT_EQ(3, query.getIntField("b"));
    EXPECT_EQ(4, query.getIntField("a"));
}

TEST_F(CppSQLite3Test, TryDMLAnswersWithTheCodeAndTheTextThatTheExceptionWouldCarry) {
    m_db.execDML(CREATE_CACHO);
    m_db.execDML("insert into cachotable(vkey) values('a')");
    const char* const statements[] = {"update cachotable set mid = 1)where vkey = 'a'",
                                      "insert into cachotable(vkey) values('a')",
                                      "select 1; select 2",
                                      "attach 'x' as x",
                                      "rollback",
                                      nullptr};

    for (const char* pszStatement : statements) {
        std::string strError;
        const int nCode = m_db.tryDML(pszStatement, strError);
        try {
            m_db.execDML(pszStatement);
            ADD_FAILURE() << pszStatement;
        } catch (const CppSQLite3Exception& ex) {
            EXPECT_EQ(ex.errorCode(), nCode);
            EXPECT_STREQ(ex.errorMessage(), strError.c_str());
        }
    }
}

TEST_F(CppSQLite3Test, TryDMLRunsAStatementToItsEnd) {
    m_db.execDML(CREATE_CACHO);
    std::string strError = "as it was";

    EXPECT_EQ(0, m_db.tryDML("insert into cachotable(vkey) values('a'),('b')", strError));
    EXPECT_EQ(0, m_db.tryDML("select * from cachotable", strError));
    EXPECT_EQ(0, m_db.tryDML("", strError));

    EXPECT_EQ("as it was", strError);
    EXPECT_EQ(2, m_db.execQuery("select count(*) as n from cachotable").getIntField("n"));
}

TEST_F(CppSQLite3Test, ATransactionIsOpenFromItsBeginToItsEnd) {
    CppSQLite3DB db;
    EXPECT_FALSE(db.inTransaction());
    db.open(m_strFile.c_str());
    EXPECT_FALSE(db.inTransaction());

    (void)db.execDML("begin transaction");
    EXPECT_TRUE(db.inTransaction());
    (void)db.execDML("rollback transaction");

    EXPECT_FALSE(db.inTransaction());
}
