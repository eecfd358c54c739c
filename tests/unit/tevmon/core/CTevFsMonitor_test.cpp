// Each test runs in a process of its own under ctest: the verdict cache is the process's.
#include "tevmon/core/CTevFsMonitor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>

#include <cstdlib>
#include <stdexcept>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/FakeUsers.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"
#include "tevmon/core/AutoRunLocations.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

using testing::HasSubstr;

namespace {

// SHA-1 then MD5 of "abc".
constexpr char KEY_OF_ABC[] =
    "a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72";

constexpr char CREATE_QUERY[] =
    R"({"msg_type":"cloudq","param":{"context":"","event_id_key":"fdid","event_id_value":"1",)"
    R"("ext":[{"key":"hi.event_name","value":"FileCreate"},)"
    R"({"key":"hi.file_create_path","value":"/etc/cron.d/job"},)"
    R"({"key":"hi.type","value":"0"}],"func":"cloudfd","path":"/etc/cron.d/job","path_type":0},)"
    R"("resp_msg_type":20003})";

class CTevFsMonitorTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        CMsgRouterHolder::Instance()->SetRouter(&m_router);
        m_strProgram = m_dir.WriteFile("bin/program", "abc", 0755);
    }
    void TearDown() override { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    CTevFsMonitor& Monitor() { return *CTevFsMonitor::Instance(); }

    FsOpEvent Event(const std::string& strOperation, const std::string& strPath) const {
        FsOpEvent event;
        event.operation = strOperation;
        event.path = strPath;
        event.path_class = GetPathClass(strPath);
        event.exe_path = m_strProgram;
        return event;
    }

    // An element of a message, with m_strProgram as the acting program.
    std::string Element(const std::string& strOperation, const std::string& strPath) const {
        return R"({"path":")" + strPath + R"(","optertion":")" + strOperation +
               R"(","exe_path":")" + m_strProgram + R"("})";
    }

    bool Parse(const std::string& strElements) {
        return Monitor().ParseFsOpMsg("", R"({"param":[)" + strElements + "]}");
    }

    // A path that lies in an autostart location by its text, and in the test's directory in truth.
    std::string Watched(const std::string& strName) const {
        return "/etc/profile.d/../.." + m_dir.Path() + "/" + strName;
    }

    std::string MakePipe(unsigned nMode) const {
        const std::string strPipe = m_dir.Path() + "/pipe";
        EXPECT_EQ(0, mkfifo(strPipe.c_str(), 0600));
        EXPECT_EQ(0, chmod(strPipe.c_str(), nMode));
        return strPipe;
    }

    void Judge(int32_t nLevel, int64_t nLifetime) {
        ASSERT_TRUE(
            CTevCloudCachoMgr::Instance()->Record(KEY_OF_ABC, nLevel, nLifetime, 6, "detail"));
    }

    std::vector<std::string> Queries() const {
        std::vector<std::string> queries;
        for (const SentMessage& message : m_router.Posts()) {
            queries.push_back(message.strData);
        }
        return queries;
    }

    TestDir m_dir;
    FakeRouter m_router;
    LogCapture m_log;
    std::string m_strProgram;
};

TEST_F(CTevFsMonitorTest, AnElementWithoutPathIsSkippedAndItsNeighboursAreRouted) {
    EXPECT_TRUE(Parse(Element("create", "/etc/cron.d/job") + R"(,{"optertion":"create"},)" +
                      Element("remove", "/etc/cron.d/job")));

    ASSERT_EQ(2U, Queries().size());
    EXPECT_EQ(CREATE_QUERY, Queries()[0]);
    EXPECT_THAT(Queries()[1], HasSubstr("FileDelete"));
}

TEST_F(CTevFsMonitorTest, AnEmptyBatchIsAcceptedAndRunsNothing) {
    EXPECT_TRUE(Parse(""));

    EXPECT_TRUE(Queries().empty());
    EXPECT_TRUE(m_log.All().empty());
}

