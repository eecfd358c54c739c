#include <fcntl.h>
#include <gmock/gmock.h>
#include <json/json.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "tests/support/DbFile.h"
#include "tests/support/NotifySocket.h"
#include "tests/system/host/HostProgram.h"

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char EVENT[] =
    R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"/bin/true"}]})";

class RunSessionTest : public testing::Test {
protected:
    std::vector<std::string> Replay(const std::string& strContent,
                                    const std::vector<std::string>& more,
                                    const std::string& strKind = "works") {
        std::vector<std::string> arguments = {"--module", FakeModule(strKind), "replay",
                                              "--no-packages",
                                              m_dir.WriteFile("events", strContent)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    // Every line of standard output as JSON; a line that is none fails the test.
    std::vector<Json::Value> Records() {
        std::vector<Json::Value> records;
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        for (const std::string& strLine : m_host.OutputLines()) {
            std::istringstream stream(strLine);
            Json::Value jsonRecord;
            EXPECT_TRUE(Json::parseFromStream(builder, stream, &jsonRecord, nullptr)) << strLine;
            records.push_back(jsonRecord);
        }
        return records;
    }

    TestDir m_dir;
    HostProgram m_host{m_dir};
};

}  // namespace

TEST_F(RunSessionTest, TheModuleIsDrivenInOrderAndGetsEventAndAnswer) {
    ASSERT_EQ(0, m_host.Run(Replay(std::string(EVENT) + "\n", {"--drain"})));

    const std::string strCalls = m_host.ModuleCalls();
    EXPECT_EQ(0u, strCalls.find("init\nsetopt\nstart\nevent " + std::string(EVENT) + "\nanswer "))
        << strCalls;
    EXPECT_THAT(strCalls, HasSubstr("\nstop\nuninit\n"));
    EXPECT_THAT(strCalls, HasSubstr(R"("func":"cloudad","result":"40")"));
}

TEST_F(RunSessionTest, WhatTheModulePrintsDoesNotReachStandardOutput) {
    ASSERT_EQ(0, m_host.Run(Replay(std::string(EVENT) + "\n", {"--drain", "--json"})));

    EXPECT_THAT(m_host.Output(), Not(HasSubstr("printed by the module")));
    EXPECT_EQ("printed by the module\n", m_host.Error());
}

TEST_F(RunSessionTest, WhatTheModulePrintsAgainAndAgainIsFolded) {
    ASSERT_EQ(0, m_host.Run(Replay(std::string(EVENT) + "\n", {"--drain"}, "chatty")));

    EXPECT_GT(2000u, m_host.Error().size());
    EXPECT_THAT(m_host.Error(), HasSubstr("printed by the module\n"));
    EXPECT_THAT(m_host.Error(), HasSubstr(" times) database is locked\n"));
    EXPECT_THAT(m_host.Error(), HasSubstr(" times) cannot commit\n"));
}

TEST_F(RunSessionTest, AModuleThatPrintsGoesOnWhileNobodyReadsStandardError) {
    const std::string strFifo = m_dir.Path() + "/errors";
    ASSERT_EQ(0, mkfifo(strFifo.c_str(), 0600));
    const int nFifo = open(strFifo.c_str(), O_RDWR | O_CLOEXEC);  // held open, and never read
    const std::string strFill(65536, 'x');
    ASSERT_EQ(65536, write(nFifo, strFill.data(), strFill.size()));
    const std::string strCommand = ProgramFolder() + "tevmon-host --state-dir " +
                                   m_host.StateDir() + " --module " + FakeModule("chatty") +
                                   " replay --drain /dev/null > /dev/null 2> " + strFifo;

    const int nStatus = std::system(strCommand.c_str());

    EXPECT_EQ(0, WEXITSTATUS(nStatus));
    EXPECT_THAT(m_host.ModuleCalls(), HasSubstr("uninit"));
    close(nFifo);
}

TEST_F(RunSessionTest, JsonHasOneRecordForEveryThing) {
    ASSERT_EQ(0, m_host.Run(Replay(std::string("no\n") + EVENT + "\n", {"--drain", "--json"})));

    std::multiset<std::string> events;
    for (const Json::Value& jsonRecord : Records()) {
        events.insert(jsonRecord["event"].asString());
    }
    // This module begins with a message without a word and keeps no queue: for the ledger it was
    // not stored.
    EXPECT_EQ((std::multiset<std::string>{"start", "unusable", "delivered", "query", "verdict",
                                          "pass", "not_stored", "balance", "summary"}),
              events);
    const Json::Value jsonSummary = Records().back();
    EXPECT_EQ(1, jsonSummary["messages"].asInt());
    EXPECT_EQ(1, jsonSummary["unusable"].asInt());
    EXPECT_EQ(1, jsonSummary["answers_by_level"]["40"].asInt());
    EXPECT_EQ(0, jsonSummary["queue_depth"].asInt());
    EXPECT_TRUE(jsonSummary["drained"].asBool());
}

TEST_F(RunSessionTest, LinesThatAreNoMessagesAreNamedAndNeverFatal) {
    const std::string strDeep(5000, '[');
    const std::string strContent =
        "\nnull\n{\"param\":{}}\n" + strDeep + "\n\xff\xfe\n" + std::string("\0\n", 2) + EVENT;

    ASSERT_EQ(0, m_host.Run(Replay(strContent, {"--drain"})));

    const std::string strFile = "tevmon-host: " + m_dir.Path() + "/events, line ";
    EXPECT_THAT(m_host.Error(), HasSubstr("printed by the module\n"));
    for (const char* pszRemark :
         {"1: an empty line\n", "2: not a JSON object\n", "3: no array \"param\"\n",
          "4: not a JSON text\n", "5: not a JSON text\n", "6: not a JSON text\n"}) {
        EXPECT_THAT(m_host.Error(), HasSubstr(strFile + pszRemark)) << pszRemark;
    }
    EXPECT_THAT(m_host.Output(), HasSubstr("1 event in 1 message; 6 unusable"));
}

TEST_F(RunSessionTest, TheSecondQueryForAKeyIsNotAnswered) {
    const std::string strTwice = std::string(EVENT) + "\n" + EVENT + "\n";

    ASSERT_EQ(0, m_host.Run(Replay(strTwice, {"--drain", "--json"})));

    const Json::Value jsonSummary = Records().back();
    EXPECT_EQ(2, jsonSummary["queries"].asInt());
    EXPECT_EQ(1, jsonSummary["answers"].asInt());
    EXPECT_EQ(1, jsonSummary["known"].asInt());
}

TEST_F(RunSessionTest, ASignalEndsTheRunCleanly) {
    for (const int nSignal : {SIGINT, SIGTERM}) {
        HostProgram host(m_dir);
        host.Start(Replay(std::string(EVENT) + "\n", {"--json"}));
        ASSERT_TRUE(host.WaitForOutput("\"verdict\""));

        host.Signal(nSignal);

        EXPECT_EQ(0, host.Wait());
        EXPECT_THAT(host.Output(), HasSubstr("\"summary\""));
        const std::string strCalls = host.ModuleCalls();
        EXPECT_THAT(strCalls, HasSubstr("\nstop\n"));
        EXPECT_EQ(strCalls.size() - 8, strCalls.rfind("\nuninit\n")) << strCalls;
    }
}

TEST_F(RunSessionTest, TheServiceManagerIsNotifiedOfStartSignsOfLifeAndStop) {
    const std::string strSocket = m_dir.Path() + "/notify";
    const NotifySocket manager(strSocket);
    setenv("NOTIFY_SOCKET", strSocket.c_str(), 1);
    setenv("WATCHDOG_USEC", "300000", 1);
    m_host.Start(Replay(std::string(EVENT) + "\n", {}));
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");

    EXPECT_EQ("READY=1", manager.Next(60000));
    EXPECT_THAT(m_host.ModuleCalls(), HasSubstr("start\n"));
    EXPECT_TRUE(manager.WaitFor("WATCHDOG=1\nSTATUS="));
    EXPECT_TRUE(manager.WaitFor("WATCHDOG=1\nSTATUS="));
    m_host.Signal(SIGTERM);
    EXPECT_TRUE(manager.WaitFor("STOPPING=1"));
    EXPECT_EQ(0, m_host.Wait());
}

TEST_F(RunSessionTest, TheTimeLimitEndsARunThatWouldGoOn) {
    EXPECT_EQ(0, m_host.Run(Replay(std::string(EVENT) + "\n", {"--for", "0.1"})));

    EXPECT_THAT(m_host.ModuleCalls(), HasSubstr("uninit"));
}

TEST_F(RunSessionTest, ATimeLimitThatEndsADrainIsAnExitCodeOfItsOwn) {
    // The fake module leaves what waits in the queue alone.
    ASSERT_EQ(0, m_host.Run(Replay("", {"--drain"})));
    {
        DbFile queue(m_host.StateDir() + "/data/db/tevchennaldb.db");
        queue.Execute(CHANNEL_TABLE);
        queue.Execute("insert into msgchennal(detail) values('waits')");
    }

    HostProgram second(m_dir);
    EXPECT_EQ(8, second.Run(Replay("", {"--drain", "--for", "0.5"})));
    EXPECT_THAT(second.Output(), HasSubstr("stopped before everything was analysed"));
}

TEST_F(RunSessionTest, ADamagedDatabaseEndsTheRunBeforeTheModuleIsLoaded) {
    ASSERT_EQ(0, m_host.Run(Replay("", {"--drain"})));
    const std::string strCalls = m_host.ModuleCalls();
    m_dir.WriteFile("state/data/db/tevchennaldb.db", "no database, and longer than none at all");

    HostProgram second(m_dir);
    EXPECT_EQ(6, second.Run(Replay("", {"--drain"})));

    EXPECT_THAT(second.Error(), HasSubstr("move it away"));
    EXPECT_EQ(strCalls, second.ModuleCalls());
}

TEST_F(RunSessionTest, TheDatabasesArePrivateAndOneFileEachAfterTheRun) {
    ASSERT_EQ(0, m_host.Run(Replay(std::string(EVENT) + "\n", {"--drain"})));

    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_host.StateDir() + "/data/db")) {
        names.push_back(entry.path().filename());
        EXPECT_EQ(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
                  entry.status().permissions());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"tevchennaldb.db", "tevcloudcacho.db"}), names);
}

