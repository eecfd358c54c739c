#include "host/transport/Router.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Event.h"
#include "tests/unit/host/transport/RouterParts.h"

TEST_F(RouterTest, DeliversToTheReceiverOfTheTypeAndReportsWhenItHasReturned) {
    Event done;
    uint32_t nCode = 1;
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));

    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, std::string("a\0b", 3), [&](uint32_t nResult) {
        nCode = nResult;
        done.Set();
    }));

    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(0u, nCode);
    EXPECT_EQ(std::vector<std::string>{std::string("a\0b", 3)}, m_receiver.Bodies());
    EXPECT_EQ(0, std::memcmp(&SENDER, &m_receiver.m_sender, sizeof(Guid)));
    EXPECT_EQ(20002, m_receiver.m_nType);
    EXPECT_EQ(0, m_receiver.m_nExtra);
}

TEST_F(RouterTest, MessagesOfOneTypeKeepTheirOrder) {
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));

    std::vector<std::string> sent;
    for (int i = 0; i < 3000; ++i) {
        sent.push_back(std::to_string(i));
        ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, sent.back()));
    }

    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));
    EXPECT_EQ(sent, m_receiver.Bodies());
}

TEST_F(RouterTest, TypesRunSideBySide) {
    Receiver other;
    Event otherCalled;
    other.fnCalled = [&](void*) { otherCalled.Set(); };
    m_receiver.fnCalled = [&](void*) { EXPECT_TRUE(otherCalled.Wait()); };
    Router router;
    ASSERT_EQ(0u, router.RegisterReceiver(20002, &m_receiver, 0));
    ASSERT_EQ(0u, router.RegisterReceiver(20003, &other, 0));

    ASSERT_EQ(0u, router.Deliver(SENDER, 20002, "waits for the other"));
    ASSERT_EQ(0u, router.Deliver(SENDER, 20003, "the other"));

    EXPECT_TRUE(Eventually([&] { return router.Pending() == 0; }));
}

TEST_F(RouterTest, ATypeWithoutReceiverIsRefused) {
    EXPECT_EQ(ROUTER_NO_RECEIVER, m_router.Deliver(SENDER, 20002, "x"));
    EXPECT_EQ(ROUTER_NO_RECEIVER, m_router.UnregisterReceiver(20002));
    EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.RegisterReceiver(20002, nullptr, 0));
}

TEST_F(RouterTest, UnregisterReturnsOnlyWhenNoCallIntoTheReceiverRuns) {
    Event begun;
    std::atomic<bool> bReturned{false};
    Event goOn;
    m_receiver.fnCalled = [&](void*) {
        begun.Set();
        goOn.Wait();
        bReturned = true;
    };
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));
    uint32_t nCode = 0;
    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "first"));
    ASSERT_TRUE(begun.Wait());
    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "dropped", [&](uint32_t n) { nCode = n; }));
    std::thread opener([&] {
        // Gives the unregistering a chance to be wrong; the assertion holds in every order.
        (void)Event().WaitFor(std::chrono::milliseconds(20));
        goOn.Set();
    });

    EXPECT_EQ(0u, m_router.UnregisterReceiver(20002));

    EXPECT_TRUE(bReturned);
    EXPECT_EQ(ROUTER_NO_RECEIVER, nCode);
    EXPECT_EQ(std::vector<std::string>{"first"}, m_receiver.Bodies());
    EXPECT_EQ(0u, m_router.Pending());
    opener.join();
}

TEST_F(RouterTest, AReceiverMayUnregisterItselfFromItsCallback) {
    Event done;
    m_receiver.fnCalled = [&](void*) { EXPECT_EQ(0u, m_router.UnregisterReceiver(20002)); };
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));

    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "x", [&](uint32_t) { done.Set(); }));

    ASSERT_TRUE(done.Wait());
    EXPECT_EQ(ROUTER_NO_RECEIVER, m_router.Deliver(SENDER, 20002, "y"));
    EXPECT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));
}

TEST_F(RouterTest, ASecondRegistrationReplacesTheFirst) {
    Receiver second;
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &second, 0));

    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "x"));
    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));

    EXPECT_EQ(0u, m_receiver.Bodies().size());
    EXPECT_EQ(1u, second.Bodies().size());
    EXPECT_EQ(0u, m_router.UnregisterReceiver(20002));
}

