#include "host/report/JsonLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/host/DistinctBalance.h"
#include "tests/support/host/OnTerminal.h"
#include "tests/support/host/RunHappenings.h"
#include "tests/unit/host/report/ReportedRun.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class JsonLinesTest : public ReportedRunTest {
protected:
    explicit JsonLinesTest(bool bWatch = false) : ReportedRunTest(bWatch) {
        m_report.UseJson();
        m_report.BeginPass({1, 1, "line", "events.jsonl"});
    }
};

class WatchJsonLinesTest : public JsonLinesTest {
protected:
    WatchJsonLinesTest() : JsonLinesTest(true) {}
};

// The records of single events, at a time of the test's own.
class JsonRecordTest : public testing::Test {
protected:
    // All that is written of it, without a line feed at the end.
    std::string Written(const RunEvent& event) {
        const StdoutCapture standardOutput;
        m_lines.OnEvent(event, 1700000000);
        std::string strText = standardOutput.Text();
        if (!strText.empty()) {
            strText.pop_back();
        }
        return strText;
    }

    Console m_output;
    HostOptions m_options;
    VerdictService m_service;
    RunJournal m_journal{m_service, {}, true};
    JsonLines m_lines{m_output, m_options, m_journal};
};

}  // namespace

TEST_F(JsonLinesTest, ADeliveredMessageIsARecordWithItsLine) {
    EventBatch batch;
    batch.nNumber = 17;
    batch.nEvents = 3;

    m_report.OnDelivered(batch, 0);

    EXPECT_EQ(0u, LastLine().find("{\"event\":\"delivered\",\"time\":"));
    EXPECT_THAT(LastLine(), HasSubstr(",\"line\":17,\"events\":3}"));
    EXPECT_EQ(1u, m_report.PassCounters().nMessages);
}

TEST_F(JsonLinesTest, AMessageThatWasNotDeliveredIsNotAcknowledged) {
    EventBatch batch;

    m_report.OnDelivered(batch, 1);

    EXPECT_EQ("", LastLine());
    EXPECT_EQ(0u, m_report.PassCounters().nMessages);
    EXPECT_EQ(1u, m_report.PassCounters().nNotDelivered);
}

TEST_F(JsonLinesTest, TheSummaryHoldsEveryPassAndWhatCameAfter) {
    m_report.OnModuleNote({NOTE_STAT_FAILED, "/a", EXPECTED_LAUNCH});
    m_report.EndPass(true);
    EXPECT_THAT(LastLine(), HasSubstr("\"stat_failed\":1"));
    m_report.OnModuleNote({NOTE_STAT_FAILED, "/b", EXPECTED_LAUNCH});

    m_report.Summary(RunEnd());

    EXPECT_THAT(LastLine(), HasSubstr("\"stat_failed\":2"));
    EXPECT_THAT(LastLine(), HasSubstr("\"queue_depth\":null"));
}

TEST_F(WatchJsonLinesTest, EachRunOfABadProgramHasARecordAnsweredOrKnown) {
    m_report.OnQuery(LaunchQuery("/bin/bad"), QUERY_ANSWERED, {70, "bad list", "x"});
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"bad_run")"));
    m_report.OnQuery(LaunchQuery("/bin/bad"), QUERY_NOT_DELIVERED, {70, "bad list", "x"});
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"query")"));

    m_report.OnQuery(LaunchQuery("/bin/bad"), QUERY_KNOWN, {70, "bad list", "x"});
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"bad_run")"));
}

TEST_F(WatchJsonLinesTest, ALaunchIsAJsonRecord) {
    m_report.OnLaunch(Started("/bin/a", "/bin/shell"));

    EXPECT_THAT(
        LastLine(),
        HasSubstr(
            R"("path":"/bin/a","cmd":"/bin/a x","pid":4711,"starter":"/bin/shell")"
            R"(,"origin":"invoked","script":false,"args_cut":false,"uid":0,"cgroup":"","container":"",)"
            R"("repeated":false})"));
}

