// The channel, the cache and the router holder live once per process; every test is a process of
// its own and works in a directory of its own.
#include "tevmon/core/CTevMonIpcRecever.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <limits>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"
#include "tevmon/core/CTevChennalDB.h"

namespace {

constexpr Guid SENDER = {0xabcdef01, 0xfedc, 0x000a, {0, 1, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}};

struct Seen {
    std::string strSender;
    std::string strBody;
    std::string strReply;  // on entry
    int32_t nStatus = -1;  // on entry
    int nCalls = 0;
    bool bDeleted = false;
};

class Handler : public IMsgFunc {
public:
    Handler(int64_t nMsgType, Seen& seen) : m_nMsgType(nMsgType), m_seen(seen) {}
    ~Handler() override { m_seen.bDeleted = true; }

    int32_t Run(const std::string& strSender, const std::string& strBody, std::string& strReply,
                int32_t* pStatus) override {
        m_seen = {strSender, strBody, strReply, *pStatus, m_seen.nCalls + 1, false};
        *pStatus = nStatus;
        if (bChangeReply) {
            strReply = strNewReply;
        }
        if (bThrow) {
            throw std::runtime_error("a handler's own failure");
        }
        return 77;
    }
    int64_t GetMsgType() override { return m_nMsgType; }

    int32_t nStatus = 1;
    bool bThrow = false;
    bool bChangeReply = false;
    std::string strNewReply;

private:
    const int64_t m_nMsgType;
    Seen& m_seen;
};

class Recever : public CTevMonIpcRecever {
public:
    using CTevMonIpcRecever::AddHandler;
};

class CTevMonIpcReceverTest : public testing::Test {
protected:
    CTevMonIpcReceverTest() { CMsgRouterHolder::Instance()->SetRouter(&m_router); }
    ~CTevMonIpcReceverTest() override { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    // A handler of type 30000 in m_recever.
    Handler* AddHandler() {
        auto pHandler = std::make_unique<Handler>(30000, m_seen);
        Handler* pAdded = pHandler.get();
        m_recever.AddHandler(std::move(pHandler));
        return pAdded;
    }

    int64_t Receive(int64_t nMsgType, const std::string& strBody, void* pReplyHandle = nullptr) {
        return m_recever.ReceiveCallback(&SENDER, nMsgType, strBody.data(),
                                         static_cast<uint32_t>(strBody.size()), pReplyHandle, 0);
    }

    const TestDir m_dir;
    FakeRouter m_router;
    LogCapture m_log;
    Seen m_seen;
    Recever m_recever;
    int m_nHandle = 0;
};

}  // namespace

TEST_F(CTevMonIpcReceverTest, AMessageOfAnUnregisteredTypeIsLoggedAndIgnored) {
    EXPECT_EQ(
        0, Receive(20004, R"({"param":[{"grup":"cloudquery","context":"cloudad"}]})", &m_nHandle));
    EXPECT_EQ(0, Receive(-1, "x", &m_nHandle));
    EXPECT_EQ(0, Receive(20002 + 0x100000000, "y", &m_nHandle));

    EXPECT_EQ((std::vector<std::string>{
                  "rvce <<< {\"param\":[{\"grup\":\"cloudquery\",\"context\":\"cloudad\"}]}\n",
                  "rvce <<< x\n", "rvce <<< y\n"}),
              m_log.Texts());
    EXPECT_TRUE(m_router.Replies().empty());
    EXPECT_EQ(0, CTevChennalDB::Instance()->Count());
}

TEST_F(CTevMonIpcReceverTest, TheLogLineOfAMessageHasItsFixedPlace) {
    Receive(1, "body");

    ASSERT_EQ(1U, m_log.All().size());
    EXPECT_EQ(2, m_log.All()[0].nLevel);
    EXPECT_EQ("tevmon/core/CTevMonIpcRecever", m_log.All()[0].strSource);
    EXPECT_EQ("ReceiveCallback", m_log.All()[0].strFunction);
    EXPECT_EQ(20, m_log.All()[0].nLine);
    EXPECT_EQ("rvce <<< %s\n", m_log.All()[0].strFormat);
}

TEST_F(CTevMonIpcReceverTest, PercentSignsInAMessageStayData) {
    Receive(1, "%s%n%d%9999999999s");

    EXPECT_EQ(1U, m_log.Count("rvce <<< %s%n%d%9999999999s\n"));
}

TEST_F(CTevMonIpcReceverTest, TheSenderTextIsUpperCaseThirtySixCharactersWithoutBraces) {
    AddHandler();

    Receive(30000, "x");

    EXPECT_EQ("ABCDEF01-FEDC-000A-0001-AABBCCDDEEFF", m_seen.strSender);
}

TEST_F(CTevMonIpcReceverTest, ANullSenderIsTheZeroGuid) {
    AddHandler();

    EXPECT_EQ(0, m_recever.ReceiveCallback(nullptr, 30000, "x", 1, nullptr, 0));

    EXPECT_EQ("00000000-0000-0000-0000-000000000000", m_seen.strSender);
}

TEST_F(CTevMonIpcReceverTest, NullDataIsAnEmptyBodyWhateverItsLength) {
    AddHandler();

    EXPECT_EQ(0, m_recever.ReceiveCallback(&SENDER, 30000, nullptr, 0xFFFFFFFFU, nullptr, 0));

    EXPECT_EQ(1, m_seen.nCalls);
    EXPECT_EQ("", m_seen.strBody);
}

TEST_F(CTevMonIpcReceverTest, AnEmptyBodyNeverReachesTheJsonReader) {
    EXPECT_EQ(0, Receive(20002, ""));
    EXPECT_EQ(0, Receive(20003, ""));

    EXPECT_EQ((std::vector<std::string>{"rvce <<< \n", "rvce <<< \n"}), m_log.Texts());
    EXPECT_EQ(0, CTevChennalDB::Instance()->Count());
}

TEST_F(CTevMonIpcReceverTest, ABodyIsTakenByItsLengthAndMayHoldAnyBytes) {
    AddHandler();
    const char data[] = {'a', '\0', '\xff', 'z', 'X', 'X'};

    EXPECT_EQ(0, m_recever.ReceiveCallback(&SENDER, 30000, data, 4, nullptr, 0));

    EXPECT_EQ(std::string("a\0\xffz", 4), m_seen.strBody);
}

TEST_F(CTevMonIpcReceverTest, AHandlerFindsReplySuccessAndStatusOne) {
    AddHandler();

    Receive(30000, "x");

    EXPECT_EQ("success", m_seen.strReply);
    EXPECT_EQ(1, m_seen.nStatus);
}

TEST_F(CTevMonIpcReceverTest, StatusTwoWithAReplyHandleCausesExactlyOneReplySuccess) {
    AddHandler()->nStatus = 2;

    EXPECT_EQ(0, Receive(30000, "x", &m_nHandle));

    ASSERT_EQ(1U, m_router.Replies().size());
    EXPECT_EQ(30000, m_router.Replies()[0].nMsgType);
    EXPECT_EQ("success", m_router.Replies()[0].strData);
}

TEST_F(CTevMonIpcReceverTest, AReplyGoesBackUnderTheVeryHandleAndTypeOfItsMessage) {
    Handler* pHandler = AddHandler();
    pHandler->nStatus = 2;
    pHandler->bChangeReply = true;
    pHandler->strNewReply = std::string("a\0b", 3);
    int nOtherHandle = 0;

    Receive(30000, "x", &m_nHandle);
    EXPECT_EQ(&m_nHandle, m_router.pLastReplyHandle);
    Receive(30000, "y", &nOtherHandle);
    EXPECT_EQ(&nOtherHandle, m_router.pLastReplyHandle);

    ASSERT_EQ(2U, m_router.Replies().size());
    for (const SentMessage& reply : m_router.Replies()) {
        EXPECT_EQ(30000, reply.nMsgType);
        EXPECT_EQ(std::string("a\0b", 3), reply.strData);  // three bytes, of which one is NUL
    }
}

TEST_F(CTevMonIpcReceverTest, StatusTwoRepliesWhatTheHandlerPutThere) {
    Handler* pHandler = AddHandler();
    pHandler->nStatus = 2;
    pHandler->bChangeReply = true;
    pHandler->strNewReply = std::string("own\0text", 8);

    Receive(30000, "x", &m_nHandle);

    ASSERT_EQ(1U, m_router.Replies().size());
    EXPECT_EQ(std::string("own\0text", 8), m_router.Replies()[0].strData);
}

TEST_F(CTevMonIpcReceverTest, AnEmptyReplyIsSentAsOne) {
    Handler* pHandler = AddHandler();
    pHandler->nStatus = 2;
    pHandler->bChangeReply = true;

    Receive(30000, "x", &m_nHandle);

    ASSERT_EQ(1U, m_router.Replies().size());
    EXPECT_EQ("", m_router.Replies()[0].strData);
}

TEST_F(CTevMonIpcReceverTest, StatusTwoWithoutAReplyHandleRepliesNothing) {
    AddHandler()->nStatus = 2;

    Receive(30000, "x", nullptr);

    EXPECT_EQ(1, m_seen.nCalls);
    EXPECT_TRUE(m_router.Replies().empty());
}

TEST_F(CTevMonIpcReceverTest, AnyOtherStatusRepliesNothing) {
    Handler* pHandler = AddHandler();
    for (const int32_t nStatus : {0, 1, 3, -2, std::numeric_limits<int32_t>::min()}) {
        pHandler->nStatus = nStatus;
        Receive(30000, "x", &m_nHandle);
    }

    EXPECT_EQ(5, m_seen.nCalls);
    EXPECT_TRUE(m_router.Replies().empty());
}

TEST_F(CTevMonIpcReceverTest, AHandlerThatThrowsRepliesNothingAndNothingLeaves) {
    Handler* pHandler = AddHandler();
    pHandler->nStatus = 2;
    pHandler->bThrow = true;

    EXPECT_EQ(0, Receive(30000, "x", &m_nHandle));

    EXPECT_EQ(1, m_seen.nCalls);
    EXPECT_TRUE(m_router.Replies().empty());
}

TEST_F(CTevMonIpcReceverTest, WithoutARouterAReplyIsLostAndNothingElseHappens) {
    AddHandler()->nStatus = 2;
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    EXPECT_EQ(0, Receive(30000, "x", &m_nHandle));

    EXPECT_TRUE(m_router.Replies().empty());
}

TEST_F(CTevMonIpcReceverTest, TheTwoHandlersOfTheModuleNeverReply) {
    Receive(20002, R"({"param":[{"grup":"cloudquery","context":"cloudad"}]})", &m_nHandle);
    Receive(20003, R"({"msg_type":"cloudqr","param":{"context":"k"}})", &m_nHandle);

    EXPECT_TRUE(m_router.Replies().empty());
}

TEST_F(CTevMonIpcReceverTest, Type20002GoesToTheEventHandler) {
    const std::string strBody = R"({"param":[{"grup":"cloudquery","context":"cloudad"}]})";

    Receive(20002, strBody);

    std::list<ChennalRecord> recordList;
    ASSERT_EQ(0, CTevChennalDB::Instance()->Fetch(recordList, 10));
    ASSERT_EQ(1U, recordList.size());
    EXPECT_EQ(strBody, recordList.front().detail);
    EXPECT_EQ(5, recordList.front().mid);
}

TEST_F(CTevMonIpcReceverTest, Type20003GoesToTheCloudResultHandler) {
    Receive(20003, R"({"msg_type":"cloudqr","param":{"context":"key1","result":"20"}})");

    EXPECT_EQ(1U,
              m_log.Count("[CTevCloudCachoMgr]: Record (new) key = key1, nLevel = 20, tmCacho = "
                          "1296000, eMid = 0, strDetail = "));
}

TEST_F(CTevMonIpcReceverTest, ASecondHandlerOfATypeIsDeletedAndTheFirstStays) {
    AddHandler();
    Seen second;

    m_recever.AddHandler(std::make_unique<Handler>(30000, second));
    Receive(30000, "x");

    EXPECT_TRUE(second.bDeleted);
    EXPECT_EQ(0, second.nCalls);
    EXPECT_EQ(1, m_seen.nCalls);
}

TEST_F(CTevMonIpcReceverTest, DestructionDeletesEveryHandler) {
    Seen first;
    Seen second;
    {
        Recever recever;
        recever.AddHandler(std::make_unique<Handler>(1, first));
        recever.AddHandler(std::make_unique<Handler>(2, second));
    }

    EXPECT_TRUE(first.bDeleted);
    EXPECT_TRUE(second.bDeleted);
}

TEST_F(CTevMonIpcReceverTest, HostileBodiesAreDroppedWithoutAReply) {
    const std::string strDeep(5000, '[');
    for (const std::string& strBody :
         {std::string("not json"), strDeep, std::string("[]"), std::string("7"),
          std::string("{\"param\":7}"),
          std::string("{\"param\":{\"0\":{\"grup\":\"cloudquery\"}}}"),
          std::string("{\"msg_type\":\"cloudqr\",\"param\":[]}"), std::string("\xff\xfe\x00", 3)}) {
        EXPECT_EQ(0, Receive(20002, strBody, &m_nHandle));
        EXPECT_EQ(0, Receive(20003, strBody, &m_nHandle));
    }

    EXPECT_TRUE(m_router.Replies().empty());
    EXPECT_EQ(0, CTevChennalDB::Instance()->Count());
}

TEST_F(CTevMonIpcReceverTest, SeveralTransportThreadsReceiveAtOnceAndNoMessageIsLost) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int j = 0; j < 25; ++j) {
                Receive(20002, R"({"param":[{"grup":"cloudquery","context":"cloudfd"}]})");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(100, CTevChennalDB::Instance()->Count());
}

TEST_F(CTevMonIpcReceverTest, AThreadThatTheHostCancelsQueuesItsMessageFirst) {
    static constexpr char BODY[] = R"({"param":[{"grup":"cloudquery","context":"cloudad"}]})";
    const auto body = [](void* pRecever) -> void* {
        (void)pthread_cancel(pthread_self());
        (void)static_cast<Recever*>(pRecever)->ReceiveCallback(&SENDER, 20002, BODY,
                                                               sizeof(BODY) - 1, nullptr, 0);
        pthread_testcancel();
        return nullptr;
    };
    pthread_t transport;
    ASSERT_EQ(0, pthread_create(&transport, nullptr, body, &m_recever));

    void* pResult = nullptr;
    ASSERT_EQ(0, pthread_join(transport, &pResult));

    EXPECT_EQ(PTHREAD_CANCELED, pResult);
    EXPECT_EQ(1, CTevChennalDB::Instance()->Count());
}
