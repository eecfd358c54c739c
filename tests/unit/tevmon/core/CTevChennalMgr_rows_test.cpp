// The channel over rows that another hand put into its table.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TestDir.h"
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