TEST_F(WatchJsonLinesTest, EventsThatTheModuleDidNotGetAreAnnouncedOnce) {
    m_report.OnReported(OneLaunch(1, "/bin/a"));
    m_report.OnDelivered(OneEvent(1), 1);
    m_report.Progress("delivering");
    m_report.Progress("delivering");

    ASSERT_EQ(1u, m_standardOutput.Lines().size());
    EXPECT_THAT(LastLine(), HasSubstr(R"("event":"refused")"));
    EXPECT_THAT(LastLine(), HasSubstr(R"("events":1,"total":1})"));

    m_report.OnReported(OneLaunch(2, "/bin/a"));
    m_report.OnReported(OneLaunch(3, "/bin/a"));
    RunEnd end;
    end.queueDepth = 0;
    m_report.Summary(end);

    const std::string strAnnounced = m_standardOutput.Lines().at(1);
    EXPECT_THAT(strAnnounced, HasSubstr(R"("event":"not_stored")"));
    EXPECT_THAT(strAnnounced, HasSubstr(R"("events":2,"total":2})"));
}

TEST_F(WatchJsonLinesTest, AFileOperationIsAJsonRecord) {
    FileOperation operation;
    operation.eAct = FILE_RENAME;
    operation.strPath = "/etc/cron.d/x";
    operation.strProgram = "/bin/mv";
    operation.strProgramName = "/usr/bin/mv";
    operation.strFsType = "ext4";
    operation.nPid = 4711;
    operation.bPlace = true;

    m_report.OnOperation(operation);

    EXPECT_THAT(LastLine(), HasSubstr(R"("op":"rename","path":"/etc/cron.d/x","program":"/bin/mv",)"
                                      R"("program_name":"/usr/bin/mv","pid":4711,"fs":"ext4",)"
                                      R"("place":true,"pipe":false,"found":false})"));
}

TEST_F(JsonRecordTest, TheStartNamesModuleAndStateDirectory) {
    m_options.strStateDir = "/var/lib/\"x\"";
    EXPECT_EQ(
        R"({"event":"start","time":1700000000,"module":"/lib/a.so","state_dir":"/var/lib/\"x\""})",
        Written(RunBegun{"/lib/a.so"}));
}

TEST_F(JsonRecordTest, APassHasItsCountersAndWhichOneItIs) {
    PassResult result;
    result.counters.nEvents = 5;
    result.dSeconds = 1.5;
    EXPECT_EQ(
        R"({"event":"pass","time":1700000000,"pass":2,"passes":3,"drained":false,"messages":0,)"
        R"("events":5,"unusable":0,"not_delivered":0,"messages_analysed":0,"queries":0,"answers":0,)"
        R"("known":0,"no_key":0,"queries_lost":0,"queries_not_sent":0,"answers_by_level":{},)"
        R"("queries_by_level":{},"skips":{"cached":0,"unreadable":0,"stat_failed":0},)"
        R"("hashed_bytes":0,"centre":0,"seconds":1.500,"work_seconds":0.000})",
        Written(PassEnded{{2, 3, "line", "a"}, result, false}));
}

TEST_F(JsonRecordTest, TheBalanceStandsBeforeTheSummaryAndOnDemand) {
    RunEnd end;
    end.queueDepth = 7;
    end.bDrained = true;
    end.nSignal = 15;
    const std::string strBalance = Written(BalanceRequested{DistinctBalance()});
    EXPECT_THAT(strBalance, StartsWith(R"({"event":"balance","time":1700000000,"launches":{)"));
    EXPECT_THAT(strBalance,
                EndsWith(R"(,"outstanding":400,"bad_runs":408,"changed":409,"unexplained":7605})"));

    EXPECT_THAT(Written(RunEnded{end, PassResult(), {}, DistinctBalance()}),
                StartsWith(strBalance + "\n" +
                           R"({"event":"summary","time":1700000000,"drained":true,"signal":15,)"
                           R"("queue_depth":7,"messages":0,)"));
}

