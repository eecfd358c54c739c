#include "host/cloud/CloudEndpoint.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <tuple>

#include "tests/support/Event.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/OneDigestSource.h"

using testing::HasSubstr;

namespace {

// 72 digits, as a key has.
const std::string KEY = std::string(40, 'a') + std::string(32, 'b');

std::string QueryFor(const std::string& strKey) {
    return R"({"msg_type":"cloudq","param":{"path":"/bin/x","func":"cloudad","context":")" +
           strKey + R"(","ext":[{"key":"hi.event_name","value":"CreateProcess"}]}})";
}

class Module : public IMRReceiveComplete {
public:
    int64_t ReceiveCallback(const Guid* pSender, int64_t /*nMsgType*/, const void* pData,
                            uint32_t nLength, void* /*pReplyHandle*/, int64_t /*nExtra*/) override {
        m_goOn.Wait();
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_sender = *pSender;
        m_answers.emplace_back(static_cast<const char*>(pData), nLength);
        return 0;
    }
    std::vector<std::string> Answers() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_answers;
    }
    Event m_goOn;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_answers;
    Guid m_sender = {};
};

class CloudEndpointTest : public testing::Test, public ICloudObserver {
protected:
    CloudEndpointTest() {
        m_service.AddSource(
            std::make_unique<OneDigestSource>(std::string(32, 'b'), Verdict{70, "list", "bad"}));
        m_router.RegisterReceiver(MSG_TYPE_CLOUD_RESULT, &m_module, 0);
        m_module.m_goOn.Set();
    }

    void OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) override {
        m_query = query;
        m_fates.push_back(eFate);
        m_verdict = verdict;
    }
    void OnAnswerEnded(const std::string& strKey, int nLevel, bool bDelivered) override {
        const std::lock_guard<std::mutex> lock(m_module.m_mutex);
        m_ended.emplace_back(strKey, nLevel, bDelivered);
    }
    std::vector<std::tuple<std::string, int, bool>> Ended() const {
        const std::lock_guard<std::mutex> lock(m_module.m_mutex);
        return m_ended;
    }
    void Send(const std::string& strBody, int64_t nMsgType = MSG_TYPE_CLOUD_QUERY) {
        EXPECT_EQ("", m_cloud.OnMessage(Guid(), nMsgType, strBody));
    }
    bool Quiet() {
        return Eventually([this] { return m_router.Pending() == 0; });
    }

    TestDir m_dir;
    VerdictService m_service;
    AnswerTracker m_keys{m_dir.Database("tevcloudcacho.db")};
    Module m_module;
    Router m_router;
    CloudEndpoint m_cloud{m_router, m_service, m_keys, *this};
    CloudQuery m_query;
    std::vector<QueryFate> m_fates;
    std::vector<std::tuple<std::string, int, bool>> m_ended;  // guarded by the module's mutex
    Verdict m_verdict;
};

}  // namespace

TEST_F(CloudEndpointTest, AQueryIsAnsweredWithItsKeyFunctionAndLevelAsText) {
    Send(QueryFor(KEY));

    ASSERT_TRUE(Quiet());
    EXPECT_EQ(std::vector<std::string>{R"({"msg_type":"cloudqr","param":{"context":")" + KEY +
                                       R"(","func":"cloudad","result":"70"}})"},
              m_module.Answers());
    const Guid cloud = GuidFromText(CLOUD_ENDPOINT);
    EXPECT_EQ(0, std::memcmp(&cloud, &m_module.m_sender, sizeof(Guid)));
    EXPECT_EQ(std::vector<QueryFate>{QUERY_ANSWERED}, m_fates);
    EXPECT_EQ("/bin/x", m_query.strPath);
    EXPECT_EQ("CreateProcess", m_query.strEvent);
    EXPECT_EQ("bad", m_verdict.strOwner);
    EXPECT_EQ((std::vector<std::tuple<std::string, int, bool>>{{KEY, 70, true}}), Ended());
}

TEST_F(CloudEndpointTest, WhatNobodyKnowsIsLevel40) {
    Send(QueryFor(std::string(72, 'c')));

    ASSERT_TRUE(Quiet());
    EXPECT_THAT(m_module.Answers().at(0), HasSubstr(R"("result":"40")"));
    EXPECT_EQ("none", m_verdict.strSource);
}

TEST_F(CloudEndpointTest, OneAnswerAKeyWhileItIsUnderWayAndAfter) {
    m_module.m_goOn.Reset();
    Send(QueryFor(KEY));
    Send(QueryFor(KEY));
    m_module.m_goOn.Set();
    ASSERT_TRUE(Quiet());

    Send(QueryFor(KEY));
    ASSERT_TRUE(Quiet());

    EXPECT_EQ(1u, m_module.Answers().size());
    EXPECT_EQ((std::vector<QueryFate>{QUERY_ANSWERED, QUERY_KNOWN, QUERY_KNOWN}), m_fates);
}

