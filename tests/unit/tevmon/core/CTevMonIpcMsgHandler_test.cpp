// The handlers reach the process's queue and cache. Each test is a process of its own under ctest,
// so both are opened in the test's directory.
#include "tevmon/core/CTevMonIpcMsgHandler.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/trace/OtherConnection.h"
#include "tests/support/trace/SqlTrace.h"
#include "tevmon/core/CTevChennalDB.h"

using Texts = std::vector<std::string>;

namespace {

constexpr int64_t NOW = 1700000000;
constexpr char SOURCE[] = "tevmon/core/CTevMonIpcMsgHandler";

// Runs one message and checks what every call must leave behind.
template <class Handler>
void Deliver(const std::string& strBody) {
    Handler handler;
    std::string strReply = "success";
    int32_t nStatus = 2;

    EXPECT_EQ(0, handler.Run("12345678-9ABC-DEF0-0102-030405060708", strBody, strReply, &nStatus));

    EXPECT_EQ(1, nStatus);
    EXPECT_EQ("success", strReply);
}

std::list<ChennalRecord> Queue() {
    std::list<ChennalRecord> recordList;
    EXPECT_EQ(0, CTevChennalDB::Instance()->Fetch(recordList, 1000));
    return recordList;
}

// Message ids of the queued messages, oldest first.
std::vector<int> QueuedMids() {
    std::vector<int> mids;
    for (const ChennalRecord& record : Queue()) {
        mids.push_back(record.mid);
    }
    return mids;
}

std::string Element(const std::string& strContext) {
    return R"({"grup":"cloudquery","context":")" + strContext + R"("})";
}

std::string Body(const std::string& strElements) {
    return R"({"param":[)" + strElements + "]}";
}

class CHipsMsgHandlerTest : public testing::Test {
protected:
    TestDir m_dir;
    FakeClock m_clock{NOW};
};

class CCloudQueryRetHandlerTest : public testing::Test {
protected:
    Texts Rows() {
        return OtherConnection(m_dir.Database("tevcloudcacho.db"))
            .Rows(
                "select vkey,level,tmcreate,tminternal,detail,mid from cachotable order by rowid");
    }

    TestDir m_dir;
    FakeClock m_clock{NOW};
};

std::string Verdict(const std::string& strParam) {
    return R"({"msg_type":"cloudqr","param":{)" + strParam + "}}";
}

// What a host would never send but could.
const char* const UNUSABLE[] = {
    "",
    "{",
    "no text of JSON",
    "[]",
    "null",
    "7",
    "\"param\"",
    "{}",
    R"({"msg_type":"cloudqr"})",
    R"({"param":null})",
    R"({"param":7})",
    R"({"param":"text"})",
    R"({"param":{}})",
    R"({"param":[]})",
    R"({"param":[null,7,"text",[],{},[{"grup":"cloudquery","context":"cloudad"}]]})",
    R"({"param":{"grup":"cloudquery","context":"cloudad"}})",
    R"({"param":{"0":{"grup":"cloudquery","context":"cloudad"}}})",
    R"([{"param":[{"grup":"cloudquery","context":"cloudad"}]}])",
    R"({"Param":[{"grup":"cloudquery","context":"cloudad"}]})",
    R"({"param":[{"grup":null,"context":"cloudad"},{"grup":7,"context":"cloudad"}]})",
    R"({"param":[{"grup":["cloudquery"],"context":"cloudad"}]})",
    R"({"param":[{"grup":{"cloudquery":1},"context":"cloudad"}]})",
    R"({"param":[{"grup":"","context":"cloudad"},{"context":"cloudad"}]})",
    R"({"param":[{"grup":"CloudQuery","context":"cloudad"}]})",
    R"({"param":[{"grup":"cloudquery ","context":"cloudad"}]})",
    R"({"param":[{"grup":"cloudquery\u0000","context":"cloudad"}]})",
    R"({"param":[{"grup":"cloudquery"}]})",
};

class CHipsMsgHandlerUnusableTest : public CHipsMsgHandlerTest,
                                    public testing::WithParamInterface<const char*> {};

}  // namespace

TEST_F(CHipsMsgHandlerTest, ServesBehaviourEvents) {
    EXPECT_EQ(20002, CHipsMsgHandler().GetMsgType());
}

