#include "framework/base/file_utils.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/TestDir.h"

namespace fs = std::filesystem;
using file_utils::GetFileName;
using file_utils::GetFileSuffix;
using file_utils::IsExist;
using file_utils::IsFile;

class FileUtilsTest : public testing::Test {
protected:
    FileUtilsTest() : m_strFile(m_dir.WriteFile("run/file", "x")) {}

    const TestDir m_dir;
    const std::string m_strFile;
};

TEST_F(FileUtilsTest, ARegularFileIsAFileUnderBothModes) {
    EXPECT_TRUE(IsFile(m_strFile, FOLLOW_LINK_YES));
    EXPECT_TRUE(IsFile(m_strFile, FOLLOW_LINK_NO));
    EXPECT_TRUE(IsFile("file", FOLLOW_LINK_YES));  // from the current directory
}

TEST_F(FileUtilsTest, WhatIsNotARegularFileExistsAndIsNoFile) {
    ASSERT_EQ(0, mkfifo("fifo", 0600));

    for (const char* pszPath : {"/", ".", "fifo", "/dev/null"}) {
        EXPECT_FALSE(IsFile(pszPath, FOLLOW_LINK_YES)) << pszPath;
        EXPECT_FALSE(IsFile(pszPath, FOLLOW_LINK_NO)) << pszPath;
        EXPECT_TRUE(IsExist(pszPath, FOLLOW_LINK_YES)) << pszPath;
        EXPECT_TRUE(IsExist(pszPath, FOLLOW_LINK_NO)) << pszPath;
    }
}

TEST_F(FileUtilsTest, ALinkIsWhatItLeadsToOnlyWhenFollowed) {
    fs::create_symlink("file", "link");

    EXPECT_TRUE(IsFile("link", FOLLOW_LINK_YES));
    EXPECT_FALSE(IsFile("link", FOLLOW_LINK_NO));
    EXPECT_TRUE(IsExist("link", FOLLOW_LINK_NO));
}

TEST_F(FileUtilsTest, ALinkToNothingExistsOnlyUnfollowed) {
    fs::create_symlink("nothing", "link");

    EXPECT_FALSE(IsExist("link", FOLLOW_LINK_YES));
    EXPECT_FALSE(IsFile("link", FOLLOW_LINK_YES));
    EXPECT_TRUE(IsExist("link", FOLLOW_LINK_NO));
    EXPECT_FALSE(IsFile("link", FOLLOW_LINK_NO));
}

TEST_F(FileUtilsTest, ALinkToItselfIsNoFile) {
    fs::create_symlink("link", "link");

    EXPECT_FALSE(IsExist("link", FOLLOW_LINK_YES));
    EXPECT_TRUE(IsExist("link", FOLLOW_LINK_NO));
}

TEST_F(FileUtilsTest, PathsThatNameNothingAreNoFile) {
    const std::string paths[] = {
        "", "absent", m_strFile + "/", m_strFile + "/below", "absent/x", std::string(5000, 'x')};
    for (const std::string& strPath : paths) {
        for (const FOLLOW_LINK_TYPE eFollow : {FOLLOW_LINK_NO, FOLLOW_LINK_YES}) {
            EXPECT_FALSE(IsFile(strPath, eFollow)) << strPath;
            EXPECT_FALSE(IsExist(strPath, eFollow)) << strPath;
        }
    }
}

TEST_F(FileUtilsTest, APathWithANulByteIsNotCutToAnotherFiles) {
    const std::string paths[] = {m_strFile + std::string("\0", 1),
                                 m_strFile + std::string("\0.sh", 4), std::string("\0", 1)};
    for (const std::string& strPath : paths) {
        for (const FOLLOW_LINK_TYPE eFollow : {FOLLOW_LINK_NO, FOLLOW_LINK_YES}) {
            EXPECT_FALSE(IsFile(strPath, eFollow));
            EXPECT_FALSE(IsExist(strPath, eFollow));
        }
    }
}

TEST_F(FileUtilsTest, NothingOpensTheFile) {
    const std::string strUnreadable = m_dir.WriteFile("run/unreadable", "x", 0);

    EXPECT_TRUE(IsFile(strUnreadable, FOLLOW_LINK_YES));
    EXPECT_TRUE(IsExist(strUnreadable, FOLLOW_LINK_YES));
}

TEST(FileUtilsNameTest, TheNameIsTheTextAfterTheLastSlash) {
    const struct {
        const char* pszPath;
        const char* pszName;
    } cases[] = {{"/usr/bin/bash", "bash"}, {"bash", "bash"}, {"./a", "a"}, {"/bash", "bash"},
                 {"/usr/bin/", ""},         {"/", ""},        {"", ""},     {"a//b", "b"}};
    for (const auto& each : cases) {
        EXPECT_EQ(each.pszName, GetFileName(each.pszPath)) << each.pszPath;
    }
}

TEST(FileUtilsNameTest, TheSuffixIsTheTextAfterTheLastPointOfTheName) {
    const struct {
        const char* pszPath;
        const char* pszSuffix;
    } cases[] = {{"run.sh", "sh"},        {"/a/run.sh", "sh"}, {"a.tar.gz", "gz"},
                 {".bashrc", "bashrc"},   {"a.", ""},          {"dir.d/file", ""},
                 {"dir.d/", ""},          {"plain", ""},       {"", ""},
                 {"dir.d/file.py", "py"}, {"..", ""},          {"a.SH", "SH"}};
    for (const auto& each : cases) {
        EXPECT_EQ(each.pszSuffix, GetFileSuffix(each.pszPath)) << each.pszPath;
    }
}

TEST(FileUtilsNameTest, NamesKeepTheirNulBytes) {
    const std::string strPath("/d/a\0b.s\0h", 10);

    EXPECT_EQ(std::string("a\0b.s\0h", 7), GetFileName(strPath));
    EXPECT_EQ(std::string("s\0h", 3), GetFileSuffix(strPath));
}
