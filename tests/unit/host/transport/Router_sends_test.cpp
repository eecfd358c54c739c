#include "host/transport/Router.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/Event.h"
#include "tests/unit/host/transport/RouterParts.h"

using RouterSendsTest = RouterTest;

TEST_F(RouterSendsTest, ACompletionNamesTheEndpointThatAnswered) {
    m_router.AddEndpoint(CLOUD, &m_cloud);
    uint32_t nFirst = 0;
    uint32_t nSecond = 0;
    ASSERT_EQ(0u, m_router.SendWithCompletion(&CLOUD, 20300, "a\0b", 3, &m_completion, 0, &nFirst,
                                              60000));
    ASSERT_EQ(0u, m_router.SendWithCompletion(&CLOUD, 20300, "b", 1, nullptr, 0, &nSecond, 60000));
    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));
    m_router.Close();

    EXPECT_EQ(std::string("answer to a\0b", 13), m_completion.m_strAnswer);
    EXPECT_EQ(0, std::memcmp(&CLOUD, &m_completion.m_source, sizeof(Guid)));
    EXPECT_TRUE(m_completion.m_bPlain);
    EXPECT_NE(nFirst, nSecond);
    EXPECT_EQ("b", m_cloud.m_strBody);  // without a completion it is delivered as well
}

TEST_F(RouterSendsTest, ATimeOutInThePastEndsASendThatIsNotTakenYet) {
    HeldCall held;
    m_cloud.fnCalled = [&] { held.Hold(); };
    m_router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, m_router.Post(&CLOUD, 20004, "holds the executor", 18));
    ASSERT_TRUE(held.HasBegun());
    ASSERT_EQ(0u, m_router.SendWithCompletion(&CLOUD, 20300, "x", 1, &m_completion, 0, nullptr,
                                              std::numeric_limits<int64_t>::min()));

    EXPECT_TRUE(m_completion.m_called.Wait());
    EXPECT_EQ(ROUTER_TIMEOUT, m_completion.m_nResult);
    EXPECT_EQ("", m_completion.m_strAnswer);
    held.GoOn();
    m_router.Close();
}

// The longest there is would be a time in the past if it were only added.
TEST_F(RouterSendsTest, TheLongestTimeOutIsFarAway) {
    HeldCall held;
    m_cloud.fnCalled = [&] { held.Hold(); };
    m_router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, m_router.SendWithCompletion(&CLOUD, 20300, "x", 1, &m_completion, 0, nullptr,
                                              std::numeric_limits<int64_t>::max()));
    ASSERT_TRUE(held.HasBegun());
    Completion other;
    ASSERT_EQ(0u, m_router.SendWithCompletion(&CLOUD, 20300, "x", 1, &other, 0, nullptr, 1));
    ASSERT_TRUE(other.m_called.Wait());  // so the deadlines were gone through
    held.GoOn();

    EXPECT_TRUE(m_completion.m_called.Wait());
    m_router.Close();
    EXPECT_EQ(0u, m_completion.m_nResult);
    EXPECT_EQ("answer to x", m_completion.m_strAnswer);
}

TEST_F(RouterSendsTest, TheLocalIdentityIsTheOneThatWasSetLast) {
    EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.SetLocalIdentity(nullptr));
    EXPECT_EQ(0u, m_router.SetLocalIdentity(&SENDER));
    EXPECT_EQ(0u, m_router.SetLocalIdentity(&CLOUD));
    EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.SetLocalIdentity(nullptr));

    const Guid identity = m_router.LocalIdentity();
    EXPECT_EQ(0, std::memcmp(&CLOUD, &identity, sizeof(Guid)));
}

TEST_F(RouterSendsTest, AClosedRouterRefusesEverythingAlsoTheSecondTime) {
    m_router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));
    m_router.Close();
    m_router.Close();
    m_router.EndWaiting();

    EXPECT_EQ(ROUTER_CLOSED, m_router.Post(&CLOUD, 20004, "x", 1));
    EXPECT_EQ(ROUTER_CLOSED,
              m_router.SendWithCompletion(&CLOUD, 20300, "x", 1, &m_completion, 0, nullptr, 1));
    EXPECT_EQ(ROUTER_NO_RECEIVER, m_router.UnregisterReceiver(20002));
    EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.Reply(0, 20002, "x", 1, nullptr));
    EXPECT_EQ(0, m_completion.m_nCalls);
    EXPECT_EQ(0u, m_receiver.Bodies().size());
}

TEST_F(RouterSendsTest, AReplyMayHoldAnyBytesOrNone) {
    std::vector<std::string> answers;
    m_receiver.fnCalled = [&](void* pHandle) {
        const std::string strBytes("a\0b", 3);
        const bool bEmpty = answers.empty();
        EXPECT_EQ(0u, m_router.Reply(0, -1, bEmpty ? nullptr : strBytes.data(), 3, pHandle));
    };
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));
    const auto fnAnswer = [&answers](int64_t nType, const std::string& strData) {
        answers.push_back(std::to_string(nType) + strData);
    };
    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "1", {}, fnAnswer));
    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "2", {}, fnAnswer));
    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));

    EXPECT_EQ((std::vector<std::string>{"-1", std::string("-1a\0b", 5)}), answers);
}

TEST_F(RouterSendsTest, WithoutAReplyTheHandleIsDeadAfterItsCallback) {
    void* pOld = nullptr;
    int nAnswers = 0;
    m_receiver.fnCalled = [&](void* pHandle) { pOld = pHandle; };
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));
    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "x", {},
                                   [&](int64_t, const std::string&) { ++nAnswers; }));
    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));

    EXPECT_NE(nullptr, pOld);
    EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.Reply(0, 20002, "late", 4, pOld));
    EXPECT_EQ(0, nAnswers);
}

TEST_F(RouterSendsTest, AnotherEndpointMayTakeAnIdentityBeforeTheStart) {
    EndpointThere second;
    Router router;
    router.AddEndpoint(CLOUD, &m_cloud);
    router.AddEndpoint(CLOUD, &second);

    EXPECT_EQ(0u, router.Post(&CLOUD, 20004, "x", 1));

    EXPECT_TRUE(second.m_called.Wait());
    EXPECT_FALSE(m_cloud.m_called.IsSet());
    router.Close();
}