TEST_F(CHipsMsgHandlerTest, TwoElementsForProcessAnalysisQueueTheBodyTwiceWithId5) {
    const std::string strBody = Body(Element("cloudad") + "," + Element("cloudad"));

    Deliver<CHipsMsgHandler>(strBody);

    const auto recordList = Queue();
    ASSERT_EQ(2u, recordList.size());
    for (const ChennalRecord& record : recordList) {
        EXPECT_EQ(5, record.mid);
        EXPECT_EQ(strBody, record.detail);
        EXPECT_EQ(NOW, record.createtime);
    }
}

TEST_F(CHipsMsgHandlerTest, ElementsAreQueuedInTheirOrderUnderTheIdOfTheirContext) {
    Deliver<CHipsMsgHandler>(Body(Element("cloudfd") + "," + Element("cloudad") + "," +
                                  Element("cloudfs") + "," + Element("cloudfd")));

    EXPECT_EQ((std::vector<int>{6, 5, 6}), QueuedMids());
}

TEST_F(CHipsMsgHandlerTest, GrupInAnotherCaseIsIgnored) {
    LogCapture log;

    Deliver<CHipsMsgHandler>(Body(R"({"grup":"CloudQuery","context":"cloudad"})"));

    EXPECT_EQ(Texts{}, log.Texts());
    EXPECT_TRUE(Queue().empty());
}

TEST_F(CHipsMsgHandlerTest, AnyOtherContextWordGivesTheTwoLogLinesAndNoPush) {
    LogCapture log;

    Deliver<CHipsMsgHandler>(Body(Element("CloudAd%s%n")));

    const auto records = log.All();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ("CTevChennalMgr before ---> CloudAd%s%n\n", records[0].strText);
    EXPECT_EQ("CTevChennalMgr before ---> %s\n", records[0].strFormat);
    EXPECT_EQ(61, records[0].nLine);
    EXPECT_EQ("CTevChennalMgr after ---> CloudAd%s%n\n", records[1].strText);
    EXPECT_EQ("CTevChennalMgr after ---> %s\n", records[1].strFormat);
    EXPECT_EQ(70, records[1].nLine);
    for (const CapturedLog& record : records) {
        EXPECT_EQ(2, record.nLevel);
        EXPECT_EQ(SOURCE, record.strSource);
        EXPECT_EQ("Run", record.strFunction);
    }
    EXPECT_TRUE(Queue().empty());
}

TEST_F(CHipsMsgHandlerTest, APushStandsBetweenItsTwoLogLines) {
    LogCapture log;
    Texts beforePush;
    const SqlTrace trace([&](const std::string&) { beforePush = log.Texts(); });

    Deliver<CHipsMsgHandler>(Body(Element("cloudad")));

    EXPECT_EQ(Texts{"CTevChennalMgr before ---> cloudad\n"}, beforePush);
    EXPECT_EQ(
        (Texts{"CTevChennalMgr before ---> cloudad\n", "CTevChennalMgr after ---> cloudad\n"}),
        log.Texts());
}

TEST_F(CHipsMsgHandlerTest, AnElementWithoutContextGivesNoLogLine) {
    LogCapture log;

    Deliver<CHipsMsgHandler>(Body(R"({"grup":"cloudquery"})"));

    EXPECT_EQ(Texts{}, log.Texts());
}

TEST_F(CHipsMsgHandlerTest, AContextOfAnotherTypeGivesTheTwoLogLinesAndNoPush) {
    for (const char* pszContext : {"null", "[]", "{}", "\"\""}) {
        LogCapture log;

        Deliver<CHipsMsgHandler>(
            Body(std::string(R"({"grup":"cloudquery","context":)") + pszContext + "}"));

        EXPECT_EQ((Texts{"CTevChennalMgr before ---> \n", "CTevChennalMgr after ---> \n"}),
                  log.Texts());
    }
    EXPECT_TRUE(Queue().empty());
}

TEST_F(CHipsMsgHandlerTest, AnElementThatIsUnusableKeepsNothingFromItsNeighbours) {
    Deliver<CHipsMsgHandler>(
        Body("7,null,[1]," + Element("cloudad") + R"(,{"grup":[]},"x",)" + Element("cloudfd")));

    EXPECT_EQ((std::vector<int>{5, 6}), QueuedMids());
}

TEST_P(CHipsMsgHandlerUnusableTest, AMessageIsDroppedSilently) {
    LogCapture log;

    const Texts lines = PrintedBy([] { Deliver<CHipsMsgHandler>(GetParam()); });

    EXPECT_EQ(Texts{}, lines);
    EXPECT_EQ(Texts{}, log.Texts());
    EXPECT_TRUE(Queue().empty());
}