TEST_F(RouterTest, PostReachesTheEndpointFromTheLocalIdentity) {
    m_router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, m_router.SetLocalIdentity(&SENDER));

    EXPECT_EQ(0u, m_router.Post(&CLOUD, 20004, "query", 5));

    ASSERT_TRUE(m_cloud.m_called.Wait());
    m_router.Close();
    EXPECT_EQ("query", m_cloud.m_strBody);
    EXPECT_EQ(20004, m_cloud.m_nType);
    EXPECT_EQ(0, std::memcmp(&SENDER, &m_cloud.m_sender, sizeof(Guid)));
}

TEST_F(RouterTest, PostReturnsWithoutWaitingForTheEndpoint) {
    Event goOn;
    m_cloud.fnCalled = [&] { goOn.Wait(); };
    m_router.AddEndpoint(CLOUD, &m_cloud);

    EXPECT_EQ(0u, m_router.Post(&CLOUD, 20004, "a", 1));
    EXPECT_EQ(0u, m_router.Post(&CLOUD, 20004, nullptr, 0));

    EXPECT_FALSE(m_cloud.m_called.IsSet());
    goOn.Set();
    EXPECT_TRUE(m_cloud.m_called.Wait());
    m_router.Close();
}

TEST_F(RouterTest, AnUnknownTargetIsRefused) {
    uint32_t nOut = 7;

    EXPECT_EQ(ROUTER_UNKNOWN_ENDPOINT, m_router.Post(&CLOUD, 20004, "x", 1));
    EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.Post(nullptr, 20004, "x", 1));
    EXPECT_EQ(ROUTER_UNKNOWN_ENDPOINT,
              m_router.SendWithCompletion(&CLOUD, 20300, "x", 1, &m_completion, 0, &nOut, 60000));

    EXPECT_EQ(0, m_completion.m_nCalls);
    EXPECT_EQ(7u, nOut);
}

TEST_F(RouterTest, AnswersReachTheSenderThroughItsHandleOnce) {
    std::vector<std::string> answers;
    void* pOld = nullptr;
    m_receiver.fnCalled = [&](void* pHandle) {
        pOld = pHandle;
        EXPECT_EQ(0u, m_router.Reply(0, 20002, "first", 5, pHandle));
        EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.Reply(0, 20002, "second", 6, pHandle));
    };
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));

    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "question", {},
                                   [&](int64_t nType, const std::string& strData) {
                                       answers.push_back(std::to_string(nType) + " " + strData);
                                   }));

    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));
    EXPECT_EQ(std::vector<std::string>{"20002 first"}, answers);
    EXPECT_EQ(ERROR_BAD_ARGUMENT, m_router.Reply(0, 20002, "late", 4, pOld));
}

TEST_F(RouterTest, WithoutSomebodyToAnswerThereIsNoHandle) {
    void* pHandle = this;
    m_receiver.fnCalled = [&](void* pGiven) { pHandle = pGiven; };
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));

    ASSERT_EQ(0u, m_router.Deliver(SENDER, 20002, "x"));

    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));
    EXPECT_EQ(nullptr, pHandle);
}

TEST_F(RouterTest, ASendCompletesWithTheAnswerOfTheEndpoint) {
    m_router.AddEndpoint(CLOUD, &m_cloud);
    uint32_t nOut = 0;

    ASSERT_EQ(0u, m_router.SendWithCompletion(&CLOUD, 20300, "record", 6, &m_completion, 0, &nOut,
                                              60000));

    ASSERT_TRUE(m_completion.m_called.Wait());
    EXPECT_EQ(0u, m_completion.m_nResult);
    EXPECT_EQ("answer to record", m_completion.m_strAnswer);
    EXPECT_NE(0u, nOut);
    m_router.Close();
    EXPECT_EQ(1, m_completion.m_nCalls);
}

