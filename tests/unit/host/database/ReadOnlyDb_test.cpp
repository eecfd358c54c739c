#include "host/database/ReadOnlyDb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/support/DbFile.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr size_t ALL = SIZE_MAX;

class ReadOnlyDbTest : public testing::Test {
protected:
    std::string File() const { return m_dir.Database("test.db"); }

    // The error text of opening File() with table "t"; "" when that succeeds.
    std::string OpenError(int nBusyMs = 0) {
        ReadOnlyDb db(nBusyMs);
        const bool bOpened = db.Open(File(), "t");
        EXPECT_EQ(bOpened, db.Error().empty());
        return db.Error();
    }

    // Opens m_db with File() as strSql makes it, its table being "t".
    bool OpenTable(const std::string& strSql) {
        DbFile(File()).Execute(strSql);
        return m_db.Open(File(), "t");
    }

    TestDir m_dir;
    ReadOnlyDb m_db;
};

std::string ReadWhole(const std::string& strFile) {
    const std::ifstream stream(strFile, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

}  // namespace

TEST_F(ReadOnlyDbTest, GivesEveryTypeAsTextAndNumber) {
    DbFile file(File());
    file.Execute("create table t(a)");
    file.Execute(
        "insert into t values(12),('34'),('5x'),(''),(null),(1.5),(x'00ff'),"
        "(9223372036854775807),('9223372036854775808'),(' 7'),('-3')");
    ReadOnlyDb db;
    ASSERT_TRUE(db.Open(File(), "t")) << db.Error();

    std::vector<DbRow> rows;
    const auto eResult = db.Query("select a from t where rowid >= ?1", int64_t{0}, ALL, rows);

    ASSERT_EQ(ReadOnlyDb::RESULT_DONE, eResult);
    const struct {
        std::optional<int64_t> nNumber;
        std::string strText;
    } EXPECTED[] = {
        {12, "12"},
        {34, "34"},
        {std::nullopt, "5x"},
        {std::nullopt, ""},
        {std::nullopt, ""},
        {std::nullopt, "1.5"},
        {std::nullopt, std::string("\0\xFF", 2)},
        {INT64_MAX, "9223372036854775807"},
        {std::nullopt, "9223372036854775808"},
        {std::nullopt, " 7"},
        {-3, "-3"},
    };
    ASSERT_EQ(std::size(EXPECTED), rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(EXPECTED[i].nNumber, rows[i].at(0).nNumber) << i;
        EXPECT_EQ(EXPECTED[i].strText, rows[i].at(0).strText) << i;
    }
}

TEST_F(ReadOnlyDbTest, TextArgumentsAreValuesAndNeverStatement) {
    ASSERT_TRUE(OpenTable("create table t(a); insert into t values('x'' or 1=1')"));

    std::vector<DbRow> rows;
    (void)m_db.Query("select a from t where a = ?1", std::string("x' or 1=1"), ALL, rows);
    EXPECT_EQ(1u, rows.size());
    (void)m_db.Query("select a from t where a = ?1", std::string("' or ''='"), ALL, rows);
    EXPECT_EQ(0u, rows.size());
}

TEST_F(ReadOnlyDbTest, RowsEndWithTheOneThatFillsTheBytes) {
    ASSERT_TRUE(OpenTable("create table t(a); insert into t values('12345'),('6'),('7'),('8')"));

    std::vector<DbRow> rows;
    (void)m_db.Query("select a from t where rowid >= ?1", int64_t{0}, 6, rows);

    EXPECT_EQ(2u, rows.size());
}

TEST_F(ReadOnlyDbTest, NothingCanBeWritten) {
    ASSERT_TRUE(OpenTable("create table t(a); insert into t values(1)"));

    std::vector<DbRow> rows;
    const auto eResult = m_db.Query("delete from t where a = ?1", int64_t{1}, ALL, rows);

    EXPECT_EQ(ReadOnlyDb::RESULT_FAILED, eResult);
}

TEST_F(ReadOnlyDbTest, AMissingFileIsNamedAndNotMade) {
    const std::string strError = OpenError();

    EXPECT_EQ("cannot read " + File() +
                  ": No such file or directory; the module has not run with this state directory "
                  "yet, or --state-dir names the wrong one",
              strError);
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(ReadOnlyDbTest, ADirectoryAndAPipeAreNoDatabaseAndNobodyWaits) {
    ASSERT_EQ(0, mkfifo(File().c_str(), 0600));
    EXPECT_EQ(File() + " is no regular file; check --state-dir", OpenError());

    ASSERT_EQ(0, unlink(File().c_str()));
    ASSERT_EQ(0, mkdir(File().c_str(), 0700));
    EXPECT_EQ(File() + " is no regular file; check --state-dir", OpenError());
}

TEST_F(ReadOnlyDbTest, AnEmptyFileHoldsNoTable) {
    (void)m_dir.WriteFile("data/db/test.db", "");

    EXPECT_THAT(OpenError(), StartsWith(File() + " holds no table t; the module makes it"));
}

TEST_F(ReadOnlyDbTest, AViewOfTheNameIsNoTable) {
    DbFile file(File());
    file.Execute("create table u(a); create view t as select a from u");

    EXPECT_THAT(OpenError(), HasSubstr("holds no table t"));
}

TEST_F(ReadOnlyDbTest, GarbageIsDamagedAndStaysAsItIs) {
    const std::string strGarbage(8192, 'x');
    (void)m_dir.WriteFile("data/db/test.db", strGarbage);

    EXPECT_THAT(OpenError(), HasSubstr("is damaged (file is not a database); move the file away"));
    EXPECT_EQ(strGarbage, ReadWhole(File()));
}

TEST_F(ReadOnlyDbTest, ATruncatedFileIsDamaged) {
    DbFile file(File());
    file.Execute("create table t(a); insert into t values(zeroblob(100000))");
    file.Close();
    ASSERT_EQ(0, truncate(File().c_str(), 4096 + 100));

    ReadOnlyDb db;
    std::vector<DbRow> rows;
    const bool bOpened = db.Open(File(), "t");
    const auto eResult = bOpened
                             ? db.Query("select a from t where rowid >= ?1", int64_t{0}, ALL, rows)
                             : ReadOnlyDb::RESULT_FAILED;

    EXPECT_EQ(ReadOnlyDb::RESULT_FAILED, eResult);
    EXPECT_THAT(db.Error(), HasSubstr("is damaged (database disk image is malformed); "));
}

TEST_F(ReadOnlyDbTest, AnotherShapeIsSaidWithTheMissingColumn) {
    ASSERT_TRUE(OpenTable("create table t(a)"));

    std::vector<DbRow> rows;
    const auto eResult = m_db.Query("select \"t\".\"b\" from t", int64_t{0}, ALL, rows);

    EXPECT_EQ(ReadOnlyDb::RESULT_FAILED, eResult);
    EXPECT_THAT(m_db.Error(),
                HasSubstr("holds its table in another shape (no such column: t.b); "));
}

TEST_F(ReadOnlyDbTest, ReadingTakesNoLock) {
    DbFile file(File());
    file.Execute("create table t(a); insert into t values(1); begin exclusive");
    ReadOnlyDb db(0);

    const bool bOpened = db.Open(File(), "t");

    EXPECT_TRUE(bOpened) << db.Error();
    std::vector<DbRow> rows;
    EXPECT_EQ(ReadOnlyDb::RESULT_DONE,
              db.Query("select a from t where a >= ?1", int64_t{0}, ALL, rows));
    EXPECT_EQ(1u, rows.size());
}

TEST_F(ReadOnlyDbTest, AWriterInTheMiddleOfACommitIsBusy) {
    DbFile file(File());
    file.Execute("create table t(a); begin exclusive; insert into t values(1)");

    EXPECT_EQ(File() + " is being written and was not free for a moment; try again", OpenError(20));

    file.Execute("rollback");
    EXPECT_EQ("", OpenError(20));
}

TEST_F(ReadOnlyDbTest, AChangeKeptOpenForLongIsNoHindrance) {
    DbFile file(File());
    file.Execute(
        "create table t(a); insert into t values(1); "
        "begin immediate; insert into t values(2)");
    ReadOnlyDb db(0);
    ASSERT_TRUE(db.Open(File(), "t")) << db.Error();

    std::vector<DbRow> rows;
    EXPECT_EQ(ReadOnlyDb::RESULT_DONE,
              db.Query("select a from t where a >= ?1", int64_t{0}, ALL, rows));
    EXPECT_EQ(1u, rows.size());
    EXPECT_EQ(SQLITE_OK, file.TryExecute("commit"));
}

TEST_F(ReadOnlyDbTest, ChangesBetweenTwoQueriesAreSeen) {
    DbFile file(File());
    file.Execute("create table t(a); insert into t values(1)");
    ReadOnlyDb db;
    ASSERT_TRUE(db.Open(File(), "t")) << db.Error();
    std::vector<DbRow> rows;
    (void)db.Query("select a from t where a >= ?1", int64_t{0}, ALL, rows);
    EXPECT_EQ(1u, rows.size());

    file.Execute("insert into t values(2)");

    (void)db.Query("select a from t where a >= ?1", int64_t{0}, ALL, rows);
    EXPECT_EQ(2u, rows.size());
}

TEST_F(ReadOnlyDbTest, UnderAWriterThatNeverRestsRowsBelongTogether) {
    DbFile file(File());
    file.Execute(
        "create table t(a); with recursive c(n) as (select 1 union all select n + 1 from "
        "c where n < 20) insert into t select printf('%.*c', 9000, 'a') from c");
    std::atomic<bool> bStop{false};
    std::thread writer([&] {
        for (int i = 0; !bStop; ++i) {
            const std::string strLetter(1, static_cast<char>('a' + i % 26));
            file.Execute("update t set a = printf('%.*c', 9000, '" + strLetter + "')");
        }
    });

    ReadOnlyDb db(60000);
    EXPECT_TRUE(db.Open(File(), "t")) << db.Error();
    size_t nRows = 0;
    size_t nTorn = 0;
    for (int i = 0; i < 1000; ++i) {
        std::vector<DbRow> rows;
        EXPECT_EQ(ReadOnlyDb::RESULT_DONE,
                  db.Query("select a from t where rowid >= ?1", int64_t{0}, ALL, rows));
        nRows += rows.size();
        for (const DbRow& row : rows) {
            const std::string strWhole(9000, rows.front().at(0).strText.at(0));
            nTorn += row.at(0).strText == strWhole ? 0 : 1;
        }
    }
    bStop = true;
    writer.join();

    EXPECT_EQ(20000u, nRows);
    EXPECT_EQ(0u, nTorn);
}

TEST_F(ReadOnlyDbTest, AJournalBesideAnEmptyFileIsNotTakenAway) {
    (void)m_dir.WriteFile("data/db/test.db", "");
    const std::string strJournal = m_dir.WriteFile("data/db/test.db-journal", "\xD9 begun");

    (void)OpenError();

    EXPECT_EQ("\xD9 begun", ReadWhole(strJournal));
}

TEST_F(ReadOnlyDbTest, AChangeLeftHalfDoneIsLeftToTheModule) {
    DbFile file(m_dir.Database("live.db"));
    file.Execute(
        "pragma cache_size = 2; create table t(a);"
        "begin; insert into t values(zeroblob(500000))");
    // What a kill leaves behind: the file and its journal, and no lock.
    std::filesystem::copy_file(m_dir.Database("live.db"), File());
    std::filesystem::copy_file(m_dir.Database("live.db-journal"), File() + "-journal");
    const std::string strBefore = ReadWhole(File());

    EXPECT_THAT(OpenError(), StartsWith(File() + " was left in the middle of a change by a writer "
                                                 "that ended; start the module once"));
    EXPECT_EQ(strBefore, ReadWhole(File()));
    EXPECT_TRUE(std::filesystem::exists(File() + "-journal"));
}

TEST_F(ReadOnlyDbTest, ADatabaseInWriteAheadModeIsReadBesideItsWriter) {
    DbFile file(File());
    file.Execute(
        "pragma journal_mode = wal; create table t(a); insert into t values(1); "
        "begin immediate; insert into t values(2)");
    ReadOnlyDb db;
    ASSERT_TRUE(db.Open(File(), "t")) << db.Error();

    std::vector<DbRow> rows;
    (void)db.Query("select a from t where a >= ?1", int64_t{0}, ALL, rows);

    EXPECT_EQ(1u, rows.size());
    EXPECT_EQ(SQLITE_OK, file.TryExecute("commit"));
}

TEST_F(ReadOnlyDbTest, AHugeValueIsRefusedAndTheRowsBeforeItAreGiven) {
    ASSERT_TRUE(OpenTable("create table t(a); insert into t values('small'),(zeroblob(67108865))"));

    std::vector<DbRow> rows;
    const auto eResult = m_db.Query("select a from t where rowid >= ?1", int64_t{0}, ALL, rows);

    EXPECT_EQ(ReadOnlyDb::RESULT_TOO_BIG, eResult);
    EXPECT_EQ(1u, rows.size());
    EXPECT_THAT(m_db.Error(), HasSubstr("holds a value of more than 64.0 MiB in table t; "));
}
