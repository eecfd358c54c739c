#include "host/command/VerdictsCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/DbFile.h"
#include "tests/support/FakeClock.h"
#include "tests/unit/host/command/CommandRun.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr char HEADER[] =
    "RECORDED             VERDICT    EXPIRES              FOR                KEY";

class VerdictsCommandTest : public CommandRun {
protected:
    VerdictsCommandTest() : m_file(m_dir.Database("tevcloudcacho.db")) {
        m_file.Execute(CACHE_TABLE);
    }

    // A row as the values stand in a statement.
    void Row(const std::string& strValues) {
        m_file.Execute("insert into cachotable(vkey,level,tmcreate,tminternal,detail,mid) values(" +
                       strValues + ")");
    }

    DbFile m_file;
    FakeClock m_clock{1000};
};

}  // namespace

TEST_F(VerdictsCommandTest, ListShowsLevelAndExpiryInWords) {
    Row("'k1',10,900,1296000,'',5");
    Row("'k2',20,900,100,'',5");
    Row("'k3',40,900,99,'',6");
    Row("'k4',70,900,1296000,'',0");
    Row("'k5',30,900,1200,'',5");

    EXPECT_EQ(0, Run("verdicts list"));

    EXPECT_THAT(
        m_lines,
        ElementsAre(HEADER,
                    "1970-01-01 00:15:00  packaged   1970-01-16 00:15:00  process creations  k1",
                    "1970-01-01 00:15:00  good       1970-01-01 00:16:40  process creations  k2",
                    "1970-01-01 00:15:00  unknown    expired              file operations    k3",
                    "1970-01-01 00:15:00  bad        1970-01-16 00:15:00  analyser 0         k4",
                    "1970-01-01 00:15:00  level 30   1970-01-01 00:35:00  process creations  k5"));
    EXPECT_EQ("", m_strError);
}

TEST_F(VerdictsCommandTest, AVerdictExpiresTheSecondAfterItsSum) {
    Row("'k',40,900,100,'',5");

    EXPECT_EQ(0, Run("verdicts get k --json"));
    EXPECT_FALSE(JsonLine(0)["expired"].asBool());

    m_clock.Advance(1);
    EXPECT_EQ(0, Run("verdicts get k --json"));
    EXPECT_TRUE(JsonLine(0)["expired"].asBool());
    EXPECT_EQ(0, Run("verdicts get k"));
    EXPECT_EQ("expires   1970-01-01 00:16:40 (expired)", m_lines.at(3));
}

TEST_F(VerdictsCommandTest, ListAsJsonHasOneObjectALine) {
    Row("'k1',70,900,1296000,'ZGV0YWls',5");

    EXPECT_EQ(0, Run("verdicts list --json --limit 5"));

    EXPECT_THAT(m_lines, ElementsAre("{\"key\":\"k1\",\"level\":70,\"verdict\":\"bad\","
                                     "\"tmcreate\":900,\"recorded\":\"1970-01-01 00:15:00\","
                                     "\"tminternal\":1296000,\"expires\":\"1970-01-16 00:15:00\","
                                     "\"expired\":false,\"mid\":5,\"for\":\"process creations\","
                                     "\"detail\":\"detail\"}"));
}

TEST_F(VerdictsCommandTest, GetShowsOneVerdict) {
    Row("'k1',70,900,1296000,'ZGV0YWls',5");
    Row("'k2',10,900,1296000,'',5");

    EXPECT_EQ(0, Run("verdicts get k1"));

    EXPECT_THAT(m_lines,
                ElementsAre("key       k1", "verdict   bad (70)", "recorded  1970-01-01 00:15:00",
                            "expires   1970-01-16 00:15:00", "for       process creations",
                            "detail    detail"));
}

TEST_F(VerdictsCommandTest, AKeyWithoutVerdictIsNotFound) {
    EXPECT_EQ(7, Run("verdicts get none"));
    EXPECT_EQ(
        "tevmon-host: no verdict is stored for none; 'tevmon-host verdicts list' shows the "
        "keys that have one\n",
        m_strError);
    EXPECT_EQ(-1, Run("verdicts get"));
    EXPECT_EQ(-1, Run("verdicts"));
}

TEST_F(VerdictsCommandTest, AKeyIsComparedAndNeverPartOfTheStatement) {
    Row("'k1',70,900,1296000,'',5");

    EXPECT_EQ(7, Run("verdicts get \"' or '1'='1\""));
}

TEST_F(VerdictsCommandTest, CountPrintsTheNumber) {
    Row("'k1',10,900,1,'',5");
    Row("'k2',10,900,1,'',5");

    EXPECT_EQ(0, Run("verdicts count"));
    EXPECT_THAT(m_lines, ElementsAre("2"));
    EXPECT_EQ(0, Run("verdicts count --json"));
    EXPECT_THAT(m_lines, ElementsAre("{\"count\":2}"));
}

TEST_F(VerdictsCommandTest, NoVerdictAtAllIsSaidOnStandardErrorOnly) {
    EXPECT_EQ(0, Run("verdicts list"));
    EXPECT_THAT(m_lines, IsEmpty());
    EXPECT_EQ("tevmon-host: no verdict is stored\n", m_strError);
}

TEST_F(VerdictsCommandTest, SumsBeyondTheRangeNeverExpireOrAlwaysHave) {
    Row("'late',10,9223372036854775807,9223372036854775807,'',5");
    Row("'early',10,-9223372036854775808,-9223372036854775808,'',5");

    EXPECT_EQ(0, Run("verdicts get late --json"));
    EXPECT_FALSE(JsonLine(0)["expired"].asBool());
    EXPECT_EQ("9223372036854775807", JsonLine(0)["expires"].asString());
    EXPECT_EQ(0, Run("verdicts get early --json"));
    EXPECT_TRUE(JsonLine(0)["expired"].asBool());
}

TEST_F(VerdictsCommandTest, WrongTypesAndNullsShowAsUnknown) {
    Row("null,null,null,null,null,null");
    Row("x'1b5b48ff','high',1.5,'long',12,'x'");
    Row("'k',99999999999,900,null,'!!!',5");

    EXPECT_EQ(0, Run("verdicts list"));
    EXPECT_THAT(
        m_lines,
        ElementsAre(
            HEADER, "-                    -          -                    -                  ",
            "-                    -          -                    -                  \\x1B[H\\xFF",
            "1970-01-01 00:15:00  level 99999999999  -                    process creations  k"));

    EXPECT_EQ(0, Run("verdicts list --json"));
    EXPECT_EQ(
        "{\"key\":\"\",\"level\":null,\"verdict\":\"-\",\"tmcreate\":null,\"recorded\":null,"
        "\"tminternal\":null,\"expires\":null,\"expired\":false,\"mid\":null,\"for\":\"-\","
        "\"detail\":\"\"}",
        m_lines.at(0));
    EXPECT_EQ("\x1B[H\uFFFD", JsonLine(1)["key"].asString());
}

TEST_F(VerdictsCommandTest, DatabasesThatCannotBeReadEndWithTheDatabaseCode) {
    m_file.Execute("alter table cachotable rename column tminternal to tminterval");
    EXPECT_EQ(6, Run("verdicts list"));
    EXPECT_THAT(m_strError, HasSubstr("another shape (no such column: cachotable.tminternal)"));

    m_file.Execute("drop table cachotable");
    for (const char* pszCommand : {"verdicts list", "verdicts count", "verdicts get k"}) {
        EXPECT_EQ(6, Run(pszCommand));
        EXPECT_THAT(m_strError, HasSubstr("tevcloudcacho.db holds no table cachotable; "));
    }
}
