// The examples of docs/messages.md, replayed through the built library.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>
#include <sstream>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/EventLog.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/FakeUsers.h"
#include "tests/support/LoadedModule.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"

namespace {

class MessagesDocTest : public testing::Test {
protected:
    void SetUp() override {
        // Each program's content is "abc", whose digests are well known.
        (void)m_dir.WriteFile("bin/bash", "abc", 0755);
        (void)m_dir.WriteFile("bin/tool", "abc", 0755);
        (void)m_dir.WriteFile("a.sh", "true\n", 0755);
        ASSERT_EQ(0, mkfifo((m_dir.Path() + "/pipe").c_str(), 0640));
        m_strPage = ReadWholeFile(SOURCE_DIR "/docs/messages.md");
        ASSERT_FALSE(m_strPage.empty());
    }

    // The lines of the fenced block behind "<!-- strMark -->", with the test's own values in it.
    std::vector<std::string> Example(const std::string& strMark) const {
        const size_t nMark = m_strPage.find("<!-- " + strMark + " -->\n```");
        EXPECT_NE(std::string::npos, nMark) << "no example " << strMark;
        const size_t nBegin = m_strPage.find('\n', m_strPage.find("```", nMark)) + 1;
        std::istringstream block(
            m_strPage.substr(nBegin, m_strPage.find("\n```", nBegin) - nBegin));
        std::vector<std::string> lines;
        for (std::string strLine; std::getline(block, strLine);) {
            strLine = ReplaceAll(strLine, "@DIR@", m_dir.Path());
            strLine = ReplaceAll(strLine, "@SHA1@", "a9993e364706816aba3e25717850c26c9cd0d89d");
            lines.push_back(ReplaceAll(strLine, "@MD5@", "900150983cd24fb0d6963f7d28e17f72"));
        }
        return lines;
    }

    std::vector<std::string> Queries() const {
        static const std::regex owner(R"re(("hi\.file([ug])id","value":")[0-9]+)re");
        std::vector<std::string> queries;
        for (const SentMessage& message : m_router.Posts()) {
            std::string strQuery = NormalisedMessage(message.strData, m_dir.Path());
            strQuery = std::regex_replace(strQuery, owner, "$1$2ID");
            strQuery = ReplaceAll(ReplaceAll(strQuery, "\"uID\"", "\"UID\""), "\"gID\"", "\"GID\"");
            queries.push_back(ReplaceAll(strQuery, "@DIR@", m_dir.Path()));
        }
        return queries;
    }

    TestDir m_dir;
    FakeRouter m_router;
    LogCapture m_log;
    FakeUsers m_users{{}};
    std::string m_strPage;
};

TEST_F(MessagesDocTest, TheLaunchExampleLeadsToItsQueryAndAfterTheVerdictToItsLogLine) {
    const LoadedModule module(MODULE_FILE, m_router);

    ASSERT_TRUE(m_router.Deliver(20002, Example("in 20002 launches")[0]));
    ASSERT_TRUE(m_router.WaitForPosts(1));
    EXPECT_EQ(Example("out 20004 launches"), Queries());

    ASSERT_TRUE(m_router.Deliver(20003, Example("in 20003 verdict")[0]));
    ASSERT_TRUE(m_router.Deliver(20002, Example("in 20002 launches")[0]));
    EXPECT_TRUE(m_log.WaitFor(Example("log 1 verdict")[0]));
    EXPECT_EQ(1U, m_router.Posts().size());
}

TEST_F(MessagesDocTest, TheFileOperationExampleLeadsToItsQueriesInOrder) {
    const LoadedModule module(MODULE_FILE, m_router);

    ASSERT_TRUE(m_router.Deliver(20002, Example("in 20002 file-operations")[0]));
    ASSERT_TRUE(m_router.WaitForPosts(5));

    EXPECT_EQ(Example("out 20004 file-operations"), Queries());
}

TEST_F(MessagesDocTest, TheEventLogExampleIsThePayloadOfItsRecord) {
    CMsgRouterHolder::Instance()->SetRouter(&m_router);
    CCentreSession session;

    ASSERT_EQ(1, epEventLog(session, {3, 77, 5, "what happened"}, 0));
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    const std::string strRecord = m_router.Sends().at(0).strData;
    const std::string strPayload =
        std::regex_replace(strRecord.substr(148, strRecord.size() - 149),
                           std::regex(R"re("time":"[-0-9]{10} [0-9:]{8}")re"), R"("time":"TIME")");
    EXPECT_EQ(Example("payload event-log")[0], strPayload);
}

}  // namespace
