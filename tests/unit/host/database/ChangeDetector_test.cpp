#include "host/database/ChangeDetector.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/DbFile.h"
#include "tests/support/TestDir.h"

namespace {

class ChangeDetectorTest : public testing::Test {
protected:
    ChangeDetectorTest() : m_file(m_dir.Database("test.db")) {
        m_file.Execute("create table t(a)");
        m_watch.Open(m_dir.Database("test.db"));
    }

    TestDir m_dir;
    DbFile m_file;
    ChangeDetector m_watch;
};

}  // namespace

TEST_F(ChangeDetectorTest, AFileThatNobodyWritesIsQuietAndStaysUnchanged) {
    EXPECT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());
    EXPECT_TRUE(m_watch.IsUnchanged());
    EXPECT_TRUE(m_watch.IsUnchanged());
}

TEST_F(ChangeDetectorTest, AChangeThatBegunAndEndedMeanwhileIsSeen) {
    ASSERT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());

    m_file.Execute("insert into t values(1)");

    EXPECT_FALSE(m_watch.IsUnchanged());
    EXPECT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());
    EXPECT_TRUE(m_watch.IsUnchanged());
}

TEST_F(ChangeDetectorTest, AChangeUnderWayIsSeenBeforeAndAfter) {
    ASSERT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());

    m_file.Execute("begin; insert into t values(1)");

    EXPECT_FALSE(m_watch.IsUnchanged());
    EXPECT_EQ(ChangeDetector::STATE_WRITTEN, m_watch.Begin());

    m_file.Execute("rollback");

    EXPECT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());
}

TEST_F(ChangeDetectorTest, AJournalKeptBetweenChangesIsNoChange) {
    m_file.Execute("pragma journal_mode = persist; insert into t values(1)");
    ASSERT_TRUE(std::filesystem::exists(m_dir.Database("test.db-journal")));

    EXPECT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());
    EXPECT_TRUE(m_watch.IsUnchanged());

    m_file.Execute("begin; insert into t values(2)");
    EXPECT_FALSE(m_watch.IsUnchanged());

    m_file.Execute("commit; pragma journal_mode = truncate; insert into t values(3)");
    EXPECT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());
}

TEST_F(ChangeDetectorTest, AWriteAheadLogIsRecognised) {
    m_file.Execute("pragma journal_mode = wal; insert into t values(1)");

    EXPECT_EQ(ChangeDetector::STATE_WRITE_AHEAD, m_watch.Begin());
}

TEST_F(ChangeDetectorTest, AnEmptyFileIsQuietUntilItIsFilled) {
    const std::string strFile = m_dir.WriteFile("data/db/empty.db", "");
    m_watch.Open(strFile);
    EXPECT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());

    DbFile file(strFile);
    file.Execute("create table t(a)");

    EXPECT_FALSE(m_watch.IsUnchanged());
}

TEST_F(ChangeDetectorTest, AMissingFileLooksLikeOneBeingWritten) {
    m_watch.Open(m_dir.Path() + "/missing");

    EXPECT_EQ(ChangeDetector::STATE_WRITTEN, m_watch.Begin());
    EXPECT_FALSE(m_watch.IsUnchanged());
}

TEST_F(ChangeDetectorTest, AJournalThatIsAPipeHoldsNobodyUp) {
    ASSERT_EQ(0, mkfifo(m_dir.Database("test.db-journal").c_str(), 0600));

    EXPECT_EQ(ChangeDetector::STATE_QUIET, m_watch.Begin());
}