TEST_F(CTevFsMonitorTest, OnlyATextThatDoesNotParseOrHasNoParamIsRefused) {
    EXPECT_FALSE(Monitor().ParseFsOpMsg("", ""));
    EXPECT_FALSE(Monitor().ParseFsOpMsg("", "{"));
    EXPECT_FALSE(Monitor().ParseFsOpMsg("", "[]"));
    EXPECT_FALSE(Monitor().ParseFsOpMsg("", "1"));
    EXPECT_FALSE(Monitor().ParseFsOpMsg("", R"({"params":[]})"));
    EXPECT_TRUE(Monitor().ParseFsOpMsg("", R"({"param":null})"));
    EXPECT_TRUE(Monitor().ParseFsOpMsg("", R"({"param":{"path":"/etc/cron.d/job"}})"));
    EXPECT_TRUE(Monitor().ParseFsOpMsg("", R"({"param":[1,null,"x",[],{}]})"));
    EXPECT_TRUE(Queries().empty());
}

TEST_F(CTevFsMonitorTest, ACreateRunsTheThreeHandlersInTheirOrder) {
    // Every handler logs its own failure for a program that cannot be hashed, were it reached; the
    // path is watched by the first and the third and is a pipe for the second.
    const std::string strPipe = "/etc/profile.d/../systemd/../.." + MakePipe(0644);
    FsOpEvent event = Event("create", strPipe);
    event.exe_path = "/nonexistent";

    EXPECT_TRUE(Parse(R"({"path":")" + strPipe +
                      R"(","optertion":"create","exe_path":"/nonexistent"},)"
                      R"({"path":"/etc/systemd/system/../..)" +
                      strPipe + R"(.service","optertion":"create","exe_path":"/nonexistent"})"));

    std::vector<std::string> functions;
    for (const CapturedLog& record : m_log.All()) {
        functions.push_back(record.strFunction);
    }
    EXPECT_EQ((std::vector<std::string>{"FileCreateHandler", "ProcessPipeHandler",
                                        "ProcessPipeHandler", "AddAutoRunsHandler"}),
              functions);
}

TEST_F(CTevFsMonitorTest, AnotherCaseOrAnotherNameOfAnOperationRunsNothing) {
    EXPECT_TRUE(Parse(Element("Create", "/etc/cron.d/job") + "," +
                      Element("delete", "/etc/cron.d/job") + "," + Element("", "/etc/cron.d/job")));

    EXPECT_TRUE(Queries().empty());
    EXPECT_TRUE(m_log.All().empty());
}

TEST_F(CTevFsMonitorTest, TheKeyOperationInsteadOfOptertionRunsNothing) {
    EXPECT_TRUE(Parse(R"({"path":"/etc/cron.d/job","operation":"create","exe_path":")" +
                      m_strProgram + R"("})"));

    EXPECT_TRUE(Queries().empty());
}

TEST_F(CTevFsMonitorTest, NumbersThatDoNotFitNeverCostAnEvent) {
    EXPECT_TRUE(Parse(R"({"path":"/etc/cron.d/job","optertion":"create","exe_path":")" +
                      m_strProgram +
                      R"(","ino":9223372036854775807,"exe_pid":99999999999,"time":1e300,)"
                      R"("fs_type":[],"disk_type":{},"result":true})"));

    EXPECT_EQ((std::vector<std::string>{CREATE_QUERY}), Queries());
}

TEST_F(CTevFsMonitorTest, AHandlerCalledWithAnotherOperationDoesNothing) {
    const std::string strPipe = MakePipe(0644);

    Monitor().FileCreateHandler(Event("remove", "/etc/cron.d/job"));
    Monitor().FileDeleteHandler(Event("create", "/etc/cron.d/job"));
    Monitor().FileModifyHandler(Event("create", "/etc/cron.d/job"));
    Monitor().FileRenameHandler(Event("create", "/etc/cron.d/job"));
    Monitor().ProcessPipeHandler(Event("write", strPipe));
    Monitor().AddAutoRunsHandler(Event("write", "/etc/systemd/system/a.service"));

    EXPECT_TRUE(Queries().empty());
    EXPECT_TRUE(m_log.All().empty());
}