TEST_F(JsonRecordTest, AnUnusableInputIsARecordAndAComplaint) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(R"({"event":"unusable","time":1700000000,"line":12,"reason":"no \"text\"\u000a"})",
              Written(InputUnusable{"a.jsonl", 12, "no \"text\"\n"}));
    EXPECT_EQ("tevmon-host: a.jsonl, line 12: no \"text\"\\x0A\n",
              testing::internal::GetCapturedStderr());
}

TEST_F(JsonRecordTest, ANoticeIsARecordAndAComplaint) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(R"({"event":"notice","time":1700000000,"text":"a place\u001b"})",
              Written(SensorNotice{"a place\033"}));
    EXPECT_EQ("tevmon-host: a place\\x1B\n", testing::internal::GetCapturedStderr());
}

// Names and arguments are any bytes that a local user chose.
TEST_F(JsonRecordTest, ForeignBytesLeaveARecordOneValidLine) {
    Launch launch = Started("/tmp/\xFF\"}\n{\"event\":\"start\"", "/bin/\xC3\xA4");
    launch.creation.strCommand = "x\\\t";
    launch.creation.nPid = 4294967295;
    EXPECT_EQ(
        "{\"event\":\"launch\",\"time\":1700000000,"
        "\"path\":\"/tmp/\xEF\xBF\xBD\\\"}\\u000a{\\\"event\\\":\\\"start\\\"\","
        "\"cmd\":\"x\\\\\\u0009\",\"pid\":4294967295,\"starter\":\"/bin/\xC3\xA4\","
        "\"origin\":\"invoked\",\"script\":false,\"args_cut\":false,"
        "\"uid\":0,\"cgroup\":\"\",\"container\":\"\",\"repeated\":false}",
        Written(LaunchReported{launch}));
}

TEST_F(JsonRecordTest, ALaunchSaysWhereItsPathIsFromAndWhetherItIsAScript) {
    const std::pair<LaunchPathOrigin, std::string> ORIGINS[] = {{LAUNCH_PATH_NONE, "none"},
                                                                {LAUNCH_PATH_INVOKED, "invoked"},
                                                                {LAUNCH_PATH_RESOLVED, "resolved"},
                                                                {LAUNCH_PATH_PROC, "proc"}};
    for (const auto& origin : ORIGINS) {
        Launch launch;
        launch.eOrigin = origin.first;
        EXPECT_THAT(Written(LaunchReported{launch}),
                    HasSubstr(R"("origin":")" + origin.second + R"(","script":false,)"));
    }
    Launch script;
    script.bScript = true;
    EXPECT_THAT(Written(LaunchReported{script}), HasSubstr(R"("script":true,"args_cut":false,)"));
}

TEST_F(JsonRecordTest, ALaunchSaysWhoStartedItAndWhere) {
    Launch launch;
    launch.context = {1000, "/system.slice/docker-x.scope", "x"};
    EXPECT_THAT(
        Written(LaunchReported{launch}),
        HasSubstr(R"(,"uid":1000,"cgroup":"/system.slice/docker-x.scope","container":"x",)"));
}

TEST_F(JsonRecordTest, ARepeatIsALaunchThatSaysSo) {
    Launch launch;
    launch.creation.strPath = "/bin/a";
    EXPECT_THAT(Written(LaunchReported{launch}), HasSubstr(R"("event":"launch",)"));
    EXPECT_THAT(Written(LaunchReported{launch}), EndsWith(R"(,"repeated":false})"));
    EXPECT_THAT(Written(LaunchRepeated{launch}), HasSubstr(R"("event":"launch",)"));
    EXPECT_THAT(Written(LaunchRepeated{launch}), EndsWith(R"(,"repeated":true})"));
}

TEST_F(JsonRecordTest, AnUnresolvedLaunchIsNamedByItsPathOrAsItWasInvoked) {
    LaunchEvent event;
    event.strName = "./a";
    event.strCommand = "./a -x";
    event.nPid = 17;
    const LaunchContext context = {1000, "/a", ""};
    EXPECT_EQ(R"({"event":"unresolved","time":1700000000,"name":"./a","cmd":"./a -x","pid":17,)"
              R"("uid":1000,"cgroup":"/a","container":""})",
              Written(LaunchUnresolved{event, context}));

    event.strPath = "/tmp/a";
    EXPECT_EQ(R"({"event":"unresolved","time":1700000000,"name":"/tmp/a","cmd":"./a -x","pid":17,)"
              R"("uid":1000,"cgroup":"/a","container":""})",
              Written(LaunchUnresolved{event, context}));
}