TEST_F(RunSessionTest, ARecordingWaitsForRoomInTheQueueAndGoesOn) {
    // The fake module leaves its queue empty, so the look that sets the count right makes room.
    const std::string strFour =
        std::string(EVENT) + "\n" + EVENT + "\n" + EVENT + "\n" + EVENT + "\n";

    ASSERT_EQ(0, m_host.Run(Replay(strFour, {"--drain", "--json", "--queue-rows", "2"})));

    EXPECT_EQ(4, Records().back()["messages"].asInt());
    std::vector<std::string> states;
    for (const Json::Value& jsonRecord : Records()) {
        if (jsonRecord["event"] == "queue") {
            states.push_back(jsonRecord["state"].asString());
            EXPECT_EQ(0, jsonRecord["refused_messages"].asInt());
        }
    }
    ASSERT_LE(2u, states.size());
    EXPECT_EQ("full", states[0]);
    EXPECT_EQ("normal", states[1]);
}

TEST_F(RunSessionTest, AReaderThatLeavesEndsTheRun) {
    std::string strMany;  // more records than a pipe holds, so the host cannot be done with them
    for (int i = 0; i < 3000; ++i) {
        strMany += std::string(EVENT) + "\n";
    }
    m_host.Start(Replay(strMany, {"--json"}));
    ASSERT_TRUE(m_host.WaitForOutput("\"start\""));
    m_host.CloseOutput();

    EXPECT_EQ(9, m_host.Wait());
    EXPECT_THAT(m_host.ModuleCalls(), HasSubstr("uninit"));
}

