#include "tevmon/core/CTevCloudInterface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/reader.h>

#include <cstring>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/JsonHelpers.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/memory/MemoryLimit.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

const char IPC_FAIL[] = "[CTevCloudInterface] : ipc fail.\n";

// Says at each post what had been logged by then.
class WatchingRouter : public FakeRouter {
public:
    explicit WatchingRouter(const LogCapture& log) : m_log(log) {}

    uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                  uint32_t nLength) override {
        loggedAtPost = m_log.Texts();
        return FakeRouter::Post(pTarget, nMsgType, pData, nLength);
    }

    std::vector<std::string> loggedAtPost;

private:
    const LogCapture& m_log;
};

Json::Value Event() {
    Json::Value jsonEvent(Json::arrayValue);
    jsonEvent[0]["key"] = "hi.type";
    jsonEvent[0]["value"] = "0";
    return jsonEvent;
}

CloudQuery Query() {
    return {Event(), "/usr/bin/tool", 0, "adid", "10001", "cloudad", "c0ffee"};
}

}  // namespace

// The router holder lives as long as the process; each test runs in a process of its own.
class CTevCloudInterfaceTest : public testing::Test {
protected:
    CTevCloudInterfaceTest() : m_router(m_log) {
        CMsgRouterHolder::Instance()->SetRouter(&m_router);
    }
    ~CTevCloudInterfaceTest() override { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    static bool Post(CloudQuery query) {
        return CTevCloudInterface::Instance()->Post(std::move(query));
    }
    // The one message posted.
    std::string Sent() const {
        const std::vector<SentMessage> posts = m_router.Posts();
        return posts.size() == 1 ? posts.front().strData : "not one post";
    }
    Json::Value SentJson() const {
        Json::Value jsonSent;
        Json::CharReaderBuilder builder;
        std::istringstream stream(Sent());
        std::string strErrors;
        EXPECT_TRUE(Json::parseFromStream(builder, stream, &jsonSent, &strErrors)) << strErrors;
        return jsonSent;
    }

    LogCapture m_log;
    WatchingRouter m_router;
};

TEST_F(CTevCloudInterfaceTest, TheMessageIsTheSameToTheByte) {
    EXPECT_TRUE(Post(Query()));

    EXPECT_EQ(R"({"msg_type":"cloudq","param":{"context":"c0ffee","event_id_key":"adid",)"
              R"("event_id_value":"10001","ext":[{"key":"hi.type","value":"0"}],)"
              R"("func":"cloudad","path":"/usr/bin/tool","path_type":0},"resp_msg_type":20003})",
              Sent());
}

TEST_F(CTevCloudInterfaceTest, TheMessageGoesToTheCloudEndpointAsType20004) {
    const unsigned char target[16] = {0x8e, 0x4d, 0xe5, 0xfb, 0xe6, 0xd8, 0xf8, 0x41,
                                      0xbe, 0x05, 0xa9, 0x4c, 0xe5, 0x46, 0x95, 0x87};

    EXPECT_TRUE(Post(Query()));

    ASSERT_EQ(1u, m_router.Posts().size());
    const SentMessage sent = m_router.Posts().front();
    EXPECT_EQ(0, memcmp(target, &sent.target, sizeof(target)));
    EXPECT_EQ(20004, sent.nMsgType);
    EXPECT_THAT(m_router.Calls(), ElementsAre());
}

TEST_F(CTevCloudInterfaceTest, AnEmptyEventArrayIsSentAsBrackets) {
    CloudQuery query = Query();
    query.jsonExt = Json::Value(Json::arrayValue);

    EXPECT_TRUE(Post(std::move(query)));

    EXPECT_THAT(Sent(), testing::HasSubstr(R"(,"ext":[],)"));
}

TEST_F(CTevCloudInterfaceTest, TheMessageHasNoTrailingLineFeedAndNoNul) {
    EXPECT_TRUE(Post(Query()));

    EXPECT_EQ('}', Sent().back());
    EXPECT_THAT(Sent(), Not(HasSubstr("\n")));
}

TEST_F(CTevCloudInterfaceTest, WithoutARouterThePostFailsAndIsLogged) {
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    EXPECT_FALSE(Post(Query()));

    EXPECT_THAT(m_log.Texts(4), ElementsAre(IPC_FAIL));
    EXPECT_EQ(0u, m_router.Posts().size());
    EXPECT_THAT(m_router.Calls(), ElementsAre());
}

TEST_F(CTevCloudInterfaceTest, NumbersAreSentAsNumbersAndTextsAsTexts) {
    EXPECT_TRUE(Post(Query()));

    const Json::Value jsonSent = SentJson();
    EXPECT_THAT(jsonSent.getMemberNames(), ElementsAre("msg_type", "param", "resp_msg_type"));
    EXPECT_TRUE(jsonSent["msg_type"].isString());
    EXPECT_TRUE(jsonSent["resp_msg_type"].isInt());
    EXPECT_EQ(20003, jsonSent["resp_msg_type"].asInt());
    const Json::Value& jsonParam = jsonSent["param"];
    EXPECT_THAT(jsonParam.getMemberNames(), ElementsAre("context", "event_id_key", "event_id_value",
                                                        "ext", "func", "path", "path_type"));
    EXPECT_TRUE(jsonParam["path_type"].isInt());
    EXPECT_TRUE(jsonParam["ext"].isArray());
    for (const char* pszText : {"path", "event_id_key", "event_id_value", "func", "context"}) {
        EXPECT_TRUE(jsonParam[pszText].isString()) << pszText;
    }
}

TEST_F(CTevCloudInterfaceTest, TheCallersPathTypeIsSentAsItIs) {
    for (const int32_t nPathType : {1, -1, 2147483647}) {
        CloudQuery query = Query();
        query.nPathType = nPathType;
        EXPECT_TRUE(Post(std::move(query)));
    }

    const std::vector<SentMessage> posts = m_router.Posts();
    ASSERT_EQ(3u, posts.size());
    EXPECT_THAT(posts[0].strData, testing::HasSubstr("\"path_type\":1}"));
    EXPECT_THAT(posts[1].strData, testing::HasSubstr("\"path_type\":-1}"));
    EXPECT_THAT(posts[2].strData, testing::HasSubstr("\"path_type\":2147483647}"));
}

TEST_F(CTevCloudInterfaceTest, EmptyTextsAreMembersToo) {
    EXPECT_TRUE(Post({Json::Value(Json::arrayValue), "", 1, "", "", "", ""}));

    EXPECT_EQ(R"({"msg_type":"cloudq","param":{"context":"","event_id_key":"",)"
              R"("event_id_value":"","ext":[],"func":"","path":"","path_type":1},)"
              R"("resp_msg_type":20003})",
              Sent());
}

TEST_F(CTevCloudInterfaceTest, AMemberThatCannotBeSetIsLeftOutAndTheQueryGoes) {
    CloudQuery query = Query();
    query.pszFunc = nullptr;

    EXPECT_TRUE(Post(std::move(query)));

    EXPECT_FALSE(SentJson()["param"].isMember("func"));
    EXPECT_EQ("c0ffee", SentJson()["param"]["context"].asString());
}

TEST_F(CTevCloudInterfaceTest, ForeignTextsAreEscaped) {
    const struct {
        std::string strPath;
        const char* pszSent;
    } rows[] = {
        {"/tmp/\"a\\b\"", R"("path":"/tmp/\"a\\b\"",)"},
        {"/tmp/a\nb\tc\x01", R"("path":"/tmp/a\nb\tc\u0001",)"},
        {"/tmp/\xc3\xa4", R"("path":"/tmp/\u00e4",)"},
        {"/tmp/\xe6\xb6\x88", R"("path":"/tmp/\u6d88",)"},
        {"/tmp/\xf0\x9f\x98\x80", R"("path":"/tmp/\ud83d\ude00",)"},
        {"/tmp/\xff.x", R"("path":"/tmp/\ufffd.x",)"},
        {std::string("/tmp/a\0b", 8), R"("path":"/tmp/a\u0000b",)"},
    };

    for (const auto& row : rows) {
        CloudQuery query = Query();
        query.strPath = row.strPath;
        EXPECT_TRUE(Post(std::move(query)));
        EXPECT_THAT(m_router.Posts().back().strData, testing::HasSubstr(row.pszSent));
    }
}

TEST_F(CTevCloudInterfaceTest, ALongMessageIsSentWhole) {
    CloudQuery query = Query();
    query.strPath = std::string(3000000, 'x');

    EXPECT_TRUE(Post(std::move(query)));

    EXPECT_EQ(3000000u, SentJson()["param"]["path"].asString().size());
    EXPECT_EQ("reportq = " + Sent(), m_log.Texts(2).front());
}

TEST_F(CTevCloudInterfaceTest, AQueryThatCannotBeWrittenIsLoggedAndSentEmpty) {
    CloudQuery query = Query();
    query.jsonExt[0]["value"] = std::string(100000, 'x');
    const std::string strExt = "[\"" + std::string(100000, 'x') + "\"]";
    bool bByTree = false;
    bool bByText = false;

    {
        const MemoryLimit limit(50000);  // too little for the text
        bByTree = CTevCloudInterface::Instance()->Post(query);
        bByText = CTevCloudInterface::Instance()->Post(query, strExt);
        EXPECT_EQ(2, limit.Refused());
    }

    EXPECT_TRUE(bByTree);  // the router took what there was
    EXPECT_TRUE(bByText);
    ASSERT_EQ(2u, m_router.Posts().size());
    for (const SentMessage& sent : m_router.Posts()) {
        EXPECT_EQ(20004, sent.nMsgType);
        EXPECT_EQ("", sent.strData);
    }
    EXPECT_THAT(m_log.Texts(), ElementsAre("reportq = ", "reportq = "));
}

TEST_F(CTevCloudInterfaceTest, TheMessageIsLoggedBeforeItIsPosted) {
    EXPECT_TRUE(Post(Query()));

    ASSERT_EQ(1u, m_log.All().size());
    const CapturedLog line = m_log.All().front();
    EXPECT_EQ(2, line.nLevel);
    EXPECT_EQ("tevmon/core/CTevCloudInterface", line.strSource);
    EXPECT_EQ("Post", line.strFunction);
    EXPECT_EQ("reportq = %s", line.strFormat);
    EXPECT_EQ("reportq = " + Sent(), line.strText);
    EXPECT_THAT(m_router.loggedAtPost, ElementsAre(line.strText));
}

TEST_F(CTevCloudInterfaceTest, PercentSignsInAPathAreNoFormat) {
    CloudQuery query = Query();
    query.strPath = "/tmp/%s%n%d";

    EXPECT_TRUE(Post(std::move(query)));

    EXPECT_THAT(m_log.Texts(2).front(), testing::HasSubstr(R"("path":"/tmp/%s%n%d")"));
}

TEST_F(CTevCloudInterfaceTest, AnyResultButZeroIsAFailureLoggedOnceAndNotTriedAgain) {
    for (const uint32_t nResult : {1u, 0xE0010000u, 0xFFFFFFFFu}) {
        m_log.Clear();
        m_router.nPostResult = nResult;
        const size_t nBefore = m_router.Posts().size();

        EXPECT_FALSE(Post(Query()));

        EXPECT_EQ(nBefore + 1, m_router.Posts().size());
        EXPECT_EQ(1u, m_log.Count(IPC_FAIL));
        EXPECT_EQ(2u, m_log.All().size());
        EXPECT_EQ("Post", m_log.All().back().strFunction);
        EXPECT_EQ(4, m_log.All().back().nLevel);
    }
}

TEST_F(CTevCloudInterfaceTest, AFailureLeavesNothingBehindForTheNextPost) {
    m_router.nPostResult = 1;
    EXPECT_FALSE(Post(Query()));
    m_router.nPostResult = 0;

    EXPECT_TRUE(Post(Query()));

    EXPECT_EQ(2u, m_router.Posts().size());
}

// The endpoint's identity is handed to foreign code by address.
class ScribblingRouter : public FakeRouter {
public:
    uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                  uint32_t nLength) override {
        const uint32_t nResult = FakeRouter::Post(pTarget, nMsgType, pData, nLength);
        memset(const_cast<Guid*>(pTarget), 0xff, sizeof(*pTarget));
        return nResult;
    }
};

