// Which launches of a batch are queried, what happens when one fails, and in which order the calls
// of one launch come.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/FakeClock.h"
#include "tests/support/FakeUsers.h"
#include "tests/support/StdoutCapture.h"
#include "tests/unit/tevmon/core/PsMonitorTest.h"
#include "tevmon/core/CTevPsMonitor.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(CTevPsMonitorTest, AnElementWithoutPathIsSkippedSilently) {
    EXPECT_TRUE(Run(Message(R"({},{"pid":1,"cmd":"x"},[],"path",null,5,[{"path":"/opt/tool"}])")));

    EXPECT_THAT(m_router.Posts(), IsEmpty());
    EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(CTevPsMonitorTest, APathThatIsNoRegularFileIsSkippedSilently) {
    ASSERT_EQ(0, mkfifo("fifo", 0700));
    ASSERT_EQ(0, symlink("nowhere", "broken"));
    const std::string strNul = "\\u0000";

    EXPECT_TRUE(
        Run(Message(Launch(m_dir.Path()) + "," + Launch(m_dir.Path() + "/missing") + "," +
                    Launch("/dev/null") + "," + Launch("fifo") + "," + Launch("broken") + "," +
                    Launch("") + "," + Launch(m_strReal + strNul) + "," + Launch(m_strReal + "/") +
                    R"(,{"path":null},{"path":{}},{"path":[]})")));

    EXPECT_THAT(m_router.Posts(), IsEmpty());
    EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(CTevPsMonitorTest, AFileWithALivingVerdictGivesOneSkipLineAndNoQuery) {
    FakeClock clock(1000);
    Verdict(30);
    clock.Set(2200);

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_THAT(m_router.Posts(), IsEmpty());
    ASSERT_EQ(1u, m_log.All().size());
    const CapturedLog line = m_log.All().front();
    EXPECT_EQ("[CTevPsMonitor] /opt/tool in cacho, skip [lanuch]", line.strText);
    EXPECT_EQ(1, line.nLevel);
    EXPECT_EQ("tevmon/core/CTevPsMonitor", line.strSource);
    EXPECT_EQ("Run", line.strFunction);
}

TEST_F(CTevPsMonitorTest, TheSecondAfterAVerdictsLastItsFileIsQueriedAgain) {
    FakeClock clock(1000);
    Verdict(30);
    clock.Set(2201);

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_EQ(1u, m_router.Posts().size());
    EXPECT_THAT(m_log.Texts(1), Not(testing::Contains(HasSubstr("in cacho"))));
}

TEST_F(CTevPsMonitorTest, AVerdictOfAnyLevelCounts) {
    const FakeClock clock(1000);
    Verdict(70);

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_THAT(m_router.Posts(), IsEmpty());
}

TEST_F(CTevPsMonitorTest, AVerdictBelongsToTheContentNotToThePath) {
    const FakeClock clock(1000);
    Verdict(10);
    m_files.Redirect("/opt/copy", m_dir.WriteFile("copy", "abc", 0755));
    m_files.Redirect("/opt/other", m_dir.WriteFile("other", "abd", 0755));

    EXPECT_TRUE(Run(Message(Launch("/opt/copy") + "," + Launch("/opt/other"))));

    ASSERT_EQ(1u, m_router.Posts().size());
    EXPECT_EQ("/opt/other", SentPath());
}

TEST_F(CTevPsMonitorTest, AQueryAloneLeavesNoVerdictSoTheNextLaunchAsksAgain) {
    EXPECT_TRUE(Run(Message(Launch("/opt/tool") + "," + Launch("/opt/tool"))));
    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_EQ(3u, m_router.Posts().size());
    CachoRecord record;
    EXPECT_FALSE(CTevCloudCachoMgr::Instance()->GetRecord(ABC_KEY, record));
}

TEST_F(CTevPsMonitorTest, AnEmptyBatchReturnsTrueAndPostsNothing) {
    EXPECT_TRUE(Run(R"({"param":[]})"));

    EXPECT_THAT(m_router.Posts(), IsEmpty());
    EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(CTevPsMonitorTest, AParamThatIsNoArrayHasNoElementsAndReturnsTrue) {
    for (const char* pszParam : {R"({"path":"/opt/tool"})", R"({"0":{"path":"/opt/tool"}})",
                                 R"("/opt/tool")", "5", "1.5", "true", "null"}) {
        EXPECT_TRUE(Run(std::string(R"({"param":)") + pszParam + "}")) << pszParam;
    }

    EXPECT_THAT(m_router.Posts(), IsEmpty());
    EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(CTevPsMonitorTest, WhatDoesNotParseOrHasNoParamReturnsFalseSilently) {
    const std::string strDeep =
        "{\"param\":" + std::string(2000, '[') + std::string(2000, ']') + "}";
    for (const std::string& strMessage :
         {std::string(), std::string("{"), std::string("{\"param\":[}"), std::string("{}"),
          std::string("{\"Param\":[]}"), std::string("[{\"param\":[]}]"), std::string("\"param\""),
          std::string("5"), std::string("null"), std::string("\0", 1), strDeep}) {
        EXPECT_FALSE(Run(strMessage)) << strMessage;
    }

    EXPECT_THAT(m_router.Posts(), IsEmpty());
    EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(CTevPsMonitorTest, OtherKeysAreIgnored) {
    EXPECT_TRUE(CTevPsMonitor::Instance()->Run("a sender",
                                               R"({"grup":5,"context":[],"param":[{"uid":"x",)"
                                               R"("path":"/opt/tool","ppid":{}}]})"));

    EXPECT_EQ("/opt/tool", SentPath());
}

TEST_F(CTevPsMonitorTest, ElementsAreProcessedInOrderAndNoneIsMerged) {
    m_files.Redirect("/opt/other", m_strReal);

    EXPECT_TRUE(
        Run(Message(Launch("/opt/tool", R"(,"pid":1)") + "," + Launch("/opt/other", R"(,"pid":2)") +
                    "," + Launch("/opt/tool", R"(,"pid":3)"))));

    ASSERT_EQ(3u, m_router.Posts().size());
    EXPECT_EQ("1", Item("hi.process_id", 0));
    EXPECT_EQ("2", Item("hi.process_id", 1));
    EXPECT_EQ("3", Item("hi.process_id", 2));
}

TEST_F(CTevPsMonitorTest, AFileThatVanishesBeforeItsStatusIsReadIsLogged) {
    m_files.VanishAfter("/opt/%s%n", 1);
    m_files.Redirect("/opt/%s%n", m_strReal);

    EXPECT_TRUE(Run(Message(Launch("/opt/%s%n") + "," + Launch("/opt/tool"))));

    ASSERT_THAT(m_log.Texts(4), ElementsAre("[CTevPsMonitor] stat faid [/opt/%s%n]"));
    const CapturedLog line = m_log.All().front();
    EXPECT_EQ("tevmon/core/CTevPsMonitor", line.strSource);
    EXPECT_EQ("Run", line.strFunction);
    ASSERT_EQ(1u, m_router.Posts().size());
    EXPECT_EQ("/opt/tool", SentPath());
}

TEST_F(CTevPsMonitorTest, AFileThatVanishesBeforeItIsHashedIsLogged) {
    m_files.SetStatus("/opt/gone", Status());
    m_files.Redirect("/opt/gone", m_dir.Path() + "/missing");

    EXPECT_TRUE(Run(Message(Launch("/opt/gone") + "," + Launch("/opt/tool"))));

    ASSERT_THAT(m_log.Texts(4), ElementsAre("[CTevPsMonitor] calc md5 faid! [/opt/gone][lanuch]"));
    EXPECT_EQ("Run", m_log.All().front().strFunction);
    ASSERT_EQ(1u, m_router.Posts().size());
    EXPECT_EQ("/opt/tool", SentPath());
}

TEST_F(CTevPsMonitorTest, AProgramTooLargeToHashIsLoggedAndNotQueried) {
    const std::string strHuge = m_dir.WriteFile("huge", "", 0755);
    ASSERT_EQ(0, truncate(strHuge.c_str(), 4LL * 1024 * 1024 * 1024 + 1));  // sparse

    EXPECT_TRUE(Run(Message(Launch(strHuge))));

    EXPECT_THAT(m_log.Texts(),
                ElementsAre("[CTevPsMonitor] calc md5 faid! [" + strHuge + "][lanuch]"));
    EXPECT_THAT(m_router.Posts(), IsEmpty());
}

TEST_F(CTevPsMonitorTest, AFailedPostIsLoggedAndTheBatchGoesOn) {
    m_router.nPostResult = 1;

    EXPECT_TRUE(Run(Message(Launch("/opt/tool") + "," + Launch("/opt/tool"))));

    EXPECT_EQ(2u, m_router.Posts().size());
    EXPECT_THAT(m_log.Texts(4), ElementsAre("[CTevCloudInterface] : ipc fail.\n",
                                            "[CTevCloudInterface] : ipc fail.\n"));
}

TEST_F(CTevPsMonitorTest, WithoutARouterTheMessageIsHandledAllTheSame) {
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_THAT(m_log.Texts(4), ElementsAre("[CTevCloudInterface] : ipc fail.\n"));
}

TEST_F(CTevPsMonitorTest, AnExceptionInOneElementDoesNotReachItsNeighbours) {
    m_router.bThrowOnce = true;

    EXPECT_TRUE(Run(
        Message(Launch("/opt/tool", R"(,"pid":1)") + "," + Launch("/opt/tool", R"(,"pid":2)"))));

    ASSERT_EQ(1u, m_router.Posts().size());
    EXPECT_EQ("2", Item("hi.process_id"));
}

TEST_F(CTevPsMonitorTest, ALaunchWhoseEventCannotBeBuiltIsSentEmpty) {
    const FakeUsers users({{"alice", "/home/alice"}});
    FakeUsers::FailOnceAfter(0);  // the masking of the path finds no memory

    EXPECT_TRUE(Run(Message(Launch("/opt/tool") + "," + Launch("/opt/tool", R"(,"pid":2)"))));

    ASSERT_EQ(2u, m_router.Posts().size());
    EXPECT_EQ("", m_router.Posts()[0].strData);
    EXPECT_EQ(1u, m_log.Count("reportq = "));
    EXPECT_EQ("2", Item("hi.process_id", 1));
}

TEST_F(CTevPsMonitorTest, WithoutADatabaseEveryFileIsQueried) {
    const TestDir elsewhere(false);
    const StdoutCapture output;  // where the store complains

    EXPECT_TRUE(Run(Message(Launch("/opt/tool"))));

    EXPECT_EQ("/opt/tool", SentPath());
}

// The calls of one launch: the script before the status, the times before the digests, these
// before the cache, the command line's text before the masking.
class CTevPsMonitorOrderTest : public CTevPsMonitorTest {
protected:
    CTevPsMonitorOrderTest() {
        m_dir.WriteFile("run/a.sh", "");
        struct stat status = Status();
        status.st_atim.tv_sec = 100;
        status.st_mtim.tv_sec = 200;
        status.st_ctim.tv_sec = 300;
        m_files.Redirect("/opt/bash", m_strReal);
        m_files.SetStatus("/opt/bash", status);
        m_files.Redirect("/home/alice", m_dir.Path());
        CTevCloudCachoMgr::Instance();  // opens its database before the trace begins
    }

    const std::string m_strMessage = Message(Launch("/opt/bash", R"(,"cmd":"bash a.sh")"));
    const std::string m_strSelect =
        std::string("sql select * from cachotable  where vkey = '") + ABC_KEY + "'";
};

TEST_F(CTevPsMonitorOrderTest, AQueriedLaunchMakesItsCallsInTheReliedOnOrder) {
    const FakeUsers users({{"alice", "/home/alice"}});
    const CallTrace trace;

    EXPECT_TRUE(Run(m_strMessage));

    EXPECT_THAT(
        trace.Calls(),
        ElementsAre("stat /opt/bash", "stat bash", "stat a.sh", "stat /opt/bash", "localtime_r 100",
                    "localtime_r 200", "localtime_r 300", "hash /opt/bash", "sql begin transaction",
                    m_strSelect, "sql commit transaction", "encode bash a.sh", "stat /home/alice",
                    "post"));
}

TEST_F(CTevPsMonitorOrderTest, ALaunchWithALivingVerdictSavesOnlyWhatComesAfterTheLookup) {
    const FakeClock clock(1000);
    Verdict(10);
    const CallTrace trace;

    EXPECT_TRUE(Run(m_strMessage));

    EXPECT_THAT(
        trace.Calls(),
        ElementsAre("stat /opt/bash", "stat bash", "stat a.sh", "stat /opt/bash", "localtime_r 100",
                    "localtime_r 200", "localtime_r 300", "hash /opt/bash", "sql begin transaction",
                    m_strSelect, "sql commit transaction"));
}

TEST_F(CTevPsMonitorOrderTest, TheScriptIsLookedForEvenWhenTheStatusFails) {
    m_files.VanishAfter("/opt/bash", 1);
    const CallTrace trace;

    EXPECT_TRUE(Run(m_strMessage));

    EXPECT_THAT(trace.Calls(),
                ElementsAre("stat /opt/bash", "stat bash", "stat a.sh", "stat /opt/bash"));
}

TEST_F(CTevPsMonitorOrderTest, WhatCannotBeHashedNeverReachesTheCache) {
    ASSERT_EQ(0, unlink(m_strReal.c_str()));
    const CallTrace trace;

    EXPECT_TRUE(Run(m_strMessage));

    EXPECT_EQ("hash /opt/bash", trace.Calls().back());
    EXPECT_THAT(trace.Calls("sql "), IsEmpty());
}