TEST_F(CTevFsMonitorTest, IsInCachoHoldsThroughTheLastSecondAndNotTheNext) {
    FakeClock clock(1000);
    Judge(40, 1200);

    clock.Set(2200);
    EXPECT_TRUE(Monitor().IsInCacho(KEY_OF_ABC));
    clock.Set(2201);
    EXPECT_FALSE(Monitor().IsInCacho(KEY_OF_ABC));
    EXPECT_FALSE(Monitor().IsInCacho("another key"));
    EXPECT_FALSE(Monitor().IsInCacho(""));
}

TEST_F(CTevFsMonitorTest, CompareCachoLevelComparesWithTheValueOnTheLeft) {
    Judge(20, 1200);
    struct Row {
        int32_t nValue;
        const char* pszOp;
        bool bResult;
    };
    for (const Row& row :
         {Row{20, ">=", true}, Row{19, ">=", false}, Row{21, ">", true}, Row{20, ">", false},
          Row{19, "<", true}, Row{20, "<", false}, Row{20, "<=", true}, Row{21, "<=", false},
          Row{20, "==", true}, Row{-20, "==", false}, Row{-1, "<", true}}) {
        bool bResult = !row.bResult;
        EXPECT_TRUE(Monitor().CompareCachoLevel(KEY_OF_ABC, row.nValue, row.pszOp, bResult));
        EXPECT_EQ(row.bResult, bResult) << row.nValue << row.pszOp;
    }
}

TEST_F(CTevFsMonitorTest, CompareCachoLevelWritesFalseForLevelTwentyOne) {
    Judge(21, 1200);
    bool bResult = true;

    EXPECT_TRUE(Monitor().CompareCachoLevel(KEY_OF_ABC, 20, ">=", bResult));

    EXPECT_FALSE(bResult);
}

TEST_F(CTevFsMonitorTest, CompareCachoLevelLeavesItsResultAloneWithoutALivingVerdict) {
    FakeClock clock(1000);
    for (const bool bBefore : {true, false}) {
        bool bResult = bBefore;
        EXPECT_FALSE(Monitor().CompareCachoLevel("missing", 20, ">=", bResult));
        EXPECT_EQ(bBefore, bResult);
    }
    Judge(20, 10);
    clock.Set(1011);
    bool bResult = false;
    EXPECT_FALSE(Monitor().CompareCachoLevel(KEY_OF_ABC, 20, ">=", bResult));
    EXPECT_FALSE(bResult);
}

TEST_F(CTevFsMonitorTest, CompareCachoLevelLeavesItsResultAloneForAnUnknownOperator) {
    Judge(20, 1200);
    for (const char* pszOp : {"!=", "", "=>", "= ="}) {
        for (const bool bBefore : {true, false}) {
            bool bResult = bBefore;
            EXPECT_TRUE(Monitor().CompareCachoLevel(KEY_OF_ABC, 20, pszOp, bResult));
            EXPECT_EQ(bBefore, bResult) << pszOp;
        }
    }
}

TEST_F(CTevFsMonitorTest, AFileOutsideEveryAutostartLocationPostsNothing) {
    EXPECT_TRUE(Parse(Element("create", "/opt/job") + "," + Element("remove", "/opt/job") + "," +
                      Element("write", "/opt/job") + "," + Element("rename", "/opt/job")));

    EXPECT_TRUE(Queries().empty());
}

TEST_F(CTevFsMonitorTest, CreateTakesClassOneOnlyAndTheOthersClassTwoAsWell) {
    FsOpEvent event = Event("create", Watched("file"));
    (void)m_dir.WriteFile("file", "x");
    event.path_class = PathClassTwo;

    Monitor().FileCreateHandler(event);
    EXPECT_TRUE(Queries().empty());

    for (const char* pszOperation : {"remove", "write", "rename"}) {
        event.operation = pszOperation;
        Monitor().FileDeleteHandler(event);
        Monitor().FileModifyHandler(event);
        Monitor().FileRenameHandler(event);
    }
    ASSERT_EQ(3U, Queries().size());
    for (const std::string& strQuery : Queries()) {
        EXPECT_THAT(strQuery, HasSubstr(R"({"key":"hi.type","value":"1"})"));
    }
}

