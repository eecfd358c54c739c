#include "host/command/QueueCommand.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/DbFile.h"
#include "tests/unit/host/command/CommandRun.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char HEADER[] = "ID        QUEUED               FOR                BYTES      MESSAGE";

class QueueCommandTest : public CommandRun {
protected:
    QueueCommandTest() : m_file(m_dir.Database("tevchennaldb.db")) {
        m_file.Execute(CHANNEL_TABLE);
    }

    // A row as the three values stand in a statement.
    void Row(const std::string& strCreateTime, const std::string& strDetail,
             const std::string& strMid) {
        m_file.Execute("insert into msgchennal(createtime,detail,mid) values(" + strCreateTime +
                       "," + strDetail + "," + strMid + ")");
    }

    DbFile m_file;
};

}  // namespace

TEST_F(QueueCommandTest, ListShowsEachMessageDecodedOldestFirst) {
    Row("'1000'", "'eyJ0eXBlIjoxfQ=='", "5");
    Row("'1715938200'", "'eA=='", "6");

    EXPECT_EQ(0, Run("queue list"));

    EXPECT_THAT(
        m_lines,
        ElementsAre(HEADER,
                    "1         1970-01-01 00:16:40  process creations  10         {\"type\":1}",
                    "2         2024-05-17 09:30:00  file operations    1          x"));
    EXPECT_EQ("", m_strError);
}

TEST_F(QueueCommandTest, ListAsJsonHasOneObjectALine) {
    Row("'1000'", "'eyJ0eXBlIjoxfQ=='", "5");
    Row("'1001'", "'eA=='", "7");

    EXPECT_EQ(0, Run("queue list --json"));

    EXPECT_THAT(m_lines, ElementsAre("{\"id\":1,\"createtime\":1000,\"queued\":\"1970-01-01 "
                                     "00:16:40\",\"mid\":5,\"for\":\"process creations\","
                                     "\"bytes\":10,\"message\":\"{\\\"type\\\":1}\"}",
                                     "{\"id\":2,\"createtime\":1001,\"queued\":\"1970-01-01 "
                                     "00:16:41\",\"mid\":7,\"for\":\"analyser 7\",\"bytes\":1,"
                                     "\"message\":\"x\"}"));
}

TEST_F(QueueCommandTest, JsonMayStandBeforeTheCommandAsWell) {
    EXPECT_EQ(0, Run("--json queue count"));

    EXPECT_THAT(m_lines, ElementsAre("{\"count\":0}"));
}

TEST_F(QueueCommandTest, LimitShowsTheOldestOnly) {
    for (int i = 0; i < 120; ++i) {
        Row("'1000'", "'eA=='", "5");
    }

    EXPECT_EQ(0, Run("queue list --limit 60"));
    EXPECT_EQ(61u, m_lines.size());
    EXPECT_THAT(m_lines.back(), StartsWith("60 "));

    EXPECT_EQ(-1, Run("queue list --limit 0"));
    EXPECT_EQ(-1, Run("queue list --limit -1"));
    EXPECT_EQ(-1, Run("queue list --limit x"));
}

TEST_F(QueueCommandTest, AnEmptyQueueIsSaidOnStandardErrorOnly) {
    EXPECT_EQ(0, Run("queue list"));
    EXPECT_THAT(m_lines, IsEmpty());
    EXPECT_EQ("tevmon-host: the queue is empty\n", m_strError);

    EXPECT_EQ(0, Run("queue list --json"));
    EXPECT_THAT(m_lines, IsEmpty());
    EXPECT_EQ("", m_strError);
}

TEST_F(QueueCommandTest, CountPrintsTheNumber) {
    for (int i = 0; i < 250; ++i) {
        Row("'1000'", "'eA=='", "5");
    }

    EXPECT_EQ(0, Run("queue count"));

    EXPECT_THAT(m_lines, ElementsAre("250"));
}

TEST_F(QueueCommandTest, ShowPrintsOneMessageWhole) {
    Row("'1000'", "'" + std::string(400, 'Q') + "'", "5");  // 300 bytes

    EXPECT_EQ(0, Run("queue show 1"));

    ASSERT_EQ(5u, m_lines.size());
    EXPECT_EQ("id       1", m_lines[0]);
    EXPECT_EQ("queued   1970-01-01 00:16:40", m_lines[1]);
    EXPECT_EQ("for      process creations", m_lines[2]);
    EXPECT_EQ("bytes    300", m_lines[3]);
    EXPECT_THAT(m_lines[4], StartsWith("message  A\\x04\\x10A"));
}

TEST_F(QueueCommandTest, ShowOfAMissingMessageIsNotFound) {
    EXPECT_EQ(7, Run("queue show 12"));

    EXPECT_THAT(m_lines, IsEmpty());
    EXPECT_EQ(
        "tevmon-host: no message 12 is waiting; 'tevmon-host queue list' shows those that "
        "are\n",
        m_strError);
    EXPECT_EQ(-1, Run("queue show"));
    EXPECT_EQ(-1, Run("queue show x"));
    EXPECT_EQ(-1, Run("queue"));
}

TEST_F(QueueCommandTest, ControlCharactersInAMessageAreEscaped) {
    Row("'1000'", "'G1tIChtdMDsH/w=='", "5");  // ESC [ H, LF, ESC ] 0 ; BEL, FF

    EXPECT_EQ(0, Run("queue list"));
    EXPECT_THAT(m_lines.at(1), testing::EndsWith("  \\x1B[H\\x0A\\x1B]0;\\x07\\xFF"));
    EXPECT_EQ(0, Run("queue show 1"));
    EXPECT_EQ("message  \\x1B[H\\x0A\\x1B]0;\\x07\\xFF", m_lines.at(4));
}

