#include "framework/base/CDir.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/TestDir.h"

namespace fs = std::filesystem;

TEST(CDirTest, TheCurrentDirectoryEndsInASlash) {
    const TestDir dir;

    EXPECT_EQ(fs::canonical(dir.Path()).string() + "/run/", CDir::currentDir());
}

TEST(CDirTest, FollowsAChangeOfDirectory) {
    const TestDir dir;
    (void)CDir::currentDir();
    fs::create_directory("below");

    fs::current_path("below");

    EXPECT_EQ(fs::canonical(dir.Path()).string() + "/run/below/", CDir::currentDir());
}

TEST(CDirTest, TheRootIsOneSlash) {
    const TestDir dir;
    fs::current_path("/");

    EXPECT_EQ("/", CDir::currentDir());
}

TEST(CDirTest, ALongPathComesWhole) {
    const TestDir dir;
    std::string strExpected = fs::canonical(dir.Path()).string() + "/run/";
    for (int i = 0; i < 30; ++i) {
        const std::string strName(200, static_cast<char>('a' + i % 26));
        ASSERT_TRUE(fs::create_directory(strName));
        ASSERT_EQ(0, chdir(strName.c_str()));
        strExpected += strName + "/";
    }

    EXPECT_EQ(strExpected, CDir::currentDir());
}

TEST(CDirTest, ADirectoryWithoutAPathIsAPoint) {
    const TestDir dir;
    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove("../gone");

    EXPECT_EQ("./", CDir::currentDir());
}