TEST_F(CloudEndpointTest, AQueryWithoutKeyIsNotAnswered) {
    Send(QueryFor(""));
    Send(R"({"msg_type":"cloudq","param":{"path":"/bin/x"}})");

    ASSERT_TRUE(Quiet());
    EXPECT_EQ(0u, m_module.Answers().size());
    EXPECT_EQ((std::vector<QueryFate>{QUERY_NO_KEY, QUERY_NO_KEY}), m_fates);
}

TEST_F(CloudEndpointTest, WhatIsNoQueryIsReported) {
    const std::string HOSTILE[] = {"",
                                   "{",
                                   "[]",
                                   "7",
                                   R"({"msg_type":7,"param":{}})",
                                   R"({"msg_type":"cloudqr","param":{"context":"k"}})",
                                   R"({"msg_type":"cloudq"})",
                                   std::string(100000, '[')};
    for (const std::string& strBody : HOSTILE) {
        Send(strBody);
        EXPECT_EQ(QUERY_UNREADABLE, m_fates.back()) << strBody.substr(0, 50);
    }
    Send(QueryFor(KEY), 20300);

    EXPECT_EQ(QUERY_UNREADABLE, m_fates.back());
    ASSERT_TRUE(Quiet());
    EXPECT_EQ(0u, m_module.Answers().size());
}

TEST_F(CloudEndpointTest, MembersOfTheWrongTypeReadAsAbsent) {
    Send(R"({"msg_type":"cloudq","param":[1]})");
    Send(R"({"msg_type":"cloudq","param":{"path":{},"context":["k"],"ext":{"a":1},"func":null}})");
    Send(R"({"msg_type":"cloudq","param":{"ext":[1,null,{"key":1},{"key":"hi.event_name"}]}})");

    EXPECT_EQ((std::vector<QueryFate>{QUERY_NO_KEY, QUERY_NO_KEY, QUERY_NO_KEY}), m_fates);
    EXPECT_EQ("", m_query.strEvent);
}

TEST_F(CloudEndpointTest, AKeyWithQuotesIsEchoedAsItCame) {
    Send(QueryFor(R"(a\"b'c)"));

    ASSERT_TRUE(Quiet());
    EXPECT_THAT(m_module.Answers().at(0), HasSubstr(R"("context":"a\"b'c")"));
}

TEST_F(CloudEndpointTest, AnAnswerThatTheRouterRefusesMayBeGivenLater) {
    m_router.UnregisterReceiver(MSG_TYPE_CLOUD_RESULT);
    Send(QueryFor(KEY));
    m_router.RegisterReceiver(MSG_TYPE_CLOUD_RESULT, &m_module, 0);

    Send(QueryFor(KEY));

    ASSERT_TRUE(Quiet());
    EXPECT_EQ((std::vector<QueryFate>{QUERY_NOT_DELIVERED, QUERY_ANSWERED}), m_fates);
    EXPECT_EQ(1u, m_module.Answers().size());
}

TEST_F(CloudEndpointTest, TheEventIsTheFirstOfThatNameAmongTheExtensions) {
    Send(R"({"msg_type":"cloudq","param":{"path":"/x","func":"cloudfd","context":"","ext":[)"
         R"({"key":"hi.other","value":"a"},{"key":"hi.event_name","value":"FileCreate"},)"
         R"({"key":"hi.event_name","value":"b"}]}})");

    EXPECT_EQ("FileCreate", m_query.strEvent);
    EXPECT_EQ("cloudfd", m_query.strFunc);
    EXPECT_EQ(40, m_verdict.nLevel);
    EXPECT_EQ("none", m_verdict.strSource);
}

TEST_F(CloudEndpointTest, AnAnswerThatTheModuleDidNotTakeAfterAllMayBeGivenAgain) {
    const std::string strOther(72, 'c');
    m_module.m_goOn.Reset();
    Send(QueryFor(KEY));
    Send(QueryFor(strOther));  // waits behind the first
    std::thread unregister([this] { m_router.UnregisterReceiver(MSG_TYPE_CLOUD_RESULT); });
    EXPECT_TRUE(Eventually([this] { return m_router.Pending() <= 1; }));
    m_module.m_goOn.Set();
    unregister.join();
    m_router.RegisterReceiver(MSG_TYPE_CLOUD_RESULT, &m_module, 0);

    Send(QueryFor(strOther));

    ASSERT_TRUE(Quiet());
    EXPECT_EQ((std::vector<QueryFate>{QUERY_ANSWERED, QUERY_ANSWERED, QUERY_ANSWERED}), m_fates);
    EXPECT_THAT(m_module.Answers().back(), HasSubstr(strOther));
}
