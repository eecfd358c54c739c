// The recordings of tests/data, taken from a machine's own kernel events, through the real library:
// the messages that leave and the lines it logs are compared with tests/data/golden.txt byte for
// byte. Normalised by rule: times and inodes of files, the test's directory, and the digests of the
// machine's programs, which are checked against the file before they are replaced.
//
// To write the golden file anew after a change on purpose: GOLDEN_WRITE=1 golden_run_test.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <json/reader.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "framework/digest/FileHash.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/FakeUsers.h"
#include "tests/support/LoadedModule.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"

namespace {

Json::Value Parse(const std::string& strText) {
    Json::Value jsonRoot;
    const std::unique_ptr<Json::CharReader> pReader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(pReader->parse(strText.data(), strText.data() + strText.size(), &jsonRoot, nullptr))
        << strText;
    return jsonRoot;
}

class GoldenRunTest : public testing::Test {
protected:
    void SetUp() override {
        (void)m_dir.WriteFile("a.sh", "true\n", 0755);
        (void)m_dir.WriteFile("a.py", "pass\n");
        (void)m_dir.WriteFile("sentinel", "abc", 0755);
        ASSERT_EQ(0, mkfifo((m_dir.Path() + "/pipe").c_str(), 0640));
        m_pModule = std::make_unique<LoadedModule>(MODULE_FILE, m_router);
    }

    // Delivers both recordings and waits until their last event was judged.
    void Replay() {
        for (const char* pszFile : {"/launches.jsonl", "/fileops.jsonl"}) {
            std::istringstream lines(
                ReplaceAll(ReadWholeFile(DATA_DIR + std::string(pszFile)), "@DIR@", m_dir.Path()));
            for (std::string strLine; std::getline(lines, strLine);) {
                ASSERT_TRUE(m_router.Deliver(20002, strLine));
            }
        }
        const std::string strReplay = std::to_string(++m_nReplays);
        // A program nobody has judged, so that its query marks the end of the queue.
        const std::string strEnd = m_dir.WriteFile("end" + strReplay, strReplay, 0755);
        ASSERT_TRUE(m_router.Deliver(
            20002,
            R"({"param":[{"grup":"cloudquery","context":"cloudad","path":")" + strEnd + R"("}]})"));
        size_t nPosts = 0;
        while (nPosts == 0 ||
               m_router.Posts()[nPosts - 1].strData.find(strEnd) == std::string::npos) {
            ASSERT_TRUE(m_router.WaitForPosts(++nPosts));
        }
    }

    // Every query without the last, which is the end mark.
    std::vector<std::string> Queries() const {
        std::vector<std::string> queries;
        for (const SentMessage& message : m_router.Posts()) {
            EXPECT_EQ(20004, message.nMsgType);
            if (message.strData.find(m_dir.Path() + "/end") == std::string::npos) {
                queries.push_back(message.strData);
            }
        }
        return queries;
    }

    // Judges every program asked about under its key with level 10.
    void AnswerAll() {
        std::set<std::string> keys;
        for (const std::string& strQuery : Queries()) {
            const Json::Value jsonParam = Parse(strQuery)["param"];
            const std::string strKey = jsonParam["context"].asString();
            if (!strKey.empty() && keys.insert(strKey).second) {
                ASSERT_TRUE(m_router.Deliver(
                    20003, R"({"msg_type":"cloudqr","param":{"context":")" + strKey +
                               R"(","func":")" + jsonParam["func"].asString() +
                               R"(","result":"10"}})"));
            }
        }
    }

    std::string Normalised(const std::string& strText) const {
        return NormalisedMessage(strText, m_dir.Path());
    }

    // The query with its key, once checked, replaced.
    std::string NormalisedQuery(const std::string& strQuery) const {
        const Json::Value jsonParam = Parse(strQuery)["param"];
        const std::string strKey = jsonParam["context"].asString();
        std::string strMd5;
        std::string strSha1;
        if (!strKey.empty()) {
            EXPECT_TRUE(utils::getMD5AndSHA1(jsonParam["path"].asString(), strMd5, strSha1));
            EXPECT_EQ(strSha1 + strMd5, strKey);
            return Normalised(ReplaceAll(strQuery, strKey, "KEY"));
        }
        return Normalised(strQuery);
    }

    std::string QueryLines() const {
        std::string strLines;
        for (const std::string& strQuery : Queries()) {
            strLines += "20004 " + NormalisedQuery(strQuery) + "\n";
        }
        return strLines;
    }

    // What operators see: the lines of every level but the traces.
    std::string LogLines() const {
        std::string strLines;
        for (const CapturedLog& record : m_log.All()) {
            if (record.nLevel != 2) {
                strLines += "L" + std::to_string(record.nLevel) + " " + record.strSource + " " +
                            record.strFunction + " " + Normalised(record.strText) + "\n";
            }
        }
        return strLines;
    }

    TestDir m_dir;
    FakeRouter m_router;
    LogCapture m_log;
    FakeUsers m_users{{}};
    std::unique_ptr<LoadedModule> m_pModule;
    int m_nReplays = 0;
};

TEST_F(GoldenRunTest, TheRecordingsGiveTheGoldenMessagesFirstUnjudgedThenJudged) {
    ASSERT_NO_FATAL_FAILURE(Replay());
    std::string strLines = "first replay: no program is judged\n" + QueryLines() + LogLines();
    const size_t nQueries = Queries().size();
    ASSERT_NO_FATAL_FAILURE(AnswerAll());
    m_log.Clear();

    ASSERT_NO_FATAL_FAILURE(Replay());
    EXPECT_EQ(nQueries, Queries().size()) << "a judged program was asked about again";
    strLines += "second replay: every program is judged\n" + LogLines();

    const std::string strGolden = DATA_DIR + std::string("/golden.txt");
    if (getenv("GOLDEN_WRITE") != nullptr) {
        std::ofstream(strGolden, std::ios::binary) << strLines;
    }
    EXPECT_EQ(ReadWholeFile(strGolden), strLines);
}

}  // namespace
