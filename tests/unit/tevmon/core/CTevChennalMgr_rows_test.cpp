// The channel over rows that another hand put into its table, that cannot be removed, or for which
// there is no memory.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/FileSizeLimit.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/memory/MemoryLimit.h"
#include "tests/support/trace/OtherConnection.h"
#include "tevmon/core/CTevChennalMgr.h"

using Texts = std::vector<std::string>;

namespace {

// Every message is accepted.
class RowsChannel : public CTevChennalMgr {
public:
    RowsChannel() = default;
    ~RowsChannel() override { Exit(); }

    Texts HandledInOneCycle() {
        m_handled.clear();
        SetRunning(true);
        Drain();
        SetRunning(false);
        return m_handled;
    }

protected:
    bool DisathMsg(const ChennalRecord& record) override {
        m_handled.push_back(record.detail);
        SetRunning(m_handled.size() < 20);  // a cycle without an end has one
        return true;
    }

private:
    Texts m_handled;
};

class CTevChennalMgrRowsTest : public testing::Test {
protected:
    // The store is the process's: in a program that runs several tests it moves along.
    CTevChennalMgrRowsTest() { EXPECT_TRUE(CTevChennalDB::Instance()->Open()); }

    const TestDir m_dir;
    OtherConnection m_file{m_dir.Database("tevchennaldb.db")};
    RowsChannel m_channel;
};

}  // namespace

TEST_F(CTevChennalMgrRowsTest, AHeadWithTheId0IsHandledAndRemovedLikeAnyOther) {
    ASSERT_EQ(0, m_file.Exec("insert into msgchennal values(0,'1','YQ==',5),(1,'1','Yg==',5)"));

    const Texts handled = m_channel.HandledInOneCycle();

    EXPECT_EQ((Texts{"a", "b"}), handled);
    EXPECT_EQ(Texts{"0"}, m_file.Rows("select count(*) from msgchennal"));
}

TEST_F(CTevChennalMgrRowsTest, RowsWithNegativeIdsComeFirst) {
    ASSERT_EQ(0, m_file.Exec("insert into msgchennal values(1,'1','YQ==',5),(-1,'1','Yg==',5)"));

    const Texts handled = m_channel.HandledInOneCycle();

    EXPECT_EQ((Texts{"b", "a"}), handled);
    EXPECT_EQ(Texts{"0"}, m_file.Rows("select count(*) from msgchennal"));
}

TEST_F(CTevChennalMgrRowsTest, AHeadThatAFullDiskKeepsIsHandledOncePerCycleAndNothingBehindIt) {
    ASSERT_EQ(0, m_file.Exec("insert into msgchennal values(1,'1','YQ==',5),(2,'1','Yg==',5)"));
    Texts first;
    Texts second;
    Texts lines;

    {
        const FileSizeLimit limit(512);  // room for the line, none for SQLite's journal
        lines = PrintedBy([&] {
            first = m_channel.HandledInOneCycle();
            second = m_channel.HandledInOneCycle();
        });
    }

    EXPECT_EQ(Texts{"a"}, first);
    EXPECT_EQ(Texts{"a"}, second);
    EXPECT_EQ(Texts(2, "disk I/O error"), lines);  // not a busy database: one attempt per cycle
    EXPECT_EQ((Texts{"a", "b"}), m_channel.HandledInOneCycle());
    EXPECT_EQ(Texts{"0"}, m_file.Rows("select count(*) from msgchennal"));
}

TEST_F(CTevChennalMgrRowsTest, AHeadThatABusyDatabaseKeepsIsHandledOncePerCycleAndNothingBehindIt) {
    ASSERT_EQ(0, m_file.Exec("insert into msgchennal values(1,'1','YQ==',5),(2,'1','Yg==',5)"));
    ASSERT_TRUE(m_file.LockWrite());  // fetching works
    Texts first;
    Texts second;

    const Texts lines = PrintedBy([&] {
        first = m_channel.HandledInOneCycle();
        second = m_channel.HandledInOneCycle();
    });

    EXPECT_EQ(Texts{"a"}, first);
    EXPECT_EQ(Texts{"a"}, second);
    EXPECT_EQ(Texts(10, "database is locked"), lines);  // five attempts per cycle
    ASSERT_TRUE(m_file.Release());
    EXPECT_EQ((Texts{"a", "b"}), m_channel.HandledInOneCycle());
}

TEST_F(CTevChennalMgrRowsTest, AMessageWithoutMemoryForItIsSaidAndPushMsgStillReturnsTrue) {
    const std::string strDetail(1000, 'x');
    ASSERT_TRUE(m_channel.PushMsg("x", 5));
    bool bPushed = false;
    long nRefused = 0;
    const StdoutCapture output;
    {
        const MemoryLimit limit(999);
        EXPECT_NO_THROW(bPushed = m_channel.PushMsg(strDetail, 5));
        nRefused = limit.Refused();
    }

    EXPECT_TRUE(bPushed);
    EXPECT_EQ(1, nRefused);
    EXPECT_EQ("out of memory\n", output.Text());
}
