#include "host/cloud/AnswerTracker.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "tests/support/FakeClock.h"
#include "tests/support/TestDir.h"

namespace {

class AnswerTrackerTest : public testing::Test {
protected:
    void Execute(const std::string& strStatements) const {
        sqlite3* pDb = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strCache.c_str(), &pDb));
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(pDb, strStatements.c_str(), nullptr, nullptr, nullptr));
        sqlite3_close(pDb);
    }
    void MakeCache(const std::string& strKey) const {
        Execute(
            "create table if not exists cachotable( id INTEGER ,  vkey TEXT PRIMARY KEY, level "
            "INTEGER,  tmcreate INTEGER, tminternal INTEGER, detail TEXT, mid INTEGER);"
            "insert into cachotable(vkey) values('" +
            strKey + "');");
    }

    TestDir m_dir;
    const std::string m_strCache = m_dir.Database("tevcloudcacho.db");
    FakeClock m_clock{1000000};
};

}  // namespace

TEST_F(AnswerTrackerTest, AKeyIsAnsweredOnceWhileItsAnswerIsUnderWay) {
    AnswerTracker keys(m_strCache);

    EXPECT_TRUE(keys.Begin("k"));
    EXPECT_FALSE(keys.Begin("k"));
    EXPECT_TRUE(keys.Begin("other"));
}

TEST_F(AnswerTrackerTest, AnAnswerThatDidNotArriveMayBeGivenAgain) {
    AnswerTracker keys(m_strCache);
    ASSERT_TRUE(keys.Begin("k"));

    keys.End("k", 10, false);

    EXPECT_TRUE(keys.Begin("k"));
}

TEST_F(AnswerTrackerTest, RightAfterAnAnswerItsKeyIsNotAnsweredAgain) {
    AnswerTracker keys(m_strCache);
    ASSERT_TRUE(keys.Begin("k"));
    keys.End("k", 40, true);

    EXPECT_FALSE(keys.Begin("k"));
}

TEST_F(AnswerTrackerTest, AKeyIsAnsweredAgainWhenItsRowHasGone) {
    AnswerTracker keys(m_strCache);
    ASSERT_TRUE(keys.Begin("k"));
    MakeCache("k");
    keys.End("k", 40, true);
    m_clock.Advance(600);
    EXPECT_FALSE(keys.Begin("k"));

    Execute("delete from cachotable");

    EXPECT_TRUE(keys.Begin("k"));
}

TEST_F(AnswerTrackerTest, AnExpiredRowThatIsStillThereIsNotAnswered) {
    AnswerTracker keys(m_strCache);
    ASSERT_TRUE(keys.Begin("k"));
    MakeCache("k");
    keys.End("k", 40, true);

    m_clock.Advance(1201);

    EXPECT_FALSE(keys.Begin("k"));
}

TEST_F(AnswerTrackerTest, RowsOfAnEarlierRunCount) {
    MakeCache("old");
    AnswerTracker keys(m_strCache);

    EXPECT_FALSE(keys.Begin("old"));
    EXPECT_TRUE(keys.Begin("new"));
    Execute("delete from cachotable");

    EXPECT_TRUE(keys.Begin("old"));
}

TEST_F(AnswerTrackerTest, WhenTheCacheCannotBeReadTheLifetimeDecides) {
    AnswerTracker keys(m_strCache);
    ASSERT_TRUE(keys.Begin("k"));
    keys.End("k", 40, true);
    m_dir.WriteFile("data/db/tevcloudcacho.db", "this is no database at all, but a text");

    m_clock.Advance(1200);
    EXPECT_FALSE(keys.Begin("k"));
    m_clock.Advance(1);
    EXPECT_TRUE(keys.Begin("k"));
}

TEST_F(AnswerTrackerTest, ForFiveSecondsAnAnswerIsSureAndThenTheCacheIsAsked) {
    AnswerTracker keys(m_strCache);
    MakeCache("other");
    ASSERT_TRUE(keys.Begin("k"));
    keys.End("k", 10, true);

    m_clock.Advance(4);
    EXPECT_FALSE(keys.Begin("k"));
    m_clock.Advance(1);
    EXPECT_TRUE(keys.Begin("k"));  // it has no row
}

TEST_F(AnswerTrackerTest, WhenTheClockWasSetBackTheCacheIsAsked) {
    AnswerTracker keys(m_strCache);
    MakeCache("other");
    ASSERT_TRUE(keys.Begin("k"));
    keys.End("k", 10, true);

    m_clock.Advance(-1);

    EXPECT_TRUE(keys.Begin("k"));
}

TEST_F(AnswerTrackerTest, AnAnswerThatTheModuleDoesNotKeepIsGivenEveryTime) {
    AnswerTracker keys(m_strCache);
    ASSERT_TRUE(keys.Begin("k"));
    EXPECT_FALSE(keys.Begin("k"));
    keys.End("k", 60, true);

    EXPECT_TRUE(keys.Begin("k"));
}

TEST_F(AnswerTrackerTest, AKeyOfAnEarlierRunIsTakenWhenTheCacheCannotBeReadAnyMore) {
    MakeCache("old");
    AnswerTracker keys(m_strCache);
    m_dir.WriteFile("data/db/tevcloudcacho.db", "this is no database at all, but a text");

    m_clock.Advance(100 * 24 * 3600);

    EXPECT_FALSE(keys.Begin("old"));
    EXPECT_TRUE(keys.Begin("new"));
}

TEST_F(AnswerTrackerTest, AKeyIsATextAndNoStatement) {
    MakeCache("a''b");
    MakeCache("c");
    AnswerTracker keys(m_strCache);
    EXPECT_FALSE(keys.Begin("a'b"));

    Execute("delete from cachotable where vkey <> 'c'");

    EXPECT_TRUE(keys.Begin("a'b"));
}