INSTANTIATE_TEST_SUITE_P(Bodies, CHipsMsgHandlerUnusableTest, testing::ValuesIn(UNUSABLE));

TEST_F(CHipsMsgHandlerTest, NestingDeeperThanTheReaderGoesIsDropped) {
    Deliver<CHipsMsgHandler>(R"({"param":)" + std::string(100000, '['));
    Deliver<CHipsMsgHandler>(R"({"param":[)" + Element("cloudad") + R"(],"x":)" +
                             std::string(5000, '[') + std::string(5000, ']') + "}");

    EXPECT_TRUE(Queue().empty());
}

TEST_F(CHipsMsgHandlerTest, TheBodyIsQueuedByItsLengthAlsoWithANulInsideAText) {
    std::string strBody = R"({"x":"a)" + std::string(1, '\0') + "b'\xff\xc3(" + R"(","param":[)" +
                          Element("cloudad") + "]} \n";

    Deliver<CHipsMsgHandler>(strBody);

    ASSERT_EQ(1u, Queue().size());
    EXPECT_EQ(strBody, Queue().front().detail);
}

TEST_F(CHipsMsgHandlerTest, ABodyOfOneMegabyteIsQueuedWhole) {
    const std::string strBody =
        R"({"x":")" + std::string(1024 * 1024, '\'') + R"(","param":[)" + Element("cloudfd") + "]}";

    Deliver<CHipsMsgHandler>(strBody);

    ASSERT_EQ(1u, Queue().size());
    EXPECT_TRUE(strBody == Queue().front().detail);
}

TEST_F(CHipsMsgHandlerTest, CommentsInABodyAreAccepted) {
    const std::string strBody = "// from the host\n" + Body(Element("cloudad"));

    Deliver<CHipsMsgHandler>(strBody);

    ASSERT_EQ(1u, Queue().size());
    EXPECT_EQ(strBody, Queue().front().detail);
}

TEST_F(CHipsMsgHandlerTest, AStoreThatCannotBeOpenedCostsTheMessageAndOneLinePerFailure) {
    const TestDir dir(false);

    const Texts lines = PrintedBy([] { Deliver<CHipsMsgHandler>(Body(Element("cloudad"))); });

    EXPECT_EQ((Texts{"unable to open database file", "the database is not open"}), lines);
}

TEST_F(CHipsMsgHandlerTest, MessagesOnSeveralThreadsAtOnceAreAllQueued) {
    std::vector<std::thread> transports;
    for (int nThread = 0; nThread < 4; ++nThread) {
        transports.emplace_back([] {
            for (int i = 0; i < 10; ++i) {
                Deliver<CHipsMsgHandler>(Body(Element("cloudad") + "," + Element("cloudfd")));
            }
        });
    }

    for (std::thread& thread : transports) {
        thread.join();
    }

    EXPECT_EQ(80u, Queue().size());
}

TEST_F(CCloudQueryRetHandlerTest, ServesCloudResults) {
    EXPECT_EQ(20003, CCloudQueryRetHandler().GetMsgType());
}

TEST_F(CCloudQueryRetHandlerTest, OnlyAContextRecordsLevel40AndMid0WithTheLevelsLifetime) {
    Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"K")"));

    EXPECT_EQ(Texts{"K|40|1700000000|1200||0"}, Rows());
}

TEST_F(CCloudQueryRetHandlerTest, AResultOf20AsksForLevel20AndOneOfXForLevel0WhichIsRefused) {
    Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"a","result":"20")"));
    Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"b","result":"x")"));

    EXPECT_EQ(Texts{"a|20|1700000000|1296000||0"}, Rows());
}

TEST_F(CCloudQueryRetHandlerTest, AResultIsReadAsAtoiReadsItsText) {
    const char* const results[] = {R"("  70abc")", R"("+10")", "30",   "50.9",  R"("")",
                                   R"("-40")",     "null",     "true", "[20]",  R"({"a":20})",
                                   R"("0x14")",    "60",       "40.0", "1e400", "-20"};
    int nKey = 0;
    for (const char* pszResult : results) {
        Deliver<CCloudQueryRetHandler>(
            Verdict(R"("context":"k)" + std::to_string(nKey++) + R"(","result":)" + pszResult));
    }

    EXPECT_EQ((Texts{"k0|70|1700000000|1296000||0", "k1|10|1700000000|1296000||0",
                     "k2|30|1700000000|1200||0", "k3|50|1700000000|1200||0",
                     "k12|40|1700000000|1200||0"}),
              Rows());
}

