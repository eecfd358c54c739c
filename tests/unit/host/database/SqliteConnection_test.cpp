#include "host/database/SqliteConnection.h"

#include <gtest/gtest.h>

#include "tests/support/TestDir.h"

namespace {

constexpr int NEW_FILE = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;

class SqliteConnectionTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(SQLITE_OK, m_connection.Open(m_strFile, NEW_FILE, 0));
        ASSERT_EQ(SQLITE_OK, Execute("create table t (n); insert into t values (7), (8)"));
    }
    int Execute(const char* pszSql) { return m_connection.Execute(pszSql, m_strAnswer); }

    const TestDir m_dir;
    const std::string m_strFile = m_dir.Path() + "/a.db";
    SqliteConnection m_connection;
    std::string m_strAnswer;
};

}  // namespace

TEST_F(SqliteConnectionTest, AnAnswerIsTheFirstColumnOfTheLastRow) {
    EXPECT_EQ(SQLITE_OK, Execute("select n, 'other' from t order by n"));
    EXPECT_EQ("8", m_strAnswer);
    EXPECT_EQ(SQLITE_OK, Execute("select null"));
    EXPECT_EQ("", m_strAnswer);
    m_strAnswer = "of before";
    EXPECT_EQ(SQLITE_OK, Execute("select n from t where n > 8"));
    EXPECT_EQ("", m_strAnswer);
}

TEST_F(SqliteConnectionTest, AnErrorHasACodeAndWords) {
    EXPECT_EQ(SQLITE_ERROR, Execute("select x from t"));
    EXPECT_EQ(SQLITE_ERROR, m_connection.Code());
    EXPECT_EQ("no such column: x", m_connection.Text());

    SqliteConnection missing;
    EXPECT_EQ(SQLITE_CANTOPEN, missing.Open(m_dir.Path() + "/none.db", SQLITE_OPEN_READONLY, 0));
    EXPECT_EQ(SQLITE_CANTOPEN, missing.Code() & 0xFF);
    EXPECT_EQ("unable to open database file", missing.Text());
    missing.Close();
    EXPECT_FALSE(missing);
    EXPECT_EQ("out of memory", missing.Text());
}

// Else a file could have functions called that are not its reader's business.
TEST_F(SqliteConnectionTest, TheFilesStructureIsNotTrustedAndNotWritable) {
    int nTrusted = -1;
    int nDefensive = -1;
    sqlite3* const pDb = m_connection.Get();
    EXPECT_EQ(SQLITE_OK, sqlite3_db_config(pDb, SQLITE_DBCONFIG_TRUSTED_SCHEMA, -1, &nTrusted));
    EXPECT_EQ(SQLITE_OK, sqlite3_db_config(pDb, SQLITE_DBCONFIG_DEFENSIVE, -1, &nDefensive));
    EXPECT_EQ(0, nTrusted);
    EXPECT_EQ(1, nDefensive);
    EXPECT_EQ(SQLITE_OK, Execute("pragma writable_schema = 1"));
    EXPECT_EQ(SQLITE_ERROR, Execute("update sqlite_master set sql = ''"));
    EXPECT_EQ("table sqlite_master may not be modified", m_connection.Text());
}

TEST_F(SqliteConnectionTest, ALockThatStaysEndsTheCallAsBusy) {
    SqliteConnection other;
    ASSERT_EQ(SQLITE_OK, other.Open(m_strFile, SQLITE_OPEN_READWRITE, 0));
    ASSERT_EQ(SQLITE_OK, Execute("begin exclusive"));
    EXPECT_EQ(SQLITE_BUSY, other.Execute("select n from t", m_strAnswer));
    EXPECT_EQ("database is locked", other.Text());
    ASSERT_EQ(SQLITE_OK, Execute("rollback"));
    EXPECT_EQ(SQLITE_OK, other.Execute("select n from t", m_strAnswer));
}

TEST_F(SqliteConnectionTest, OpeningAnotherFileClosesTheFirst) {
    ASSERT_EQ(SQLITE_OK, Execute("begin exclusive"));
    ASSERT_EQ(SQLITE_OK, m_connection.Open(m_dir.Path() + "/b.db", NEW_FILE, 0));
    EXPECT_EQ(SQLITE_ERROR, Execute("select n from t"));
    SqliteConnection other;
    ASSERT_EQ(SQLITE_OK, other.Open(m_strFile, SQLITE_OPEN_READWRITE, 0));
    EXPECT_EQ(SQLITE_OK, other.Execute("select n from t", m_strAnswer));  // the lock is gone
}

TEST_F(SqliteConnectionTest, AStatementGivesItsRows) {
    SqliteStatement statement;
    ASSERT_EQ(SQLITE_OK, statement.Prepare(m_connection, "select n from t order by n"));
    ASSERT_EQ(SQLITE_ROW, statement.Step());
    EXPECT_EQ(7, sqlite3_column_int64(statement.Get(), 0));
    EXPECT_EQ(SQLITE_ROW, statement.Step());
    EXPECT_EQ(SQLITE_DONE, statement.Step());

    EXPECT_EQ(SQLITE_ERROR, statement.Prepare(m_connection, "no statement"));
    EXPECT_FALSE(statement);
    EXPECT_EQ(SQLITE_ERROR, statement.Step());
}