TEST_F(JsonRecordTest, AFileOperationSaysWhetherItMadeAPipe) {
    FileOperation operation;
    operation.strPath = "/run/p";
    operation.bPipe = true;
    EXPECT_EQ(R"({"event":"file","time":1700000000,"op":"create","path":"/run/p","program":"",)"
              R"("program_name":"","pid":0,"fs":"","place":false,"pipe":true,"found":false})",
              Written(FileOperationReported{operation}));
    operation.eAct = FILE_REMOVE;
    EXPECT_THAT(Written(FileOperationReported{operation}), HasSubstr(R"("op":"remove")"));
    operation.eAct = FILE_WRITE;
    EXPECT_THAT(Written(FileOperationReported{operation}), HasSubstr(R"("op":"write")"));
}

TEST_F(JsonRecordTest, WhatWasLostHasItsNumberAndTheSumSinceTheStart) {
    EXPECT_EQ(R"({"event":"lost","time":1700000000,"launches":2,"total":5})",
              Written(LaunchesLost{2, 5}));
    EXPECT_EQ(R"({"event":"overflow","time":1700000000,"times":1,"total":3})",
              Written(FileQueueOverflowed{1, 3}));
    EXPECT_EQ(R"({"event":"refused","time":1700000000,"events":4,"total":9})",
              Written(EventsDropped{DROP_REFUSED, 4, 9}));
    EXPECT_EQ(R"({"event":"not_stored","time":1700000000,"events":4,"total":9})",
              Written(EventsDropped{DROP_NOT_STORED, 4, 9}));
}

TEST_F(JsonRecordTest, TheQueuesStatesHaveNames) {
    const std::pair<QueueState, std::string> STATES[] = {
        {QUEUE_NORMAL, "normal"}, {QUEUE_HIGH, "high"}, {QUEUE_FULL, "full"}};
    for (const auto& state : STATES) {
        QueueLoad load;
        load.eState = state.first;
        load.nRows = 1;
        load.nBytes = 2;
        load.nRefusedMessages = 3;
        load.nRefusedEvents = 4;
        EXPECT_EQ(R"({"event":"queue","time":1700000000,"state":")" + state.second +
                      R"(","rows":1,"bytes":2,"refused_messages":3,"refused_events":4})",
                  Written(QueueChanged{load}));
    }
}

TEST_F(JsonRecordTest, OnlyAnAnsweredQueryHasAVerdict) {
    const CloudQuery query = LaunchQuery("/bin/a");
    const std::string strQuery =
        R"({"event":"query","time":1700000000,"path":"/bin/a","func":"cloudad",)"
        R"("what":"CreateProcess","key":"key","fate":")";
    EXPECT_EQ(strQuery + R"(known"})",
              Written(QueryReceived{query, QUERY_KNOWN, {70, "bad list", "x"}}));
    EXPECT_EQ(strQuery + R"(answered"})" + "\n" +
                  R"({"event":"verdict","time":1700000000,"path":"/bin/a","key":"key","level":70,)"
                  R"("verdict":"bad","owner":"x","source":"bad list"})",
              Written(QueryReceived{query, QUERY_ANSWERED, {70, "bad list", "x"}}));
}

TEST_F(JsonRecordTest, AFateIsOneWordAndThatOfTheMetricsWhereTheyHaveIt) {
    const std::pair<QueryFate, std::string> FATES[] = {{QUERY_NO_KEY, "no_key"},
                                                       {QUERY_UNREADABLE, "malformed"},
                                                       {QUERY_NOT_DELIVERED, "unanswered"}};
    for (const auto& fate : FATES) {
        EXPECT_THAT(Written(QueryReceived{LaunchQuery("/bin/a"), fate.first, {}}),
                    testing::EndsWith(R"("fate":")" + fate.second + R"("})"));
    }
}

