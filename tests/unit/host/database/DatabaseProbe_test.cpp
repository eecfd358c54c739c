#include "host/database/DatabaseProbe.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>

#include "tests/support/TestDir.h"

namespace {

class DatabaseProbeTest : public testing::Test {
protected:
    ~DatabaseProbeTest() override { sqlite3_close(m_pDb); }

    void Execute(const std::string& strFile, const std::string& strStatements) {
        if (m_pDb == nullptr) {
            ASSERT_EQ(SQLITE_OK, sqlite3_open(strFile.c_str(), &m_pDb));
        }
        ASSERT_EQ(SQLITE_OK, sqlite3_exec(m_pDb, strStatements.c_str(), nullptr, nullptr, nullptr));
    }

    TestDir m_dir;
    const std::string m_strQueue = m_dir.Database("tevchennaldb.db");
    const std::string m_strCache = m_dir.Database("tevcloudcacho.db");
    sqlite3* m_pDb = nullptr;
};

constexpr char MAKE_QUEUE[] =
    "create table msgchennal( id INTEGER PRIMARY KEY autoincrement , createtime TEXT, detail TEXT, "
    "mid INTEGER);";
constexpr char MAKE_CACHE[] =
    "create table cachotable( id INTEGER ,  vkey TEXT PRIMARY KEY, level INTEGER,  tmcreate "
    "INTEGER, tminternal INTEGER, detail TEXT, mid INTEGER);";

}  // namespace

TEST_F(DatabaseProbeTest, AQueueThatDoesNotExistYetIsEmptyAndIsNotMade) {
    EXPECT_EQ(0u, database_probe::QueueDepth(m_strQueue));
    EXPECT_EQ(false, database_probe::HasVerdict(m_strCache, "k"));
    EXPECT_TRUE(database_probe::VerdictKeys(m_strCache).empty());

    EXPECT_NE(0, access(m_strQueue.c_str(), F_OK));
    EXPECT_NE(0, access(m_strCache.c_str(), F_OK));
}

TEST_F(DatabaseProbeTest, ADatabaseWithoutAnyTableIsAnEmptyQueue) {
    Execute(m_strQueue, "pragma journal_mode = wal");

    EXPECT_EQ(0u, database_probe::QueueDepth(m_strQueue));
}

TEST_F(DatabaseProbeTest, TheDepthIsThatOfTheRowsThatAreLeft) {
    Execute(m_strQueue, MAKE_QUEUE);
    EXPECT_EQ(0u, database_probe::QueueDepth(m_strQueue));

    Execute(m_strQueue,
            "insert into msgchennal(detail) values('a'),('b'),('c');"
            "delete from msgchennal where id = 1;");

    EXPECT_EQ(2u, database_probe::QueueDepth(m_strQueue));
}

TEST_F(DatabaseProbeTest, AFileThatIsNoQueueIsUnknown) {
    m_dir.WriteFile("data/db/tevchennaldb.db", "this is no database at all, but a text");

    EXPECT_EQ(std::nullopt, database_probe::QueueDepth(m_strQueue));
}

TEST_F(DatabaseProbeTest, AQueueThatIsBeingWrittenIsUnknownAtOnce) {
    Execute(m_strQueue, std::string(MAKE_QUEUE) + "begin exclusive;");

    EXPECT_EQ(std::nullopt, database_probe::QueueDepth(m_strQueue));

    Execute(m_strQueue, "commit;");
    EXPECT_EQ(0u, database_probe::QueueDepth(m_strQueue));
}

TEST_F(DatabaseProbeTest, ALookLeavesNoLockBehind) {
    Execute(m_strQueue, MAKE_QUEUE);
    ASSERT_EQ(0u, database_probe::QueueDepth(m_strQueue));

    Execute(m_strQueue, "begin exclusive; commit;");
}

TEST_F(DatabaseProbeTest, VerdictsAreFoundByTheirWholeKey) {
    Execute(m_strCache, std::string(MAKE_CACHE) +
                            "insert into cachotable(vkey,level) values('abc',10),('a''b',40);");

    EXPECT_EQ(true, database_probe::HasVerdict(m_strCache, "abc"));
    EXPECT_EQ(true, database_probe::HasVerdict(m_strCache, "a'b"));
    EXPECT_EQ(false, database_probe::HasVerdict(m_strCache, "ab"));
    EXPECT_EQ(false, database_probe::HasVerdict(m_strCache, "' or 1=1 --"));
}

TEST_F(DatabaseProbeTest, TheKeysComeAsSortedNumbers) {
    Execute(m_strCache,
            std::string(MAKE_CACHE) + "insert into cachotable(vkey) values('k1'),('k2'),(null);");

    const std::vector<uint64_t> keys = database_probe::VerdictKeys(m_strCache);

    ASSERT_EQ(2u, keys.size());
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    EXPECT_TRUE(std::binary_search(keys.begin(), keys.end(), database_probe::HashKey("k1")));
    EXPECT_TRUE(std::binary_search(keys.begin(), keys.end(), database_probe::HashKey("k2")));
}