TEST_F(CTevFsMonitorTest, ACreatePostsThreeItemsAndPathTypeZero) {
    Monitor().FileCreateHandler(Event("create", "/etc/cron.d/job"));

    EXPECT_EQ((std::vector<std::string>{CREATE_QUERY}), Queries());
    EXPECT_EQ(20004, m_router.Posts()[0].nMsgType);
}

TEST_F(CTevFsMonitorTest, ARemovePostsPathTypeOne) {
    Monitor().FileDeleteHandler(Event("remove", "/etc/cron.d/job"));

    EXPECT_EQ((std::vector<std::string>{
                  R"({"msg_type":"cloudq","param":{"context":"","event_id_key":"fdid",)"
                  R"("event_id_value":"1","ext":[{"key":"hi.event_name","value":"FileDelete"},)"
                  R"({"key":"hi.file_path","value":"/etc/cron.d/job"},)"
                  R"({"key":"hi.type","value":"0"}],"func":"cloudfd","path":"/etc/cron.d/job",)"
                  R"("path_type":1},"resp_msg_type":20003})"}),
              Queries());
}

TEST_F(CTevFsMonitorTest, ARenamePostsAnEmptyNewPathAndPathTypeOne) {
    Monitor().FileRenameHandler(Event("rename", "/etc/cron.d/job"));

    EXPECT_EQ((std::vector<std::string>{
                  R"({"msg_type":"cloudq","param":{"context":"","event_id_key":"fdid",)"
                  R"("event_id_value":"1","ext":[{"key":"hi.event_name","value":"FileRename"},)"
                  R"({"key":"hi.old_file_path","value":"/etc/cron.d/job"},)"
                  R"({"key":"hi.type","value":"0"},{"key":"hi.new_file_path","value":""}],)"
                  R"("func":"cloudfd","path":"/etc/cron.d/job","path_type":1},)"
                  R"("resp_msg_type":20003})"}),
              Queries());
}

TEST_F(CTevFsMonitorTest, AWritePostsTheModificationTimeWithoutPadding) {
    const std::string strFile = m_dir.WriteFile("file", "x");
    const timespec times[2] = {{1, 1}, {1700000000, 5}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, strFile.c_str(), times, 0));

    Monitor().FileModifyHandler(Event("write", Watched("file")));

    const std::string strPath = Watched("file");
    EXPECT_EQ((std::vector<std::string>{
                  R"({"msg_type":"cloudq","param":{"context":"","event_id_key":"fdid",)"
                  R"("event_id_value":"1","ext":[{"key":"hi.event_name","value":"FileModify"},)"
                  R"({"key":"hi.file_path","value":")" +
                  strPath +
                  R"("},{"key":"hi.type","value":"0"},)"
                  R"({"key":"hi.gap_time","value":"2023-11-14 22:13:20.5"}],"func":"cloudfd",)"
                  R"("path":")" +
                  strPath + R"(","path_type":0},"resp_msg_type":20003})"}),
              Queries());
}

TEST_F(CTevFsMonitorTest, AWriteByACachedProgramIsSkippedWhetherTheFileExistsOrNot) {
    Judge(70, 1200);
    (void)m_dir.WriteFile("there", "x");

    Monitor().FileModifyHandler(Event("write", Watched("there")));
    Monitor().FileModifyHandler(Event("write", Watched("gone")));

    EXPECT_TRUE(Queries().empty());
    EXPECT_EQ((std::vector<std::string>{
                  "[CTevFsMonitor] " + Watched("there") + " in cacho, skip [write]",
                  "[CTevFsMonitor] " + Watched("gone") + " in cacho, skip [write]"}),
              m_log.Texts(1));
    EXPECT_TRUE(m_log.Texts(4).empty());
}

