#include "host/transport/ReplyTable.h"

#include <gtest/gtest.h>

namespace {

class ReplyTableTest : public testing::Test {
protected:
    uintptr_t Expect(const std::string& strWho) {
        return m_replies.Expect([this, strWho](int64_t nMsgType, const std::string& strData) {
            m_strGot += strWho + " " + std::to_string(nMsgType) + " " + strData + ";";
        });
    }

    ReplyTable m_replies;
    std::string m_strGot;
};

}  // namespace

TEST_F(ReplyTableTest, AReplyReachesWhoExpectsItOnce) {
    const uintptr_t nFirst = Expect("first");
    const uintptr_t nSecond = Expect("second");
    EXPECT_NE(0u, nFirst);
    EXPECT_NE(nFirst, nSecond);

    m_replies.Take(nSecond)(7, "data");
    EXPECT_EQ("second 7 data;", m_strGot);
    EXPECT_FALSE(m_replies.Take(nSecond));
    EXPECT_TRUE(m_replies.Take(nFirst));
}

TEST_F(ReplyTableTest, AfterTheCallbackNothingIsExpectedAnyMore) {
    const uintptr_t nHandle = Expect("late");
    m_replies.Forget(nHandle);
    m_replies.Forget(nHandle);
    EXPECT_FALSE(m_replies.Take(nHandle));
    // An old handle must not lead to another callback's reply.
    EXPECT_NE(nHandle, Expect("next"));
    EXPECT_FALSE(m_replies.Take(nHandle));
}

TEST_F(ReplyTableTest, AHandleThatWasNeverGivenLeadsToNothing) {
    (void)Expect("somebody");
    EXPECT_FALSE(m_replies.Take(0));
    EXPECT_FALSE(m_replies.Take(~uintptr_t{0}));
}
