#include "host/kernel/launch/FileLook.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "host/base/UniqueFd.h"
#include "tests/support/TestDir.h"

namespace {

class FileLookTest : public testing::Test {
protected:
    FileLookTest() { EXPECT_EQ(0, symlink(m_strFile.c_str(), m_strLink.c_str())); }

    TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("file", "four");
    const std::string m_strLink = m_dir.Path() + "/link";
    struct stat m_status = {};
};

}  // namespace

TEST_F(FileLookTest, ALinkIsFollowedOrLookedAtItself) {
    ASSERT_TRUE(file_look::AtTarget(m_strLink, m_status));
    EXPECT_TRUE(S_ISREG(m_status.st_mode));
    EXPECT_EQ(4, m_status.st_size);

    ASSERT_TRUE(file_look::AtItself(m_strLink, m_status));
    EXPECT_TRUE(S_ISLNK(m_status.st_mode));
}

TEST_F(FileLookTest, WhereNothingIsNothingIsFound) {
    ASSERT_EQ(0, unlink(m_strFile.c_str()));

    EXPECT_FALSE(file_look::AtTarget(m_strFile, m_status));
    EXPECT_FALSE(file_look::AtItself(m_strFile, m_status));
    EXPECT_FALSE(file_look::AtTarget(m_strLink, m_status));
    EXPECT_TRUE(file_look::AtItself(m_strLink, m_status));
}

TEST_F(FileLookTest, ALinkIsReadAsItIsWritten) {
    const std::string strLong(4000, 'x');
    ASSERT_EQ(0, symlink(strLong.c_str(), (m_dir.Path() + "/long").c_str()));
    const UniqueFd directory(open(m_dir.Path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));

    EXPECT_EQ(m_strFile, file_look::LinkText(m_strLink));
    EXPECT_EQ(m_strFile, file_look::LinkText("link", directory.Get()));
    EXPECT_EQ(strLong, file_look::LinkText("long", directory.Get()));
    EXPECT_EQ("", file_look::LinkText(m_strFile));
    EXPECT_EQ("", file_look::LinkText(m_dir.Path() + "/none"));
}