TEST_F(CTevFsMonitorTest, AWriteWhoseFileIsGoneLogsTheStatFailure) {
    Monitor().FileModifyHandler(Event("write", Watched("gone")));

    EXPECT_TRUE(Queries().empty());
    const auto records = m_log.Find("[CTevFsMonitor] stat faid [" + Watched("gone") + "]");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(4, records[0].nLevel);
    EXPECT_EQ("FileModifyHandler", records[0].strFunction);
    EXPECT_EQ("tevmon/core/CTevFsMonitor", records[0].strSource);
}

TEST_F(CTevFsMonitorTest, AProgramThatCannotBeHashedIsLoggedAndTheNextEventGoesOn) {
    const std::string strPipe = MakePipe(0644);
    std::string strElements;
    for (const std::string& strProgram :
         {std::string(), strPipe, std::string("/dev/null"), std::string("/proc"), m_dir.Path(),
          std::string("/nonexistent"), std::string("a\\u0000b")}) {
        strElements += R"({"path":"/etc/cron.d/job","optertion":"create","exe_path":")" +
                       strProgram + R"("},)";
    }

    EXPECT_TRUE(Parse(strElements + Element("create", "/etc/cron.d/job")));

    EXPECT_EQ((std::vector<std::string>{CREATE_QUERY}), Queries());
    const std::string strText = "[CTevFsMonitor] calc exepath md5 faid! [";
    EXPECT_EQ(1U, m_log.Count(strText + "][create]"));
    EXPECT_EQ(1U, m_log.Count(strText + strPipe + "][create]"));
    EXPECT_EQ(1U, m_log.Count(strText + "/dev/null][create]"));
    EXPECT_EQ(1U, m_log.Count(strText + "/proc][create]"));
    EXPECT_EQ(1U, m_log.Count(strText + "/nonexistent][create]"));
    EXPECT_EQ(1U, m_log.Count(strText + "a][create]"));
}

TEST_F(CTevFsMonitorTest, TheItemIsMaskedAndThePostedPathIsNot) {
    FakeUsers users({FakeUser{"job", "/home/"}});

    Monitor().FileCreateHandler(Event("create", "/etc/cron.d/job"));

    ASSERT_EQ(1U, Queries().size());
    EXPECT_THAT(Queries()[0],
                HasSubstr(R"({"key":"hi.file_create_path","value":"/etc/cron.d/$username"})"));
    EXPECT_THAT(Queries()[0], HasSubstr(R"("path":"/etc/cron.d/job")"));
}

TEST_F(CTevFsMonitorTest, ARegularFileIsNoPipe) {
    Monitor().ProcessPipeHandler(Event("create", m_strProgram));
    Monitor().ProcessPipeHandler(Event("create", m_dir.Path()));
    Monitor().ProcessPipeHandler(Event("create", "/dev/null"));

    EXPECT_TRUE(Queries().empty());
    EXPECT_TRUE(m_log.All().empty());
}

TEST_F(CTevFsMonitorTest, APipeThatIsGoneLogsTheStatFailure) {
    Monitor().ProcessPipeHandler(Event("create", "/nonexistent/pipe"));

    EXPECT_TRUE(Queries().empty());
    const auto records = m_log.Find("[CTevFsMonitor] stat faid [/nonexistent/pipe]");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("ProcessPipeHandler", records[0].strFunction);
}

TEST_F(CTevFsMonitorTest, APipePostsItsFullModeInOctalAndTheProgramAsPath) {
    const std::string strPipe = MakePipe(0600);

    Monitor().ProcessPipeHandler(Event("create", strPipe));

    EXPECT_EQ((std::vector<std::string>{
                  R"({"msg_type":"cloudq","param":{"context":")" + std::string(KEY_OF_ABC) +
                  R"(","event_id_key":"adid","event_id_value":"1000","ext":[)"
                  R"({"key":"hi.event_name","value":"ProcessPipe"},{"key":"hi.type","value":2},)"
                  R"({"key":"hi.operation","value":"create"},{"key":"hi.filepath","value":")" +
                  strPipe + R"("},{"key":"hi.mode","value":"10600"}],"func":"cloudfs","path":")" +
                  m_strProgram + R"(","path_type":0},"resp_msg_type":20003})"}),
              Queries());
}