TEST_F(RouterTest, ASendThatIsNotTakenInTimeEndsWithTheTimeOutAndIsNotDelivered) {
    Event goOn;
    std::atomic<int> nMessages{0};
    m_cloud.fnCalled = [&] {
        ++nMessages;
        goOn.Wait();
    };
    m_router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, m_router.Post(&CLOUD, 20004, "holds the executor", 18));

    ASSERT_EQ(0u, m_router.SendWithCompletion(&CLOUD, 20300, "x", 1, &m_completion, 0, nullptr, 1));

    ASSERT_TRUE(m_completion.m_called.Wait());
    EXPECT_EQ(ROUTER_TIMEOUT, m_completion.m_nResult);
    goOn.Set();
    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));
    m_router.Close();
    EXPECT_EQ(1, nMessages);
    EXPECT_EQ(1, m_completion.m_nCalls);
}

TEST_F(RouterTest, CloseEndsTrafficAndCompletesWhatIsUnderWay) {
    HeldCall held;
    m_cloud.fnCalled = [&] { held.Hold(); };
    m_router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));
    ASSERT_EQ(0u, m_router.Post(&CLOUD, 20004, "holds the executor", 18));
    ASSERT_TRUE(held.HasBegun());
    ASSERT_EQ(0u,
              m_router.SendWithCompletion(&CLOUD, 20300, "x", 1, &m_completion, 0, nullptr, 60000));
    std::thread closer([&] { m_router.Close(); });
    // Only the job in hand is left once the executor has stopped.
    ASSERT_TRUE(Eventually([&] { return m_router.Pending() == 1; }));
    held.GoOn();
    closer.join();

    EXPECT_EQ(1, m_completion.m_nCalls);
    EXPECT_EQ(ROUTER_CLOSED, m_completion.m_nResult);
    EXPECT_EQ(ROUTER_CLOSED, m_router.Deliver(SENDER, 20002, "x"));
    EXPECT_EQ(ROUTER_CLOSED, m_router.RegisterReceiver(20002, &m_receiver, 0));
    EXPECT_EQ(0u, m_router.Pending());
}

TEST_F(RouterTest, AFullExecutorRefusesOnceNobodyMayWait) {
    HeldCall held;
    m_cloud.fnCalled = [&] { held.Hold(); };
    Router router({1, 100});
    router.AddEndpoint(CLOUD, &m_cloud);
    ASSERT_EQ(0u, router.Post(&CLOUD, 20004, "in hand", 7));
    ASSERT_TRUE(held.HasBegun());
    ASSERT_EQ(0u, router.Post(&CLOUD, 20004, "waits", 5));
    std::atomic<uint32_t> nResult{0};
    std::thread sender([&] { nResult = router.Post(&CLOUD, 20004, "no room", 7); });

    router.EndWaiting();

    sender.join();
    EXPECT_EQ(ROUTER_NO_ROOM, nResult);
    held.GoOn();
}

TEST_F(RouterTest, ATypeThatIsRegisteredWhenNobodyMayWaitRefusesToo) {
    HeldCall held;
    m_receiver.fnCalled = [&](void*) { held.Hold(); };
    Router router({1, 100});
    router.EndWaiting();
    ASSERT_EQ(0u, router.RegisterReceiver(20002, &m_receiver, 0));
    ASSERT_EQ(0u, router.Deliver(SENDER, 20002, "in hand"));
    ASSERT_TRUE(held.HasBegun());
    ASSERT_EQ(0u, router.Deliver(SENDER, 20002, "waits"));
    EXPECT_EQ(ROUTER_NO_ROOM, router.Deliver(SENDER, 20002, "no room"));
    held.GoOn();
}

TEST_F(RouterTest, ManyThreadsSendAtOnceAndNothingIsLost) {
    std::atomic<int> nAnswered{0};
    m_receiver.fnCalled = [&](void*) { ++nAnswered; };
    ASSERT_EQ(0u, m_router.RegisterReceiver(20002, &m_receiver, 0));
    m_router.AddEndpoint(CLOUD, &m_cloud);
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int j = 0; j < 500; ++j) {
                EXPECT_EQ(0u, m_router.Deliver(SENDER, 20002, "x"));
                EXPECT_EQ(0u, m_router.Post(&CLOUD, 20004, "x", 1));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    ASSERT_TRUE(Eventually([this] { return m_router.Pending() == 0; }));
    EXPECT_EQ(2000, nAnswered);
}
