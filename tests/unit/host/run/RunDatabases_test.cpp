#include "host/run/RunDatabases.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

HostOptions OptionsOf(const TestDir& dir) {
    HostOptions options;
    options.strStateDir = dir.Path();
    return options;
}

bool Exists(const std::string& strFile) {
    struct stat status = {};
    return stat(strFile.c_str(), &status) == 0;
}

}  // namespace

TEST(RunDatabasesTest, BothAreMadeReadyAndTidiedUp) {
    const TestDir dir;
    const HostOptions options = OptionsOf(dir);
    std::string strError;
    ASSERT_TRUE(run_databases::Prepare(options, strError)) << strError;
    EXPECT_TRUE(Exists(options.ChannelDatabase()));
    EXPECT_TRUE(Exists(options.CacheDatabase()));

    testing::internal::CaptureStderr();
    Console output;
    run_databases::TidyUp(options, output);
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(RunDatabasesTest, AFileThatIsNoDatabaseIsNamed) {
    const TestDir dir;
    const HostOptions options = OptionsOf(dir);
    dir.WriteFile("data/db/tevcloudcacho.db", std::string(4096, 'x'));
    std::string strError;
    EXPECT_FALSE(run_databases::Prepare(options, strError));
    EXPECT_THAT(strError, HasSubstr(options.CacheDatabase()));
}
