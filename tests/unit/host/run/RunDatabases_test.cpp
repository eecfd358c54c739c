#include "host/run/RunDatabases.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/database/DatabaseProbe.h"
#include "tests/support/DbFile.h"
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

// The first connection locks others out while it makes the log's index: a module that tries five
// times at once lost a message by that.
TEST(RunDatabasesTest, TheLogsIndexIsThereBeforeTheModuleWhileBothAreHeld) {
    const TestDir dir;
    const HostOptions options = OptionsOf(dir);
    std::string strError;
    ASSERT_TRUE(run_databases::Prepare(options, strError)) << strError;
    const std::string strChannelIndex = options.ChannelDatabase() + "-shm";
    const std::string strCacheIndex = options.CacheDatabase() + "-shm";
    EXPECT_FALSE(Exists(strChannelIndex));
    EXPECT_FALSE(Exists(strCacheIndex));
    auto held = run_databases::Hold(options);
    EXPECT_TRUE(Exists(strChannelIndex));
    EXPECT_TRUE(Exists(strCacheIndex));
    {
        DbFile module(options.ChannelDatabase());
        module.Execute(CHANNEL_TABLE);
        module.Execute("insert into msgchennal(detail) values('x')");
    }
    EXPECT_TRUE(Exists(strChannelIndex));  // the module's was not the last connection
    EXPECT_EQ(1u, database_probe::QueueDepth(options.ChannelDatabase()));
    held = {};
    Console output;
    testing::internal::CaptureStderr();
    run_databases::TidyUp(options, output);
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_FALSE(Exists(strChannelIndex));
    EXPECT_FALSE(Exists(strCacheIndex));
    EXPECT_EQ(1u, database_probe::QueueDepth(options.ChannelDatabase()));
}

TEST(RunDatabasesTest, AFileThatIsNoDatabaseIsNamed) {
    const TestDir dir;
    const HostOptions options = OptionsOf(dir);
    dir.WriteFile("data/db/tevcloudcacho.db", std::string(4096, 'x'));
    std::string strError;
    EXPECT_FALSE(run_databases::Prepare(options, strError));
    EXPECT_THAT(strError, HasSubstr(options.CacheDatabase()));
}