TEST_F(CTevFsMonitorTest, APipeOfAProgramThatCannotBeHashedPrintsThePipesPath) {
    FsOpEvent event = Event("create", MakePipe(0600));
    event.exe_path = "/nonexistent";

    Monitor().ProcessPipeHandler(event);

    EXPECT_TRUE(Queries().empty());
    EXPECT_EQ(1U, m_log.Count("[CTevFsMonitor] calc md5 faid! [" + event.path + "]"));
}

TEST_F(CTevFsMonitorTest, APipeIsSkippedSilentlyUpToLevelTwenty) {
    Judge(20, 1200);
    m_log.Clear();

    Monitor().ProcessPipeHandler(Event("create", MakePipe(0600)));

    EXPECT_TRUE(Queries().empty());
    EXPECT_TRUE(m_log.All().empty());
}

TEST_F(CTevFsMonitorTest, APipeIsAskedAboutAgainFromLevelTwentyOne) {
    Judge(21, 1200);

    Monitor().ProcessPipeHandler(Event("create", MakePipe(0600)));

    EXPECT_EQ(1U, Queries().size());
}

TEST_F(CTevFsMonitorTest, APipeWithAnExpiredVerdictIsPosted) {
    FakeClock clock(1000);
    Judge(0, 10);
    clock.Set(1011);

    Monitor().ProcessPipeHandler(Event("create", MakePipe(0600)));

    EXPECT_EQ(1U, Queries().size());
}

TEST_F(CTevFsMonitorTest, APipeInAHomeIsMaskedInTheItemAndTheProgramPathIsRaw) {
    FakeUsers users({FakeUser{"pipe", "/home/"}});
    const std::string strPipe = MakePipe(0600);

    Monitor().ProcessPipeHandler(Event("create", strPipe));

    ASSERT_EQ(1U, Queries().size());
    EXPECT_THAT(Queries()[0],
                HasSubstr(R"({"key":"hi.filepath","value":")" + m_dir.Path() + R"(/$username"})"));
    EXPECT_THAT(Queries()[0], HasSubstr(R"("path":")" + m_strProgram + R"(")"));
}

TEST_F(CTevFsMonitorTest, AUnitPostsTwoItemsAndTheProgramAsPath) {
    Monitor().AddAutoRunsHandler(Event("create", "/etc/systemd/system/evil.service"));

    EXPECT_EQ((std::vector<std::string>{
                  R"({"msg_type":"cloudq","param":{"context":")" + std::string(KEY_OF_ABC) +
                  R"(","event_id_key":"fdid","event_id_value":"11","ext":[)"
                  R"({"key":"hi.event_name","value":"AddAutoRuns"},)"
                  R"({"key":"hi.filepath","value":"/etc/systemd/system/evil.service"}],)"
                  R"("func":"cloudfs","path":")" +
                  m_strProgram + R"(","path_type":0},"resp_msg_type":20003})"}),
              Queries());
}

TEST_F(CTevFsMonitorTest, AUnitIsPostedWhateverItsPathClass) {
    FsOpEvent event = Event("create", "/etc/systemd/system/evil.service");
    for (const PathClass ePathClass :
         {PathClassEmpty, PathClassAutoRun, PathClassTwo, PathClassOther}) {
        event.path_class = ePathClass;
        Monitor().AddAutoRunsHandler(event);
    }

    ASSERT_EQ(4U, Queries().size());
    EXPECT_EQ(std::vector<std::string>(4, Queries()[0]), Queries());
}

TEST_F(CTevFsMonitorTest, AUnitByACachedProgramIsSkippedWhateverTheLevel) {
    Judge(70, 1200);

    Monitor().AddAutoRunsHandler(Event("create", "/etc/systemd/system/evil.service"));

    EXPECT_TRUE(Queries().empty());
    EXPECT_EQ((std::vector<std::string>{
                  "[AddAutoRunsHandler] /etc/systemd/system/evil.service in cacho, skip [create]"}),
              m_log.Texts(1));
}

