#include "public/pluginhelper/EventLog.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <cstring>
#include <regex>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/JsonReaders.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/memory/MemoryLimit.h"

namespace {

class EventLogTest : public testing::Test {
protected:
    void SetUp() override { CMsgRouterHolder::Instance()->SetRouter(&m_router); }
    void TearDown() override { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    // The payload of the one record that was sent, its time replaced by T.
    std::string Payload() const {
        const auto sends = m_router.Sends();
        if (sends.size() != 1 || sends[0].strData.size() < 149) {
            return "";
        }
        const std::string strPayload = sends[0].strData.substr(148, sends[0].strData.size() - 149);
        return std::regex_replace(strPayload, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}"),
                                  "T");
    }

    uint32_t Number(size_t nOffset) const {
        uint32_t nNumber = 0;
        memcpy(&nNumber, m_router.Sends()[0].strData.data() + nOffset, sizeof(nNumber));
        return nNumber;
    }

    FakeRouter m_router;
    CCentreSession m_session;
    StdoutCapture m_stdout;
};

TEST_F(EventLogTest, EpEventLogWithModeZeroSendsARecordOfTypeTwoToTermEvent) {
    EXPECT_EQ(1, epEventLog(m_session, {3, 77, 5, "what happened"}, 0));

    EXPECT_EQ(R"({"ID":"","data":[{"event_category":5,"event_desc":"what happened",)"
              R"("event_id":77,"event_level":3,"time":"T"}],"data_type":"epEventLog",)"
              R"("msg_type":"2"})",
              Payload());
    EXPECT_EQ(2U, Number(0));
    EXPECT_EQ(1U, Number(4));
    const std::string strRecord = m_router.Sends()[0].strData;
    EXPECT_STREQ("OviExtHost", strRecord.data() + 16);
    EXPECT_STREQ("TermEvent", strRecord.data() + 80);
    EXPECT_EQ(20300, m_router.Sends()[0].nMsgType);
}

TEST_F(EventLogTest, ModeOneSendsARecordOfTypeOneAndOtherModesNothing) {
    EXPECT_EQ(1, epEventLog(m_session, {}, 1));
    EXPECT_EQ(0, epEventLog(m_session, {}, 2));
    EXPECT_EQ(0, epEventLog(m_session, {}, -1));

    ASSERT_EQ(1U, m_router.Sends().size());
    EXPECT_EQ(1U, Number(0));
}

TEST_F(EventLogTest, TheTextIsPrintedBeforeItIsSent) {
    EXPECT_EQ(0, epEventLog(m_session, {}, 7));

    const std::regex line(R"(\[EventLog\] send msg :\{"ID":"".*\} \n)");
    EXPECT_TRUE(std::regex_match(m_stdout.Text(), line)) << m_stdout.Text();
}

TEST_F(EventLogTest, EpEventLogV2WithoutASlashInTheBusinessIdPrintsTheErrorAndSendsNothing) {
    EXPECT_EQ(0, epEventLogV2(m_session, "noslash", {}, 0));

    EXPECT_TRUE(m_router.Sends().empty());
    ASSERT_EQ(2U, m_stdout.Lines().size());
    EXPECT_EQ("sendhub:: strBusinessId error [noslash]", m_stdout.Lines()[1]);
}

TEST_F(EventLogTest, EpEventLogV2WithNullExtraFieldsSendsTheFourFixedKeys) {
    EXPECT_EQ(1, epEventLogV2(m_session, "a/b", {1, 2, 3, Json::Value()}, 0));

    EXPECT_EQ(R"({"ID":"","data":[{"event_category":3,"event_id":2,"event_level":1,"time":"T"}],)"
              R"("data_type":"epEventLogV2","msg_type":"2"})",
              Payload());
}

TEST_F(EventLogTest, ExtraFieldsThatAreNoObjectCountAsNull) {
    EXPECT_EQ(1, epEventLogV2(m_session, "a/b", {1, 2, 3, Json::Value("text")}, 0));

    EXPECT_EQ(R"({"ID":"","data":[{"event_category":3,"event_id":2,"event_level":1,"time":"T"}],)"
              R"("data_type":"epEventLogV2","msg_type":"2"})",
              Payload());
}

TEST_F(EventLogTest, AnExtraFieldNamedLikeAFixedOneOverwritesIt) {
    Json::Value jsonExtra;
    jsonExtra["event_id"] = "mine";
    jsonExtra["more"] = 4;

    EXPECT_EQ(1, epEventLogV2(m_session, "a/b", {1, 2, 3, jsonExtra}, 0));

    EXPECT_EQ(R"({"ID":"","data":[{"event_category":3,"event_id":"mine","event_level":1,)"
              R"("more":4,"time":"T"}],"data_type":"epEventLogV2","msg_type":"2"})",
              Payload());
}

TEST_F(EventLogTest, AnEventThatCannotBeWrittenIsPrintedAndNotSent) {
    const EpEvent event = {1, 2, 3, std::string(100000, 'x')};
    EpEventV2 eventV2 = {1, 2, 3, Json::Value()};
    eventV2.jsonExtra["more"] = std::string(100000, 'x');
    int nResult = -1;
    int nResultV2 = -1;

    {
        const MemoryLimit limit(50000);  // too little for the text
        nResult = epEventLog(m_session, event, 0);
        nResultV2 = epEventLogV2(m_session, "a/b", eventV2, 0);
    }

    EXPECT_EQ(0, nResult);
    EXPECT_EQ(0, nResultV2);
    EXPECT_EQ("EventLog  WriteJsonToString fail \nEventLog  WriteJsonToString fail \n",
              m_stdout.Text());
    EXPECT_TRUE(m_router.Sends().empty());
}

TEST_F(EventLogTest, ARefusedSendAnswersZero) {
    m_router.nSendResult = 9;

    EXPECT_EQ(0, epEventLog(m_session, {1, 2, 3, "x"}, 0));
}

TEST_F(EventLogTest, WithoutARouterNothingIsSent) {
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    EXPECT_EQ(0, epEventLog(m_session, {1, 2, 3, "x"}, 0));
}

}  // namespace
