#include "host/module/ExpectedQueries.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/TestDir.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string FileMessage(const std::string& strElements) {
    return R"({"param":[{"grup":"cloudquery","context":"cloudfd"},)" + strElements + "]}";
}

std::string Operation(const std::string& strOperation, const std::string& strPath) {
    return R"({"path":")" + strPath + R"(","exe_path":"/bin/a","optertion":")" + strOperation +
           R"("})";
}

// "kind file operation" each.
std::vector<std::string> Lines(const MessageQueries& all) {
    static const char* const KINDS[] = {"none", "launch", "file", "pipe", "unit"};
    std::vector<std::string> lines;
    for (const ExpectedQuery& expected : all.expected) {
        lines.push_back(std::string(KINDS[expected.eKind]) + " " + expected.strFile + " " +
                        expected.strOperation);
    }
    return lines;
}

}  // namespace

TEST(ExpectedQueriesTest, ALaunchIsOneQuestionAndAnElementWithoutAPathNone) {
    const MessageQueries all = expected_queries::Of(
        R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"/bin/a"},{"cmd":"x"}]})");

    EXPECT_EQ(2u, all.nEvents);
    EXPECT_EQ(1u, all.nIgnored);
    ASSERT_EQ(1u, all.expected.size());
    EXPECT_EQ(EXPECTED_LAUNCH, all.expected[0].eKind);
    EXPECT_EQ("/bin/a", all.expected[0].strFile);
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
    EXPECT_EQ(EXPECTED_FILE, expected_queries::KindOfEvent("FileModify", strOperation));
    EXPECT_EQ("write", strOperation);
    EXPECT_EQ(EXPECTED_NONE, expected_queries::KindOfEvent("Other", strOperation));
    EXPECT_EQ("", strOperation);

    EXPECT_EQ("FileDelete", expected_queries::EventOf(EXPECTED_FILE, "remove"));
    EXPECT_EQ("AddAutoRuns", expected_queries::EventOf(EXPECTED_UNIT, ""));
    EXPECT_EQ("launch", expected_queries::EventOf(EXPECTED_LAUNCH, ""));
    EXPECT_EQ("", expected_queries::EventOf(EXPECTED_NONE, ""));
}

TEST(ExpectedQueriesTest, AFileOperationInAPlaceIsAQuestionWithItsProgram) {
    const MessageQueries all = expected_queries::Of(FileMessage(
        Operation("create", "/etc/cron.d/a") + "," + Operation("write", "/etc/cron.d/b") + "," +
        Operation("rename", "/etc/cron.d/c") + "," + Operation("remove", "/etc/cron.d/d")));

    EXPECT_THAT(Lines(all), ElementsAre("file /etc/cron.d/a create", "file /etc/cron.d/b write",
                                        "file /etc/cron.d/c rename", "file /etc/cron.d/d remove"));
    EXPECT_EQ("/bin/a", all.expected[0].strProgram);
    EXPECT_EQ(5u, all.nEvents);
    EXPECT_EQ(1u, all.nIgnored);  // the element that names the query
}

TEST(ExpectedQueriesTest, AnOperationElsewhereOrOfAnotherKindIsIgnored) {
    const MessageQueries all = expected_queries::Of(
        FileMessage(Operation("create", "/tmp/a") + "," + Operation("chmod", "/etc/cron.d/a") +
                    "," + Operation("", "/etc/cron.d/a") + "," +
                    Operation("remove", "/etc/systemd/system/a.service")));

    EXPECT_THAT(Lines(all), IsEmpty());
    EXPECT_EQ(5u, all.nEvents);
    EXPECT_EQ(5u, all.nIgnored);
}

TEST(ExpectedQueriesTest, OnlyTheCreationOfAUnitIsAsked) {
    const std::string strUnit = "/etc/systemd/system/a.service";
    const MessageQueries all = expected_queries::Of(FileMessage(Operation("create", strUnit) + "," +
                                                                Operation("write", strUnit) + "," +
                                                                Operation("rename", strUnit)));

    EXPECT_THAT(Lines(all), ElementsAre("unit " + strUnit + " "));
}

