// What a query says of a launch.
#include "tevmon/core/CTevPsMonitor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/FakeUsers.h"
#include "tests/unit/tevmon/core/PsMonitorTest.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(CTevPsMonitorTest, ThePostedMessageIsTheSameToTheByte) {
    m_files.Redirect("/home/alice/run.sh", m_strReal);
    m_files.SetStatus("/home/alice/run.sh", Status());
    m_files.Redirect("/home/alice", m_dir.Path());
    const FakeUsers users({{"alice", "/home/alice"}});

    EXPECT_TRUE(Run(Message(Launch("/home/alice/run.sh", R"(,"cmd":"run.sh -x","pid":4242)"))));

    ASSERT_EQ(1u, m_router.Posts().size());
    EXPECT_EQ(
        R"({"msg_type":"cloudq","param":{"context":)"
        R"("a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72",)"
        R"("event_id_key":"adid","event_id_value":"10001","ext":[)"
        R"({"key":"hi.event_name","value":"CreateProcess"},)"
        R"({"key":"hi.filemode","value":"100755"},)"
        R"({"key":"hi.fileuid","value":"1001"},)"
        R"({"key":"hi.filegid","value":"1002"},)"
        R"({"key":"hi.fileinode","value":"4711"},)"
        R"({"key":"hi.fileatime","value":"2020-01-31 08:05:09.5"},)"
        R"({"key":"hi.filemtime","value":"2020-01-31 08:05:10.123456789"},)"
        R"({"key":"hi.filectime","value":"2020-01-31 08:05:11.0"},)"
        R"({"key":"hi.process_id","value":"4242"},)"
        R"({"key":"hi.process_path","value":"/home/$username/run.sh"},)"
        R"({"key":"hi.type","value":"0"}],)"
        R"("func":"cloudad","path":"/home/alice/run.sh","path_type":0},"resp_msg_type":20003})",
        m_router.Posts().front().strData);
}

TEST_F(CTevPsMonitorTest, ARealFilesOwnStatusIsSent) {
    const timespec times[2] = {{1000000000, 0}, {1234567890, 42}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, m_strReal.c_str(), times, 0));
    ASSERT_EQ(0, chmod(m_strReal.c_str(), 04711));
    struct stat status = {};
    ASSERT_EQ(0, stat(m_strReal.c_str(), &status));

    EXPECT_TRUE(Run(Message(Launch(m_strReal))));

    EXPECT_EQ("104711", Item("hi.filemode"));
    EXPECT_EQ(std::to_string(status.st_uid), Item("hi.fileuid"));
    EXPECT_EQ(std::to_string(status.st_gid), Item("hi.filegid"));
    EXPECT_EQ(std::to_string(status.st_ino), Item("hi.fileinode"));
    EXPECT_EQ("2001-09-09 01:46:40.0", Item("hi.fileatime"));
    EXPECT_EQ("2009-02-13 23:31:30.42", Item("hi.filemtime"));
    EXPECT_THAT(Item("hi.filectime"),
                testing::EndsWith("." + std::to_string(status.st_ctim.tv_nsec)));
    EXPECT_EQ(ABC_KEY, Sent()["param"]["context"].asString());
}

TEST_F(CTevPsMonitorTest, TheItemsStandInTheirOrderAndAllValuesAreTexts) {
    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    std::vector<std::string> keys;
    const Json::Value jsonEvent = Sent()["param"]["ext"];
    for (const Json::Value& jsonItem : jsonEvent) {
        EXPECT_THAT(jsonItem.getMemberNames(), ElementsAre("key", "value"));
        EXPECT_TRUE(jsonItem["value"].isString());
        keys.push_back(jsonItem["key"].asString());
    }
    EXPECT_THAT(keys, ElementsAre("hi.event_name", "hi.filemode", "hi.fileuid", "hi.filegid",
                                  "hi.fileinode", "hi.fileatime", "hi.filemtime", "hi.filectime",
                                  "hi.process_id", "hi.process_path", "hi.type"));
}