TEST_F(CTevFsMonitorTest, AUnitByAProgramThatCannotBeHashedPrintsTheProgramsPath) {
    FsOpEvent event = Event("create", "/etc/systemd/system/evil.service");
    event.exe_path = "/nonexistent";

    Monitor().AddAutoRunsHandler(event);

    EXPECT_TRUE(Queries().empty());
    EXPECT_EQ((std::vector<std::string>{"[AddAutoRunsHandler] calc md5 faid! [/nonexistent]"}),
              m_log.Texts(4));
}

// Fails at its first post only.
class ThrowingRouter : public FakeRouter {
public:
    uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                  uint32_t nLength) override {
        if (++nPosts == 1) {
            throw std::runtime_error("a router that throws");
        }
        return FakeRouter::Post(pTarget, nMsgType, pData, nLength);
    }
    int nPosts = 0;
};

TEST_F(CTevFsMonitorTest, WhatFailsInFileCreateHandlerLeavesThePipeToItsHandler) {
    ThrowingRouter router;
    CMsgRouterHolder::Instance()->SetRouter(&router);

    EXPECT_TRUE(Parse(Element("create", "/etc/profile.d/../.." + MakePipe(0644))));

    EXPECT_EQ(2, router.nPosts);
    ASSERT_EQ(1U, router.Posts().size());
    EXPECT_THAT(router.Posts()[0].strData, testing::HasSubstr("ProcessPipe"));
}

TEST_F(CTevFsMonitorTest, WhatFailsInProcessPipeHandlerLeavesTheUnitToItsHandler) {
    ThrowingRouter router;
    CMsgRouterHolder::Instance()->SetRouter(&router);
    const std::string strPipe = m_dir.Path() + "/x.service";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0644));

    EXPECT_TRUE(Parse(Element("create", "/etc/systemd/system/../../.." + strPipe)));

    EXPECT_EQ(2, router.nPosts);
    ASSERT_EQ(1U, router.Posts().size());
    EXPECT_THAT(router.Posts()[0].strData, testing::HasSubstr("AddAutoRuns"));
}

TEST_F(CTevFsMonitorTest, AnEventThatCannotBeBuiltIsSentEmptyByEachHandler) {
    const FakeUsers users({{"alice", "/home/alice"}});
    const std::string strPipe = MakePipe(0644);
    for (const std::string& strElement :
         {Element("create", "/etc/cron.d/job"), Element("remove", "/etc/cron.d/job"),
          Element("rename", "/etc/cron.d/job"), Element("write", Watched("bin/program")),
          Element("create", strPipe), Element("create", "/run/systemd/system/a.service")}) {
        FakeUsers::FailOnceAfter(0);  // the masking of the path finds no memory
        m_log.Clear();
        const size_t nBefore = Queries().size();

        EXPECT_TRUE(Parse(strElement));

        ASSERT_EQ(nBefore + 1, Queries().size()) << strElement;
        EXPECT_EQ("", Queries().back()) << strElement;
        EXPECT_EQ(1U, m_log.Count("reportq = ")) << strElement;
    }
}

TEST_F(CTevFsMonitorTest, OneCreateMayMakeSeveralHandlersPost) {
    // Watched by its text, a unit by its text, and a pipe in truth.
    const std::string strPipe = m_dir.Path() + "/x.service";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0644));

    EXPECT_TRUE(Parse(Element("create", "/etc/profile.d/../.." + strPipe) + "," +
                      Element("create", "/etc/systemd/system/../../.." + strPipe)));

    ASSERT_EQ(4U, Queries().size());
    EXPECT_THAT(Queries()[0], HasSubstr("FileCreate"));
    EXPECT_THAT(Queries()[1], HasSubstr("ProcessPipe"));
    EXPECT_THAT(Queries()[2], HasSubstr("ProcessPipe"));
    EXPECT_THAT(Queries()[3], HasSubstr("AddAutoRuns"));
}

}  // namespace