TEST_F(JsonRecordTest, EverySkipHasItsReasonAndAnAnalysisNoRecord) {
    const std::pair<ModuleNote, std::string> REASONS[] = {{NOTE_CACHED, "cached"},
                                                          {NOTE_STAT_FAILED, "stat_failed"},
                                                          {NOTE_UNREADABLE, "unreadable"}};
    for (const auto& reason : REASONS) {
        EXPECT_EQ(
            R"({"event":"skip","time":1700000000,"path":"/a","reason":")" + reason.second + R"("})",
            Written(ModuleNoted{{reason.first, "/a"}}));
    }
    EXPECT_EQ(R"({"event":"query_not_sent","time":1700000000})",
              Written(ModuleNoted{{NOTE_NOT_SENT, ""}}));
    EXPECT_EQ("", Written(ModuleNoted{{NOTE_ANALYSED, "{}"}}));
}

TEST_F(JsonRecordTest, AMessageUnderAnalysisHasItsNumberAndEvents) {
    (void)Written(PassBegun{{1, 1, "batch", "walk"}});
    EXPECT_EQ(R"({"event":"analysed","time":1700000000,"batch":7,"events":3})",
              Written(MessageAnalysed{{7, 3}}));
    EXPECT_EQ(R"({"event":"analysed","time":1700000000,"events":3})",
              Written(MessageAnalysed{{0, 3}}));
}

TEST_F(JsonRecordTest, ABadRunIsOneOfAProgramFromLevel60) {
    const Verdict bad = {60, "bad list", "x"};
    EXPECT_EQ(
        R"({"event":"bad_run","time":1700000000,"path":"/bin/b","level":60,"what":"FileDelete",)"
        R"("file":"/etc/x","cached":false})",
        Written(ProgramJudged{"FileDelete", "/etc/x", "/bin/b", "/bin/s", bad, false}));
    EXPECT_EQ(R"({"event":"bad_run","time":1700000000,"path":"/b","level":60,"what":"launch",)"
              R"("file":"/a","cached":false})",
              Written(ProgramJudged{"launch", "/a", "/b", "/s", bad, false}));
    EXPECT_EQ("", Written(ProgramJudged{"launch", "/a", "/b", "/s", {59, "", ""}, true}));
}

TEST_F(JsonRecordTest, ARecordForTheCentreHasItsTypeAndSize) {
    EXPECT_EQ(R"({"event":"centre","time":1700000000,"type":20300,"bytes":150})",
              Written(CentreRecord{20300, 150}));
}

TEST_F(JsonRecordTest, WhatIsNotSentOrIsOfNoInterestHasNoRecord) {
    const EventBatch batch = OneEvent(1);
    EXPECT_EQ("", Written(BatchTaken{batch, 1}));
    EXPECT_EQ("", Written(BatchSent{batch}));
    EXPECT_EQ("", Written(BatchUnsent{batch}));
    EXPECT_EQ("", Written(LaunchCounters()));
    EXPECT_EQ("", Written(FileCounters()));
    EXPECT_EQ("", Written(RunEnding()));
    EXPECT_EQ("", Written(RunProgressed{"delivering"}));
}

TEST(JsonProgressTest, OnATerminalProgressIsOnStandardErrorAndGoneBeforeThePassesRecord) {
    const Pty pty;
    const OnTerminal onTerminal(pty, STDERR_FILENO);
    const StdoutCapture standardOutput;
    Console output;
    const HostOptions options;
    const VerdictService service;
    const RunJournal journal(service, {}, false);
    JsonLines lines(output, options, journal);
    lines.OnEvent(RunProgressed{"delivering"}, 0);
    EXPECT_EQ("delivering: 0 delivered, 0 analysed, 0 queries, 0 cached, 0 B hashed",
              pty.ReadUntil("hashed"));
    lines.OnEvent(PassEnded{{1, 1, "line", "a"}, PassResult(), true}, 0);
    EXPECT_EQ("\r\033[K", pty.ReadUntil("\033[K"));

    EXPECT_EQ(1u, standardOutput.Lines().size());
}
