#include "host/command/WatchCommand.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/support/HostProgram.h"

using testing::HasSubstr;

namespace {

class WatchCommandTest : public HostProgramTest {};

}  // namespace

TEST_F(WatchCommandTest, ARecordingThatCannotBeMadeEndsTheWatchBeforeItBegins) {
    EXPECT_EQ(3, Run({"watch", "--record", "/no/such/place/recording"}));

    EXPECT_EQ("tevmon-host: cannot write /no/such/place/recording: No such file or directory\n",
              m_host.Error());
    EXPECT_EQ("", m_host.ModuleCalls());
}

TEST_F(WatchCommandTest, ARecordingIsItsUsersAlone) {
    const std::string strFile = m_dir.Path() + "/recording";
    EXPECT_EQ(3, Run({"watch", "--record", strFile, "--bad", "/no/such/list"}));

    struct stat status = {};
    ASSERT_EQ(0, stat(strFile.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
}

TEST_F(WatchCommandTest, WithoutLaunchesAndFilesThereIsNothingToWatch) {
    EXPECT_EQ(2, Run({"watch", "--no-files", "--no-launches"}));

    EXPECT_THAT(m_host.Error(), HasSubstr("--no-launches excludes --no-files"));
}

TEST_F(WatchCommandTest, AnAliasIsTwoDirectories) {
    for (const char* pszAlias : {"", "nonsense", "/only", "rel=/etc", "/srv=etc"}) {
        EXPECT_EQ(2, Run({"watch", "--alias", pszAlias})) << pszAlias;
    }
}

TEST_F(WatchCommandTest, ABatchHasOneEventAndOneMillisecondAtLeast) {
    EXPECT_EQ(2, Run({"watch", "--batch", "0"}));
    EXPECT_EQ(2, Run({"watch", "--batch-time", "0"}));
}