TEST_F(RunSessionTest, AFullDiskUnderStandardOutputIsNamed) {
    m_host.Start(Replay("", {"--drain"}));
    ASSERT_EQ(0, m_host.Wait());
    const std::string strCommand = ProgramFolder() + "tevmon-host --state-dir " +
                                   m_host.StateDir() + " --module " + FakeModule("works") +
                                   " replay --drain /dev/null > /dev/full 2> " + m_dir.Path() +
                                   "/errors";

    const int nStatus = std::system(strCommand.c_str());

    EXPECT_EQ(9, WEXITSTATUS(nStatus));
    EXPECT_THAT(FileText(m_dir.Path() + "/errors"),
                HasSubstr("standard output: No space left on device"));
}

TEST_F(RunSessionTest, TwoHostsDoNotShareAStateDirectory) {
    m_host.Start(Replay(std::string(EVENT) + "\n", {"--json"}));
    ASSERT_TRUE(m_host.WaitForOutput("\"start\""));

    HostProgram second(m_dir);
    EXPECT_EQ(5, second.Run(Replay("", {"--drain"})));

    EXPECT_THAT(second.Error(), HasSubstr("is in use by process "));
    m_host.Signal(SIGTERM);
    EXPECT_EQ(0, m_host.Wait());
}

TEST_F(RunSessionTest, AModuleThatIsNoneIsRefusedByName) {
    EXPECT_EQ(4, m_host.Run(Replay("", {"--drain"}, "lacks_function")));

    EXPECT_THAT(m_host.Error(), HasSubstr("it has no function DestroyObject"));
}
