#include "host/module/ModuleQuestions.h"

#include <gtest/gtest.h>

TEST(ModuleQuestionsTest, ALaunchIsOneQuestionAndAnElementWithoutAPathNone) {
    const MessageQuestions all = module_questions::Of(
        R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"/bin/a"},{"cmd":"x"}]})");

    EXPECT_EQ(2u, all.nEvents);
    EXPECT_EQ(1u, all.nNoInterest);
    ASSERT_EQ(1u, all.questions.size());
    EXPECT_EQ(QUESTION_LAUNCH, all.questions[0].eKind);
    EXPECT_EQ("/bin/a", all.questions[0].strFile);
}

TEST(ModuleQuestionsTest, ATextThatIsNoMessageHasNoEvents) {
    EXPECT_EQ(0u, module_questions::Of("").nEvents);
    EXPECT_EQ(0u, module_questions::Of("[]").nEvents);
    EXPECT_EQ(0u, module_questions::Of(R"({"param":{}})").nEvents);
}

TEST(ModuleQuestionsTest, PlacesAreKnownByTheirSpelling) {
    EXPECT_TRUE(module_questions::IsAutostart("/etc/cron.d/x"));
    EXPECT_TRUE(module_questions::IsAutostart("/var/spool/cron/crontabs/root"));
    EXPECT_FALSE(module_questions::IsAutostart("/etc/cron.d"));
    EXPECT_FALSE(module_questions::IsAutostart("/tmp/etc/cron.d/x"));

    EXPECT_TRUE(module_questions::IsUnit("/lib/systemd/system/x.service"));
    EXPECT_TRUE(module_questions::IsUnit("/etc/xdg/autostart/x.desktop"));
    EXPECT_FALSE(module_questions::IsUnit("/usr/lib/systemd/system/x.service"));
    EXPECT_FALSE(module_questions::IsUnit("/etc/systemd/system/x.timer"));
    EXPECT_FALSE(module_questions::IsUnit("/etc/xdg/autostart/x.service"));
}

TEST(ModuleQuestionsTest, EventNamesLeadToQuestionsAndBack) {
    std::string strOperation;
    EXPECT_EQ(QUESTION_FILE, module_questions::KindOfEvent("FileModify", strOperation));
    EXPECT_EQ("write", strOperation);
    EXPECT_EQ(QUESTION_NONE, module_questions::KindOfEvent("Other", strOperation));
    EXPECT_EQ("", strOperation);

    EXPECT_EQ("FileDelete", module_questions::EventOf(QUESTION_FILE, "remove"));
    EXPECT_EQ("AddAutoRuns", module_questions::EventOf(QUESTION_UNIT, ""));
    EXPECT_EQ("launch", module_questions::EventOf(QUESTION_LAUNCH, ""));
    EXPECT_EQ("", module_questions::EventOf(QUESTION_NONE, ""));
}