TEST_F(CTevPsMonitorTest, FileTimesAreLocalTimes) {
    const TimeZone zone("EAST-5:30");
    m_files.SetStatus("/opt/tool", Status());

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_EQ("2020-01-31 13:35:09.5", Item("hi.fileatime"));
    EXPECT_EQ("2020-01-31 13:35:10.123456789", Item("hi.filemtime"));
    EXPECT_EQ("2020-01-31 13:35:11.0", Item("hi.filectime"));
}

TEST_F(CTevPsMonitorTest, ALinkToAProgramIsFollowedAndReportedUnderItsOwnPath) {
    ASSERT_EQ(0, symlink(m_strReal.c_str(), "link"));

    EXPECT_TRUE(Run(Message(Launch("link"))));

    EXPECT_EQ("link", SentPath());
    EXPECT_EQ(ABC_KEY, Sent()["param"]["context"].asString());
    EXPECT_EQ("100755", Item("hi.filemode"));
}

TEST_F(CTevPsMonitorTest, AnElementWithoutAPidHasProcessId0) {
    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_EQ("0", Item("hi.process_id"));
}

TEST_F(CTevPsMonitorTest, APidIsASignedNumberOf32BitsAndAnythingElseIs0) {
    const struct {
        const char* pszPid;
        const char* pszSent;
    } rows[] = {
        {"1", "1"},          {"2147483647", "2147483647"},  {"2147483648", "0"}, {"-7", "-7"},
        {"4294967295", "0"}, {"18446744073709551616", "0"}, {"1e300", "0"},      {"\"4242\"", "0"},
        {"null", "0"},       {"{\"pid\":1}", "0"},          {"[1]", "0"},        {"3.7", "3"},
    };

    for (const auto& row : rows) {
        EXPECT_TRUE(Run(Message(Launch("/opt/tool", std::string(",\"pid\":") + row.pszPid))));
        EXPECT_EQ(row.pszSent, Item("hi.process_id", m_router.Posts().size() - 1)) << row.pszPid;
    }
    EXPECT_EQ(12u, m_router.Posts().size());
}

TEST_F(CTevPsMonitorTest, AnElementWithoutACmdHasType0AndTheCommandLineTextNull) {
    m_files.Redirect("/bin/bash", m_strReal);
    const CallTrace trace;

    EXPECT_TRUE(Run(Message(Launch("/bin/bash") + "," + Launch("/bin/bash", R"(,"cmd":"")") + "," +
                            Launch("/bin/bash", R"(,"cmd":[1])"))));

    ASSERT_EQ(3u, m_router.Posts().size());
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ("0", Item("hi.type", i));
    }
    EXPECT_THAT(trace.Calls("encode "), IsEmpty());  // "null" is not made by encoding
}

TEST_F(CTevPsMonitorTest, TheCommandLineIsEncodedOnceForEveryQueriedFile) {
    const CallTrace trace;

    EXPECT_TRUE(Run(Message(Launch("/opt/tool", R"(,"cmd":"tool -x")") + "," +
                            Launch("/opt/tool", R"(,"cmd":5)"))));

    EXPECT_THAT(trace.Calls("encode "), ElementsAre("encode tool -x", "encode 5"));
}

TEST_F(CTevPsMonitorTest, AScriptRunByBashHasType1) {
    m_files.Redirect("/bin/bash", m_strReal);
    m_files.Redirect("/tmp/a.sh", m_dir.WriteFile("a.sh", ""));

    EXPECT_TRUE(Run(Message(Launch("/bin/bash", R"(,"cmd":"bash /tmp/a.sh")"))));

    EXPECT_EQ("1", Item("hi.type"));
}

TEST_F(CTevPsMonitorTest, AScriptRunByPython3HasType2) {
    m_files.Redirect("/usr/bin/python3", m_strReal);
    m_dir.WriteFile("run/x.py", "");

    EXPECT_TRUE(Run(Message(Launch("/usr/bin/python3", R"(,"cmd":"python3 -u x.py --flag")"))));

    EXPECT_EQ("2", Item("hi.type"));
}