TEST_F(CCloudQueryRetHandlerTest, FuncNamesTheMidAndAnyOtherWordIs0) {
    const char* const funcs[] = {
        R"("cloudad")", R"("cloudfd")", R"("cloudfs")", R"("CloudAd")", R"("")", "5", "null", "[]"};
    int nKey = 0;
    for (const char* pszFunc : funcs) {
        Deliver<CCloudQueryRetHandler>(
            Verdict(R"("context":"k)" + std::to_string(nKey++) + R"(","func":)" + pszFunc));
    }

    Texts mids;
    for (const std::string& strRow : Rows()) {
        mids.push_back(strRow.substr(strRow.rfind('|') + 1));
    }
    EXPECT_EQ((Texts{"5", "6", "0", "0", "0", "0", "0", "0"}), mids);
}

TEST(FuncToMidTest, MapsTheTwoWordsExactly) {
    EXPECT_EQ(5, FuncToMid("cloudad"));
    EXPECT_EQ(6, FuncToMid("cloudfd"));
    EXPECT_EQ(0, FuncToMid("cloudfs"));
    EXPECT_EQ(0, FuncToMid("cloudad "));
    EXPECT_EQ(0, FuncToMid(std::string("cloudad\0", 8)));
    EXPECT_EQ(0, FuncToMid("CLOUDAD"));
    EXPECT_EQ(0, FuncToMid(""));
}

TEST_F(CCloudQueryRetHandlerTest, AnyOtherMsgTypeOrNoContextAsksTheCacheNothing) {
    const char* const bodies[] = {
        R"({"msg_type":"cloudq","param":{"context":"K"}})",
        R"({"msg_type":"CLOUDQR","param":{"context":"K"}})",
        R"({"msg_type":["cloudqr"],"param":{"context":"K"}})",
        R"({"msg_type":null,"param":{"context":"K"}})",
        R"({"param":{"context":"K"}})",
        R"({"msg_type":"cloudqr"})",
        R"({"msg_type":"cloudqr","context":"K"})",
        R"({"msg_type":"cloudqr","param":{}})",
        R"({"msg_type":"cloudqr","param":{"context":"","result":"20"}})",
        R"({"msg_type":"cloudqr","param":{"context":null}})",
        R"({"msg_type":"cloudqr","param":{"context":["K"]}})",
        R"({"msg_type":"cloudqr","param":[{"context":"K"}]})",
        R"({"msg_type":"cloudqr","param":"context"})",
        R"({"msg_type":"cloudqr","param":null})",
        R"([{"msg_type":"cloudqr","param":{"context":"K"}}])",
        R"({"msg_type":"cloudqr","param":{"context":"K"})",
        "cloudqr",
        "",
    };
    LogCapture log;
    const SqlTrace trace;

    for (const char* pszBody : bodies) {
        Deliver<CCloudQueryRetHandler>(pszBody);
    }

    EXPECT_EQ(Texts{}, trace.Statements());
    EXPECT_EQ(Texts{}, log.Texts());
}

TEST_F(CCloudQueryRetHandlerTest, AContextThatIsANumberIsItsText) {
    Deliver<CCloudQueryRetHandler>(Verdict(R"("context":17)"));

    EXPECT_EQ(Texts{"17|40|1700000000|1200||0"}, Rows());
}

TEST_F(CCloudQueryRetHandlerTest, ASecondAnswerForAKeyPrints300LinesAndChangesNothing) {
    Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"K","result":"40")"));

    const Texts lines = PrintedBy(
        [] { Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"K","result":"70")")); });

    EXPECT_EQ(300u, lines.size());
    EXPECT_EQ(Texts{"K|40|1700000000|1200||0"}, Rows());
}

TEST_F(CCloudQueryRetHandlerTest, AHostileContextOpensNoOtherDatabase) {
    Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"K")"));

    (void)PrintedBy([] {
        Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"x'; attach 'evil.db' as e; --")"));
        Deliver<CCloudQueryRetHandler>(
            Verdict(R"("context":"x',1,1,1,'',1); delete from cachotable; --")"));
        Deliver<CCloudQueryRetHandler>(Verdict(R"("context":"x\u0000y")"));
    });

    EXPECT_EQ(Texts{"K|40|1700000000|1200||0"}, Rows());
    EXPECT_FALSE(std::filesystem::exists("evil.db"));
}
