// The holder lives once per process; every test is a process of its own, so none sees the router
// of another.
#include "public/pluginhelper/CMsgRouterHolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/CountingReceiver.h"
#include "tests/support/FakeRouter.h"

namespace {

constexpr Guid TARGET = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};

// Answers every call with a code of its own, so that a result that is swapped or lost shows.
class AnsweringRouter : public FakeRouter {
public:
    uint32_t SetLocalIdentity(const Guid*) override { return 0xFFFFFFF2U; }
    uint32_t Post(const Guid*, int64_t, const void*, uint32_t) override { return 0xFFFFFFF4U; }
    uint32_t RegisterReceiver(int64_t, IMRReceiveComplete*, int64_t) override {
        return 0xFFFFFFF9U;
    }
    uint32_t Reply(int64_t, int64_t, const void*, uint32_t, void*) override { return 0xFFFFFFFBU; }
};

}  // namespace

TEST(CMsgRouterHolderTest, HoldsNoRouterAtFirst) {
    ASSERT_NE(nullptr, CMsgRouterHolder::Instance());

    EXPECT_EQ(nullptr, CMsgRouterHolder::Instance()->GetRouter());
}

TEST(CMsgRouterHolderTest, ThereIsOneForTheProcess) {
    EXPECT_EQ(CMsgRouterHolder::Instance(), CMsgRouterHolder::Instance());
}

TEST(CMsgRouterHolderTest, WithoutARouterCallsWithAResultAnswerNoRouterAndTheOthersDoNothing) {
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    CountingReceiver receiver;
    int nHandle = 0;

    EXPECT_EQ(0xE0010000U, pHolder->SetLocalIdentity(TARGET));
    EXPECT_EQ(0xE0010000U, pHolder->Post(TARGET, 20004, "x", 1));
    EXPECT_EQ(0xE0010000U, pHolder->RegisterReceiver(20002, &receiver));
    EXPECT_EQ(0xE0010000U, pHolder->Reply(20002, "x", 1, &nHandle));
    pHolder->Close();
    pHolder->UnregisterReceiver(20002);

    EXPECT_EQ(nullptr, pHolder->GetRouter());
}

TEST(CMsgRouterHolderTest, EveryCallReachesTheRouterWithItsArguments) {
    FakeRouter router;
    CountingReceiver receiver;
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    pHolder->SetRouter(&router);
    int nHandle = 0;

    EXPECT_EQ(0U, pHolder->SetLocalIdentity(TARGET));
    EXPECT_EQ(0U, pHolder->RegisterReceiver(20002, &receiver));
    EXPECT_EQ(0U, pHolder->Post(TARGET, 20004, "body", 4));
    EXPECT_EQ(0U, pHolder->Reply(20003, "answer", 6, &nHandle));
    pHolder->UnregisterReceiver(20002);
    pHolder->Close();

    const std::vector<std::string> expected = {"identity 0403020106050807090a0b0c0d0e0f10",
                                               "register 20002 0", "unregister 20002", "close"};
    EXPECT_EQ(expected, router.Calls());
    ASSERT_EQ(1U, router.Posts().size());
    EXPECT_EQ(0x01020304U, router.Posts()[0].target.nData1);
    EXPECT_EQ(20004, router.Posts()[0].nMsgType);
    EXPECT_EQ("body", router.Posts()[0].strData);
    ASSERT_EQ(1U, router.Replies().size());
    EXPECT_EQ(20003, router.Replies()[0].nMsgType);
    EXPECT_EQ("answer", router.Replies()[0].strData);
}

TEST(CMsgRouterHolderTest, TheRoutersResultsPassThroughUnchanged) {
    AnsweringRouter router;
    CountingReceiver receiver;
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    pHolder->SetRouter(&router);

    EXPECT_EQ(0xFFFFFFF2U, pHolder->SetLocalIdentity(TARGET));
    EXPECT_EQ(0xFFFFFFF4U, pHolder->Post(TARGET, 1, "", 0));
    EXPECT_EQ(0xFFFFFFF9U, pHolder->RegisterReceiver(1, &receiver));
    EXPECT_EQ(0xFFFFFFFBU, pHolder->Reply(1, "", 0, &receiver));
}

TEST(CMsgRouterHolderTest, MessageTypesAreSixtyFourBitsWide) {
    FakeRouter router;
    CountingReceiver receiver;
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    pHolder->SetRouter(&router);

    (void)pHolder->RegisterReceiver(0x7000000000000001, &receiver);
    (void)pHolder->Post(TARGET, -2, "", 0);

    EXPECT_EQ(std::vector<std::string>{"register 8070450532247928833 0"}, router.Calls());
    ASSERT_EQ(1U, router.Posts().size());
    EXPECT_EQ(-2, router.Posts()[0].nMsgType);
}

TEST(CMsgRouterHolderTest, AnEmptyMessageIsPostedAsOne) {
    FakeRouter router;
    CMsgRouterHolder::Instance()->SetRouter(&router);

    EXPECT_EQ(0U, CMsgRouterHolder::Instance()->Post(TARGET, 20004, "", 0));

    ASSERT_EQ(1U, router.Posts().size());
    EXPECT_EQ("", router.Posts()[0].strData);
}

TEST(CMsgRouterHolderTest, ThreadsThatPostWhileTheRouterIsSetSeeNoneOrTheWholeOfIt) {
    FakeRouter router;
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    std::atomic<int> nPosted{0};
    std::atomic<int> nOther{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (nPosted.load() < 100) {
                const uint32_t nResult = pHolder->Post(TARGET, 20004, "x", 1);
                if (nResult == 0) {
                    ++nPosted;
                } else if (nResult != 0xE0010000U) {
                    ++nOther;
                }
            }
        });
    }

    pHolder->SetRouter(&router);
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(0, nOther.load());
    EXPECT_EQ(static_cast<size_t>(nPosted.load()), router.Posts().size());
}
