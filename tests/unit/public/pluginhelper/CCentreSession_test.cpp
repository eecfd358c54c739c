// The router holder lives once per process; every test is a process of its own.
#include "public/pluginhelper/CCentreSession.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/memory/MemoryLimit.h"

namespace {

constexpr uint32_t BAD_ARGUMENT = 0xE0010002U;

uint32_t NumberAt(const std::string& strRecord, size_t nOffset) {
    uint32_t nNumber = 0;
    memcpy(&nNumber, strRecord.data() + nOffset, sizeof(nNumber));
    return nNumber;
}

std::string Zeros(size_t nCount) {
    return std::string(nCount, '\0');
}

class CCentreSessionTest : public testing::Test {
protected:
    CCentreSessionTest() { CMsgRouterHolder::Instance()->SetRouter(&m_router); }
    ~CCentreSessionTest() override { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    // The one record sent.
    std::string Sent() const {
        EXPECT_EQ(1U, m_router.Sends().size());
        return m_router.Sends().empty() ? Zeros(149) : m_router.Sends()[0].strData;
    }

    FakeRouter m_router;
    LogCapture m_log;
    StdoutCapture m_output;
    CCentreSession m_session;
};

// 4 GiB - 100 bytes of text made of one 16 MiB file mapped again and again.
class HugeText {
public:
    HugeText() : m_pText(mmap(nullptr, SIZE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        const int nFile = memfd_create("text", 0);
        const std::string strPiece(PIECE, 'x');
        EXPECT_EQ(static_cast<ssize_t>(PIECE), write(nFile, strPiece.data(), PIECE));
        for (size_t n = 0; n + PIECE < SIZE; n += PIECE) {
            MapAt(n, PIECE, nFile);
        }
        MapAt(SIZE - PIECE, PIECE, nFile, MAP_PRIVATE);
        close(nFile);
        Text()[SIZE - 100] = '\0';
    }
    ~HugeText() { munmap(m_pText, SIZE); }
    HugeText(const HugeText&) = delete;
    HugeText& operator=(const HugeText&) = delete;

    char* Text() { return static_cast<char*>(m_pText); }

private:
    static constexpr size_t PIECE = size_t{16} << 20;
    static constexpr size_t SIZE = size_t{4} << 30;

    void MapAt(size_t nOffset, size_t nSize, int nFile, int nKind = MAP_SHARED) {
        EXPECT_EQ(Text() + nOffset, mmap(Text() + nOffset, nSize, PROT_READ | PROT_WRITE,
                                         nKind | MAP_FIXED, nFile, 0));
    }

    void* m_pText;
};

}  // namespace

TEST_F(CCentreSessionTest, ARecordHasExactlyTheseBytes) {
    EXPECT_TRUE(m_session.sendhub("hello", "name/sub", 0x01020304, 0, 0));

    std::string strExpected("\2\0\0\0\4\3\2\1\1\0\0\0\0\0\0\0", 16);
    strExpected += "name" + Zeros(60) + "sub" + Zeros(61);
    strExpected += std::string("\5\0\0\0", 4) + "hello" + Zeros(1);
    EXPECT_EQ(154U, strExpected.size());
    EXPECT_EQ(strExpected, Sent());
}

TEST_F(CCentreSessionTest, ARecordGoesToTheCentreEndpointWithAMinuteToComplete) {
    EXPECT_TRUE(m_session.sendhub("p", "a/b", 1, 0, 0));

    ASSERT_EQ(1U, m_router.Sends().size());
    EXPECT_EQ(0x9946467FU, m_router.Sends()[0].target.nData1);
    EXPECT_EQ(0x0102, m_router.Sends()[0].target.nData2);
    EXPECT_EQ(0xFD, m_router.Sends()[0].target.nData4[7]);
    EXPECT_EQ(20300, m_router.Sends()[0].nMsgType);
    EXPECT_EQ(0, m_router.nLastReserved);
    EXPECT_EQ(0U, m_router.nLastOut);
    EXPECT_EQ(60000, m_router.nLastTimeout);
    EXPECT_NE(nullptr, m_router.pLastComplete);
}

TEST_F(CCentreSessionTest, EverySendNamesTheSameCompletionAndItDoesNothing) {
    EXPECT_TRUE(m_session.sendhub("p", "a/b", 1, 0, 0));
    IMRSendComplete* pFirst = m_router.pLastComplete;
    EXPECT_TRUE(m_session.sendhub("q", "a/b", 1, 0, 1));

    EXPECT_EQ(pFirst, m_router.pLastComplete);
    ASSERT_NE(nullptr, pFirst);
    EXPECT_EQ(0, pFirst->SendComplete(7, nullptr, nullptr, 9, nullptr, -1));
}

TEST_F(CCentreSessionTest, ModeZeroSendsTypeTwoAndModeOneTypeOne) {
    EXPECT_TRUE(m_session.sendhub("p", "a/b", 1, 0, 0));
    EXPECT_TRUE(m_session.sendhub("p", "a/b", 1, 0, 1));

    ASSERT_EQ(2U, m_router.Sends().size());
    EXPECT_EQ(2U, NumberAt(m_router.Sends()[0].strData, 0));
    EXPECT_EQ(1U, NumberAt(m_router.Sends()[1].strData, 0));
}

TEST_F(CCentreSessionTest, AnyOtherModeSendsNothingAndSaysNothing) {
    for (const int nMode : {-1, 2, 3, 100}) {
        EXPECT_FALSE(m_session.sendhub("p", "a/b", 1, 0, nMode)) << nMode;
    }

    EXPECT_TRUE(m_router.Sends().empty());
    EXPECT_TRUE(m_log.All().empty());
    EXPECT_EQ("", m_output.Text());
}

TEST_F(CCentreSessionTest, TheTwoWrappersSendTheSameRecord) {
    EXPECT_TRUE(m_session.sendhub2("p", "a/b", 9, 0));
    EXPECT_TRUE(m_session.sendhub1("p", "a/b", 9, 0));

    ASSERT_EQ(2U, m_router.Sends().size());
    EXPECT_EQ(m_router.Sends()[0].strData, m_router.Sends()[1].strData);
    EXPECT_EQ(9U, NumberAt(m_router.Sends()[0].strData, 4));
}

TEST_F(CCentreSessionTest, TwoPartsJoinedByOneSlashAreNameAndSubName) {
    EXPECT_TRUE(m_session.sendhub("p", "first/second", 1, 0, 0));

    EXPECT_STREQ("first", Sent().c_str() + 16);
    EXPECT_STREQ("second", Sent().c_str() + 80);
}

TEST_F(CCentreSessionTest, ABusinessIdOfOtherThanTwoPartsIsPrintedAndNothingIsSent) {
    for (const char* pszId : {"noslash", "a/b/c", "", "/", "a/", "/b", "//"}) {
        EXPECT_FALSE(m_session.sendhub("p", pszId, 1, 0, 0)) << pszId;
    }

    EXPECT_EQ(
        "sendhub:: strBusinessId error [noslash]\n"
        "sendhub:: strBusinessId error [a/b/c]\n"
        "sendhub:: strBusinessId error []\n"
        "sendhub:: strBusinessId error [/]\n"
        "sendhub:: strBusinessId error [a/]\n"
        "sendhub:: strBusinessId error [/b]\n"
        "sendhub:: strBusinessId error [//]\n",
        m_output.Text());
    EXPECT_TRUE(m_router.Sends().empty());
    EXPECT_TRUE(m_log.All().empty());
}

// Empty pieces between slashes do not count as parts.
TEST_F(CCentreSessionTest, ABusinessIdOfTwoPartsWithSlashesToSpareIsSent) {
    for (const char* pszId : {"a//b", "/a/b", "a/b/"}) {
        EXPECT_TRUE(m_session.sendhub("p", pszId, 1, 0, 0)) << pszId;
    }

    ASSERT_EQ(3U, m_router.Sends().size());
    EXPECT_STREQ("b", m_router.Sends()[0].strData.c_str() + 80);
}

TEST_F(CCentreSessionTest, ABadBusinessIdIsReportedBeforeABadMode) {
    EXPECT_FALSE(m_session.sendhub("p", "noslash", 1, 0, 7));

    EXPECT_EQ("sendhub:: strBusinessId error [noslash]\n", m_output.Text());
}

TEST_F(CCentreSessionTest, APercentSignInABusinessIdStaysData) {
    m_router.nSendResult = 1;

    EXPECT_FALSE(m_session.sendhub("p", "%s%n%d", 1, 0, 0));
    EXPECT_FALSE(m_session.sendhub("p", "%s/%n", 1, 0, 0));

    EXPECT_EQ("sendhub:: strBusinessId error [%s%n%d]\n", m_output.Text());
    EXPECT_EQ(1U, m_log.Count("[%s/%n]发送消息失败[ret:1]"));
}

TEST_F(CCentreSessionTest, ANameLongerThanSixtyThreeBytesIsCutAndStaysTerminated) {
    const std::string strLong(200, 'n');

    EXPECT_TRUE(m_session.sendhub("p", strLong + "/" + strLong, 1, 0, 0));

    EXPECT_EQ(std::string(63, 'n') + Zeros(1), Sent().substr(16, 64));
    EXPECT_EQ(std::string(63, 'n') + Zeros(1), Sent().substr(80, 64));
    EXPECT_EQ(1U, NumberAt(Sent(), 144));
}

TEST_F(CCentreSessionTest, NamesOfExactlySixtyThreeAndSixtyFourBytes) {
    EXPECT_TRUE(m_session.sendhub("p", std::string(63, 'a') + "/" + std::string(64, 'b'), 1, 0, 0));

    EXPECT_EQ(std::string(63, 'a') + Zeros(1), Sent().substr(16, 64));
    EXPECT_EQ(std::string(63, 'b') + Zeros(1), Sent().substr(80, 64));
}

TEST_F(CCentreSessionTest, AnEmptyPayloadIsRefusedAndLogged) {
    EXPECT_FALSE(m_session.sendhub("", "a/b", 1, 0, 0));

    EXPECT_TRUE(m_router.Sends().empty());
    const std::vector<CapturedLog> records = m_log.All();
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("[a/b]发送消息失败[ret:-536805374]", records[0].strText);  // 0xE0010002 as %d
    EXPECT_EQ(3, records[0].nLogType);
    EXPECT_EQ("public/pluginhelper/CCentreSession", records[0].strSource);
    EXPECT_EQ("sendhub", records[0].strFunction);
    EXPECT_EQ(61, records[0].nLine);
    EXPECT_EQ("", m_output.Text());
}

TEST_F(CCentreSessionTest, AFailedSendIsLoggedWithTheRoutersResult) {
    m_router.nSendResult = 17;

    EXPECT_FALSE(m_session.sendhub("p", "a/b", 1, 0, 0));

    EXPECT_EQ(std::vector<std::string>{"[a/b]发送消息失败[ret:17]"}, m_log.Texts());
}

TEST_F(CCentreSessionTest, WithoutARouterNothingIsLoggedAndNothingPrinted) {
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    EXPECT_FALSE(m_session.sendhub("p", "a/b", 1, 0, 0));
    EXPECT_FALSE(m_session.sendhub("p", "noslash", 1, 0, 0));

    EXPECT_TRUE(m_log.All().empty());
    EXPECT_EQ("", m_output.Text());
}

TEST_F(CCentreSessionTest, APayloadEndsAtItsFirstNulByte) {
    EXPECT_TRUE(m_session.sendhub(std::string("ab\0cd", 5), "a/b", 1, 0, 0));

    EXPECT_EQ(151U, Sent().size());
    EXPECT_EQ(2U, NumberAt(Sent(), 144));
    EXPECT_EQ(std::string("ab\0", 3), Sent().substr(148));
}

TEST_F(CCentreSessionTest, RecordTypesOneToThreeAreSentAndOthersRefused) {
    for (const uint32_t nType : {1U, 2U, 3U}) {
        EXPECT_EQ(0U, CCentreSession::SendRecord(&m_router, {nType, "a", "b", 1, 1, "p"}));
    }
    for (const uint32_t nType : {0U, 4U, 0xFFFFFFFFU}) {
        EXPECT_EQ(0xA0010001U, CCentreSession::SendRecord(&m_router, {nType, "a", "b", 1, 1, "p"}));
    }

    EXPECT_EQ(3U, m_router.Sends().size());
}

TEST_F(CCentreSessionTest, NullArgumentsAreRefusedBeforeAnUnknownTypeAndThatBeforeAnEmptyPayload) {
    EXPECT_EQ(BAD_ARGUMENT, CCentreSession::SendRecord(nullptr, {9, "a", "b", 1, 1, "p"}));
    EXPECT_EQ(BAD_ARGUMENT, CCentreSession::SendRecord(&m_router, {9, nullptr, "b", 1, 1, "p"}));
    EXPECT_EQ(BAD_ARGUMENT, CCentreSession::SendRecord(&m_router, {9, "a", nullptr, 1, 1, "p"}));
    EXPECT_EQ(BAD_ARGUMENT, CCentreSession::SendRecord(&m_router, {9, "a", "b", 1, 1, nullptr}));
    EXPECT_EQ(0xA0010001U, CCentreSession::SendRecord(&m_router, {9, "a", "b", 1, 1, ""}));
    EXPECT_EQ(BAD_ARGUMENT, CCentreSession::SendRecord(&m_router, {1, "a", "b", 1, 1, ""}));

    EXPECT_TRUE(m_router.Sends().empty());
}

TEST_F(CCentreSessionTest, BothNamesStayZeroWhenEitherIsEmpty) {
    EXPECT_EQ(0U, CCentreSession::SendRecord(&m_router, {1, "", "sub", 1, 1, "p"}));
    EXPECT_EQ(0U, CCentreSession::SendRecord(&m_router, {1, "name", "", 1, 1, "p"}));

    ASSERT_EQ(2U, m_router.Sends().size());
    EXPECT_EQ(Zeros(128), m_router.Sends()[0].strData.substr(16, 128));
    EXPECT_EQ(Zeros(128), m_router.Sends()[1].strData.substr(16, 128));
}

TEST_F(CCentreSessionTest, TheRoutersResultPassesThroughSendRecordUnchanged) {
    m_router.nSendResult = 0xE0010003U;

    EXPECT_EQ(0xE0010003U, CCentreSession::SendRecord(&m_router, {1, "a", "b", 1, 1, "p"}));
    EXPECT_EQ(1U, m_router.Sends().size());
}

TEST_F(CCentreSessionTest, ARecordWithoutMemoryForItIsRefusedAndKeepsNone) {
    const std::string strPayload(100000, 'p');
    uint32_t nResult = 0;

    {
        const MemoryLimit limit(100000);  // the payload and its terminator do not fit
        nResult = CCentreSession::SendRecord(&m_router, {1, "a", "b", 1, 1, strPayload.c_str()});
        EXPECT_EQ(1, limit.Refused());
        EXPECT_EQ(0, limit.Kept());
    }

    EXPECT_EQ(0xE0010003U, nResult);
    EXPECT_TRUE(m_router.Sends().empty());
}

TEST_F(CCentreSessionTest, SendhubLogsARecordWithoutMemoryForItWithItsCode) {
    const std::string strPayload(100000, 'p');
    bool bSent = true;

    {
        const MemoryLimit limit(100000);
        bSent = m_session.sendhub(strPayload, "a/b", 1, 0, 0);
    }

    EXPECT_FALSE(bSent);
    EXPECT_TRUE(m_router.Sends().empty());
    EXPECT_EQ(std::vector<std::string>{"[a/b]发送消息失败[ret:-536805373]"},  // 0xE0010003 as %d
              m_log.Texts());
    EXPECT_EQ("", m_output.Text());
}

TEST_F(CCentreSessionTest, ALengthWhoseRecordDoesNotFitThirtyTwoBitsIsRefusedAsOutOfMemory) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the race detector keeps several times the 4 GiB that strlen reads";
#endif
    HugeText text;

    EXPECT_EQ(0xE0010003U, CCentreSession::SendRecord(&m_router, {1, "a", "b", 1, 1, text.Text()}));

    EXPECT_TRUE(m_router.Sends().empty());
}