TEST_F(CTevCloudInterfaceTest, ARouterThatWritesToItsTargetMisleadsNoLaterPost) {
    ScribblingRouter router;
    CMsgRouterHolder::Instance()->SetRouter(&router);

    EXPECT_TRUE(Post(Query()));
    EXPECT_TRUE(Post(Query()));

    const std::vector<SentMessage> posts = router.Posts();
    ASSERT_EQ(2U, posts.size());
    constexpr Guid CLOUD = {
        0xFBE54D8E, 0xD8E6, 0x41F8, {0xBE, 0x05, 0xA9, 0x4C, 0xE5, 0x46, 0x95, 0x87}};
    for (const SentMessage& message : posts) {
        EXPECT_EQ(0, memcmp(&CLOUD, &message.target, sizeof(Guid)));
    }
}

TEST_F(CTevCloudInterfaceTest, AnEmptyPostIsLoggedAndSentWithLengthZero) {
    EXPECT_TRUE(CTevCloudInterface::Instance()->PostEmpty());

    EXPECT_EQ("", Sent());
    EXPECT_EQ(std::vector<std::string>{"reportq = "}, m_log.Texts());
}

TEST_F(CTevCloudInterfaceTest, TheProcessHasOne) {
    ASSERT_NE(nullptr, CTevCloudInterface::Instance());
    EXPECT_EQ(CTevCloudInterface::Instance(), CTevCloudInterface::Instance());
}

TEST_F(CTevCloudInterfaceTest, AnEventAsTextMakesTheSameMessageAsItsTree) {
    const CloudQuery query = {Event(), "/opt/\"\xe6\xb6\x88\xff\"", -1, "fdid", "1", nullptr, ""};
    ASSERT_TRUE(Post(query));
    const std::string strByTree = Sent();

    ASSERT_TRUE(CTevCloudInterface::Instance()->Post(query, R"([{"key":"hi.type","value":"0"}])"));

    ASSERT_EQ(2u, m_router.Posts().size());
    EXPECT_EQ(strByTree, m_router.Posts().back().strData);
}

TEST_F(CTevCloudInterfaceTest, TheMessageIsWhatTheLibraryWritesForTheSameTree) {
    EXPECT_TRUE(Post({Event(), "/opt/\"\xe6\xb6\x88\xff\"", -1, "fdid", "1", "cloudfd", "\x7f"}));

    const std::string strSent = Sent();
    std::string strByLibrary;
    ASSERT_EQ(1, JsonToText(SentJson(), strByLibrary, true));
    EXPECT_EQ(strByLibrary, strSent);
}
