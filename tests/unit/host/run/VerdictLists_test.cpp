#include "host/run/VerdictLists.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

const std::string SHA1(40, 'a');
const std::string MD5(32, 'b');

class VerdictListsTest : public testing::Test {
protected:
    VerdictListsTest() { m_options.bPackages = false; }

    // What Load writes on standard error, after its answer.
    std::string Load(bool& bLoaded) {
        testing::internal::CaptureStderr();
        Console output;
        bLoaded = verdict_lists::Load(m_options, m_service, output);
        return testing::internal::GetCapturedStderr();
    }

    TestDir m_dir;
    RunOptions m_options;
    VerdictService m_service;
};

}  // namespace

TEST_F(VerdictListsTest, AProgramOnBothKindsOfListIsBad) {
    const std::string strList = m_dir.WriteFile("list", SHA1 + "  tool\n");
    m_options.goodLists = {strList};
    m_options.badLists = {strList};
    bool bLoaded = false;

    EXPECT_EQ("", Load(bLoaded));

    EXPECT_TRUE(bLoaded);
    EXPECT_EQ(70, m_service.Decide(SHA1 + MD5).nLevel);
}

TEST_F(VerdictListsTest, EachKindOfListGivesItsLevel) {
    m_options.goodLists = {m_dir.WriteFile("good", SHA1 + "  tool\n")};
    m_options.badLists = {m_dir.WriteFile("bad", MD5 + "  other\n")};
    bool bLoaded = false;

    (void)Load(bLoaded);

    EXPECT_TRUE(bLoaded);
    EXPECT_EQ(20, m_service.Decide(SHA1 + std::string(32, 'c')).nLevel);
    EXPECT_EQ(70, m_service.Decide(std::string(40, 'd') + MD5).nLevel);
    EXPECT_EQ(40, m_service.Decide(std::string(40, 'd') + std::string(32, 'c')).nLevel);
}

TEST_F(VerdictListsTest, AListThatCannotBeReadIsNamedSafelyAndEndsTheLoading) {
    m_options.badLists = {m_dir.Path() + "/none\n"};
    m_options.goodLists = {m_dir.Path() + "/never looked at"};
    bool bLoaded = true;

    const std::string strError = Load(bLoaded);

    EXPECT_FALSE(bLoaded);
    EXPECT_THAT(strError, HasSubstr("tevmon-host: "));
    EXPECT_THAT(strError, HasSubstr("/none\\x0A: "));
    EXPECT_THAT(strError, testing::Not(HasSubstr("never looked at")));
}