TEST(ExpectedQueriesTest, ACreatedPipeIsAskedWhereverItIsAndOnlyWhileItIsOne) {
    TestDir dir;
    const std::string strPipe = dir.Path() + "/pipe";
    const std::string strLink = dir.Path() + "/link";
    const std::string strFile = dir.WriteFile("file", "");
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    ASSERT_EQ(0, symlink(strPipe.c_str(), strLink.c_str()));
    const std::string strBody =
        FileMessage(Operation("create", strPipe) + "," + Operation("create", strLink) + "," +
                    Operation("create", strFile) + "," + Operation("write", strPipe) + "," +
                    Operation("create", strPipe + "\\u0000x"));

    EXPECT_THAT(Lines(expected_queries::Of(strBody)),
                ElementsAre("pipe " + strPipe + " ", "pipe " + strLink + " "));

    ASSERT_EQ(0, unlink(strPipe.c_str()));
    EXPECT_THAT(Lines(expected_queries::Of(strBody)), IsEmpty());
}

TEST(ExpectedQueriesTest, WhatAMessageIsAboutIsSaidByItsFirstQueryElement) {
    const std::string strFile = R"({"grup":"cloudquery","context":"cloudfd"},)";
    const std::string strLaunch = R"({"grup":"cloudquery","context":"cloudad"},)";
    const std::string strOther = R"({"grup":"other","context":"cloudfd"},)";
    const std::string strElement = Operation("create", "/etc/cron.d/a") + "]}";
    const std::string strHead = R"({"param":[)";

    EXPECT_THAT(Lines(expected_queries::Of(strHead + strFile + strLaunch + strElement)),
                ElementsAre("file /etc/cron.d/a create"));
    EXPECT_THAT(Lines(expected_queries::Of(strHead + strLaunch + strFile + strElement)),
                ElementsAre("launch /etc/cron.d/a "));
    EXPECT_THAT(Lines(expected_queries::Of(strHead + strOther + strElement)),
                ElementsAre("launch /etc/cron.d/a "));
}

TEST(ExpectedQueriesTest, ElementsAndValuesOfAnotherTypeAskNothingAndAreCounted) {
    const MessageQueries all = expected_queries::Of(
        FileMessage(R"(null,7,"text",[],{},{"path":null},{"path":7,"optertion":7})"));

    EXPECT_THAT(Lines(all), IsEmpty());
    EXPECT_EQ(8u, all.nEvents);
    EXPECT_EQ(8u, all.nIgnored);
}

TEST(ExpectedQueriesTest, ACutMessageHasNoEvents) {
    const std::string strBody = FileMessage(Operation("create", "/etc/cron.d/a"));
    for (size_t nSize = 0; nSize < strBody.size(); ++nSize) {
        EXPECT_EQ(0u, expected_queries::Of(strBody.substr(0, nSize)).nEvents) << nSize;
    }
    EXPECT_EQ(2u, expected_queries::Of(strBody).nEvents);
}

TEST(ExpectedQueriesTest, EveryNameOfAnEventLeadsToItsQuestionAndBack) {
    const struct {
        const char* pszEvent;
        ExpectedKind eKind;
        const char* pszOperation;
    } CASES[] = {{"FileCreate", EXPECTED_FILE, "create"}, {"FileModify", EXPECTED_FILE, "write"},
                 {"FileRename", EXPECTED_FILE, "rename"}, {"FileDelete", EXPECTED_FILE, "remove"},
                 {"ProcessPipe", EXPECTED_PIPE, ""},      {"AddAutoRuns", EXPECTED_UNIT, ""}};
    for (const auto& each : CASES) {
        std::string strOperation = "old";
        EXPECT_EQ(each.eKind, expected_queries::KindOfEvent(each.pszEvent, strOperation));
        EXPECT_EQ(each.pszOperation, strOperation) << each.pszEvent;
        EXPECT_EQ(each.pszEvent, expected_queries::EventOf(each.eKind, each.pszOperation));
    }
    std::string strOperation;
    EXPECT_EQ(EXPECTED_LAUNCH, expected_queries::KindOfEvent("CreateProcess", strOperation));
    EXPECT_EQ(EXPECTED_NONE, expected_queries::KindOfEvent("filecreate", strOperation));
    EXPECT_EQ("", expected_queries::EventOf(EXPECTED_FILE, "chmod"));
}