TEST_F(CTevPsMonitorTest, TheEventNeverHoldsTheCommandLine) {
    EXPECT_TRUE(Run(Message(Launch("/opt/tool", R"(,"cmd":"tool --secret")"))));

    ASSERT_EQ(1u, m_router.Posts().size());
    EXPECT_THAT(m_router.Posts().front().strData, Not(HasSubstr("hi.command_line")));
    EXPECT_THAT(m_router.Posts().front().strData, Not(HasSubstr("dG9vbCAtLXNlY3JldA==")));
}

TEST_F(CTevPsMonitorTest, IdsAbove31BitsPrintNegative) {
    struct stat status = Status();
    status.st_uid = 4294967290U;
    status.st_gid = 2147483648U;
    m_files.SetStatus("/opt/tool", status);

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_EQ("-6", Item("hi.fileuid"));
    EXPECT_EQ("-2147483648", Item("hi.filegid"));
}

TEST_F(CTevPsMonitorTest, AnInodeIsASignedNumberOf64Bits) {
    struct stat status = Status();
    status.st_ino = 5000000000;
    m_files.SetStatus("/opt/tool", status);
    m_files.Redirect("/opt/other", m_strReal);
    status.st_ino = 18446744073709551615ULL;
    m_files.SetStatus("/opt/other", status);

    EXPECT_TRUE(Run(Message(Launch("/opt/tool") + "," + Launch("/opt/other"))));

    EXPECT_EQ("5000000000", Item("hi.fileinode", 0));
    EXPECT_EQ("-1", Item("hi.fileinode", 1));
}

TEST_F(CTevPsMonitorTest, AFileTimeWithoutADateIsAnEmptyText) {
    struct stat status = Status();
    status.st_mtim.tv_sec = 9223372036854775807;
    m_files.SetStatus("/opt/tool", status);

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_EQ("", Item("hi.filemtime"));
    EXPECT_EQ("2020-01-31 08:05:11.0", Item("hi.filectime"));
}

TEST_F(CTevPsMonitorTest, TheEventsPathIsMaskedAndTheQuerysPathIsNot) {
    m_files.Redirect("/home/alice/run.sh", m_strReal);
    m_files.Redirect("/home/alice", m_dir.Path());
    const FakeUsers users({{"alice", "/home/alice"}});

    EXPECT_TRUE(Run(Message(Launch("/home/alice/run.sh"))));

    EXPECT_EQ("/home/$username/run.sh", Item("hi.process_path"));
    EXPECT_EQ("/home/alice/run.sh", SentPath());
}

TEST_F(CTevPsMonitorTest, APathOutsideAsciiIsSentEscapedAndFoundUnescaped) {
    const std::string strLetter = m_dir.WriteFile("\xc3\xa4", "abc");
    const std::string strInvalid = m_dir.WriteFile("\xff", "abc");

    EXPECT_TRUE(Run(Message(Launch(strLetter) + "," + Launch(m_dir.Path() + "/\\u00e4") + "," +
                            Launch(strInvalid))));

    const std::vector<SentMessage> posts = m_router.Posts();
    ASSERT_EQ(3u, posts.size());
    EXPECT_THAT(posts[0].strData, HasSubstr(m_dir.Path() + R"(/\u00e4")"));
    EXPECT_EQ(posts[0].strData, posts[1].strData);
    EXPECT_THAT(posts[2].strData, HasSubstr(m_dir.Path() + R"(/\ufffd")"));
}

TEST_F(CTevPsMonitorTest, APathThatIsANumberIsReadAsItsText) {
    m_dir.WriteFile("run/5", "abc");

    EXPECT_TRUE(Run(Message(R"({"path":5})")));

    EXPECT_EQ("5", SentPath());
}

TEST_F(CTevPsMonitorTest, TheProcessHasOne) {
    ASSERT_NE(nullptr, CTevPsMonitor::Instance());
    EXPECT_EQ(CTevPsMonitor::Instance(), CTevPsMonitor::Instance());
}
