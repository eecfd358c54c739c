#include "host/module/ExpectedQueries.h"

#include <gtest/gtest.h>

TEST(ExpectedQueriesTest, ALaunchIsOneQuestionAndAnElementWithoutAPathNone) {
    const MessageQuestions all = expected_queries::Of(
        R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"/bin/a"},{"cmd":"x"}]})");

    EXPECT_EQ(2u, all.nEvents);
    EXPECT_EQ(1u, all.nNoInterest);
    ASSERT_EQ(1u, all.questions.size());
    EXPECT_EQ(QUESTION_LAUNCH, all.questions[0].eKind);
    EXPECT_EQ("/bin/a", all.questions[0].strFile);
}

TEST(ExpectedQueriesTest, ATextThatIsNoMessageHasNoEvents) {
    EXPECT_EQ(0u, expected_queries::Of("").nEvents);
    EXPECT_EQ(0u, expected_queries::Of("[]").nEvents);
    EXPECT_EQ(0u, expected_queries::Of(R"({"param":{}})").nEvents);
}

TEST(ExpectedQueriesTest, PlacesAreKnownByTheirSpelling) {
    EXPECT_TRUE(expected_queries::IsAutostart("/etc/cron.d/x"));
    EXPECT_TRUE(expected_queries::IsAutostart("/var/spool/cron/crontabs/root"));
    EXPECT_FALSE(expected_queries::IsAutostart("/etc/cron.d"));
    EXPECT_FALSE(expected_queries::IsAutostart("/tmp/etc/cron.d/x"));

    EXPECT_TRUE(expected_queries::IsUnit("/lib/systemd/system/x.service"));
    EXPECT_TRUE(expected_queries::IsUnit("/etc/xdg/autostart/x.desktop"));
    EXPECT_FALSE(expected_queries::IsUnit("/usr/lib/systemd/system/x.service"));
    EXPECT_FALSE(expected_queries::IsUnit("/etc/systemd/system/x.timer"));
    EXPECT_FALSE(expected_queries::IsUnit("/etc/xdg/autostart/x.service"));
}

TEST(ExpectedQueriesTest, EventNamesLeadToQuestionsAndBack) {
    std::string strOperation;
    EXPECT_EQ(QUESTION_FILE, expected_queries::KindOfEvent("FileModify", strOperation));
    EXPECT_EQ("write", strOperation);
    EXPECT_EQ(QUESTION_NONE, expected_queries::KindOfEvent("Other", strOperation));
    EXPECT_EQ("", strOperation);

    EXPECT_EQ("FileDelete", expected_queries::EventOf(QUESTION_FILE, "remove"));
    EXPECT_EQ("AddAutoRuns", expected_queries::EventOf(QUESTION_UNIT, ""));
    EXPECT_EQ("launch", expected_queries::EventOf(QUESTION_LAUNCH, ""));
    EXPECT_EQ("", expected_queries::EventOf(QUESTION_NONE, ""));
}