TEST_F(QueueCommandTest, JsonIsValidWhateverBytesAMessageHas) {
    Row("'1000'", "'AP/+wyIKgIDt'", "5");  // NUL, broken UTF-8, a quote, a line feed

    EXPECT_EQ(0, Run("queue list --json"));

    ASSERT_EQ(1u, m_lines.size());
    const Json::Value message = JsonLine(0)["message"];
    EXPECT_EQ(9u, JsonLine(0)["bytes"].asUInt());
    EXPECT_EQ(std::string("\0\uFFFD\uFFFD\uFFFD\"\n\uFFFD\uFFFD\uFFFD", 21), message.asString());
}

TEST_F(QueueCommandTest, ALongMessageIsCutBetweenCharactersInTheList) {
    Row("'1000'", "'" + std::string(76, 'Q') + "w6TDpMOk'", "5");  // 57 bytes, then three umlauts

    EXPECT_EQ(0, Run("queue list"));

    EXPECT_THAT(m_lines.at(1), testing::EndsWith("\u00E4\u00E4..."));
}

TEST_F(QueueCommandTest, WrongTypesAndNullsShowAsUnknown) {
    Row("null", "null", "null");
    Row("'soon'", "12.5", "'many'");
    Row("x'00'", "x'00ff'", "x'1b'");
    Row("'9223372036854775807'", "'!!!'", "99999999999");

    EXPECT_EQ(0, Run("queue list"));
    EXPECT_THAT(
        m_lines,
        ElementsAre(HEADER, StartsWith("1         -                    -                  0 "),
                    StartsWith("2         -                    -                  2 "),
                    StartsWith("3         -                    -                  0 "),
                    StartsWith("4         9223372036854775807  analyser 99999999999  0 ")));

    EXPECT_EQ(0, Run("queue show 1 --json"));
    EXPECT_EQ(
        "{\"id\":1,\"createtime\":null,\"queued\":null,\"mid\":null,\"for\":\"-\","
        "\"bytes\":0,\"message\":\"\"}",
        m_lines.at(0));
}

TEST_F(QueueCommandTest, AMessageTooBigToReadIsListedWithoutItsText) {
    Row("'1000'", "zeroblob(67108865)", "5");
    Row("'1001'", "'eA=='", "5");

    EXPECT_EQ(0, Run("queue list"));
    EXPECT_THAT(m_lines.at(1), testing::EndsWith("-          (too big to show)"));
    EXPECT_THAT(m_lines.at(2), testing::EndsWith("1          x"));
    EXPECT_EQ(0, Run("queue show 1 --json"));
    EXPECT_THAT(m_lines.at(0), HasSubstr("\"bytes\":null,\"message\":null}"));
}

TEST_F(QueueCommandTest, DatabasesThatCannotBeReadEndWithTheDatabaseCode) {
    m_file.Execute("drop table msgchennal; create table msgchennal(id integer primary key)");
    for (const char* pszCommand : {"queue list", "queue show 1"}) {
        EXPECT_EQ(6, Run(pszCommand));
        EXPECT_THAT(m_strError, HasSubstr("another shape (no such column: msgchennal.createtime)"));
    }

    m_file.Execute("drop table msgchennal");
    for (const char* pszCommand : {"queue list", "queue count", "queue show 1"}) {
        EXPECT_EQ(6, Run(pszCommand));
        EXPECT_THAT(m_strError, StartsWith("tevmon-host: " + m_dir.Database("tevchennaldb.db") +
                                           " holds no table msgchennal; "));
    }

    m_file.Close();
    (void)m_dir.WriteFile("data/db/tevchennaldb.db", std::string(4096, 'z'));
    EXPECT_EQ(6, Run("queue count --json"));
    EXPECT_THAT(m_strError, HasSubstr("is damaged (file is not a database); "));
    EXPECT_THAT(m_lines, IsEmpty());

    ASSERT_EQ(0, remove(m_dir.Database("tevchennaldb.db").c_str()));
    EXPECT_EQ(6, Run("queue list"));
    EXPECT_THAT(m_strError, HasSubstr("tevchennaldb.db: No such file or directory; "));
}

TEST_F(QueueCommandTest, ADatabaseThatIsBeingWrittenIsSaidToBeBusy) {
    Row("'1000'", "'eA=='", "5");
    m_file.Execute("begin exclusive; delete from msgchennal where id = 1");

    EXPECT_EQ(6, Run("queue list"));

    EXPECT_THAT(m_strError, HasSubstr("was not free for a moment; try again"));
}

TEST_F(QueueCommandTest, AFullStandardOutputEndsTheListAndIsSaid) {
    Row("'1000'", "'eA=='", "5");
    const int nFull = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(nFull, 0);
    HostOptions options;
    options.strStateDir = m_dir.Path();
    int nExitCode = 0;
    CommandLine program("tevmon-host", "");
    AddQueueCommand(program, options, nExitCode);

    testing::internal::CaptureStderr();
    {
        const StdoutCapture restore;
        ASSERT_EQ(1, dup2(nFull, 1));
        EXPECT_TRUE(program.Parse("queue list", nExitCode));
    }
    close(nFull);

    EXPECT_EQ(9, nExitCode);
    EXPECT_EQ(
        "tevmon-host: cannot write to standard output: No space left on device; give it a "
        "place with room\n",
        testing::internal::GetCapturedStderr());
}
