#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "tests/system/host/HostProgram.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class WatchCommandTest : public HostProgramTest {
protected:
    // The exit code of a watch whose command line is understood, and which then has no list: 3.
    int Understood(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "watch");
        arguments.insert(arguments.end(), {"--bad", "/no/such/list"});
        HostProgram host(m_dir);
        const int nExitCode = host.Run(arguments);
        m_strError = host.Error();
        return nExitCode;
    }

    std::string m_strError;
};

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

TEST_F(WatchCommandTest, ARecordingTakesOverAFileThatEverybodyCouldReadAndLeavesADeviceAlone) {
    const std::string strFile = m_dir.WriteFile("recording", "of an earlier watch\n", 0644);
    EXPECT_EQ(3, Run({"watch", "--record", strFile, "--bad", "/no/such/list"}));
    struct stat status = {};
    ASSERT_EQ(0, stat(strFile.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
    EXPECT_EQ(0, status.st_size);

    struct stat before = {};
    ASSERT_EQ(0, stat("/dev/null", &before));
    EXPECT_EQ(3, Run({"watch", "--record", "/dev/null", "--bad", "/no/such/list"}));
    ASSERT_EQ(0, stat("/dev/null", &status));
    EXPECT_EQ(before.st_mode, status.st_mode);
}

TEST_F(WatchCommandTest, WithoutLaunchesAndFilesThereIsNothingToWatch) {
    EXPECT_EQ(2, Run({"watch", "--no-files", "--no-launches"}));

    EXPECT_THAT(m_host.Error(), HasSubstr("--no-launches excludes --no-files"));
}

TEST_F(WatchCommandTest, AnAliasIsTwoDirectories) {
    for (const char* pszAlias : {"", "nonsense", "/only", "rel=/etc", "/srv=etc", "/srv=a=/etc"}) {
        EXPECT_EQ(2, Run({"watch", "--alias", pszAlias})) << pszAlias;
    }
}

TEST_F(WatchCommandTest, ABatchHasOneEventAndOneMillisecondAtLeast) {
    EXPECT_EQ(2, Run({"watch", "--batch", "0"}));
    EXPECT_EQ(2, Run({"watch", "--batch-time", "0"}));
}

TEST_F(WatchCommandTest, NumbersAreTakenUpToTheirBoundsAndNotBeyond) {
    const std::string strMetrics = m_dir.Path() + "/metrics";
    for (const auto& [strOption, strLeast, strMost, strBelow, strAbove] :
         {std::array<std::string, 5>{"--batch", "1", "100000", "0", "100001"},
          std::array<std::string, 5>{"--batch-time", "1", "60000", "0", "60001"},
          std::array<std::string, 5>{"--metrics-interval", "0.1", "86400", "0.09", "86400.1"}}) {
        for (const std::string& strGood : {strLeast, strMost}) {
            EXPECT_EQ(3, Understood({"--metrics-file", strMetrics, strOption, strGood})) << strGood;
        }
        for (const std::string& strBad : {strBelow, strAbove}) {
            EXPECT_EQ(2, Understood({"--metrics-file", strMetrics, strOption, strBad})) << strBad;
            EXPECT_THAT(m_strError, StartsWith(strOption + ": Value " + strBad + " not in range"));
        }
    }
}

TEST_F(WatchCommandTest, AnIntervalOfMetricsNeedsTheirFile) {
    EXPECT_EQ(2, Understood({"--metrics-interval", "5"}));

    EXPECT_THAT(m_strError, StartsWith("--metrics-interval requires --metrics-file\n"));
}

TEST_F(WatchCommandTest, OnlyTheSensorsThatThereAreCanBeChosen) {
    for (const char* pszSensor : {"auto", "ebpf", "connector-fanotify", "connector"}) {
        EXPECT_EQ(3, Understood({"--sensor", pszSensor})) << pszSensor;
    }
    EXPECT_EQ(2, Understood({"--sensor", "perf"}));
    EXPECT_THAT(m_strError,
                StartsWith("--sensor: perf not in {auto,ebpf,connector-fanotify,connector}\n"));
}

TEST_F(WatchCommandTest, AliasesAreRepeatableAndEachIsLookedAt) {
    EXPECT_EQ(3, Understood({"--alias", "/srv/root/etc=/etc", "--alias", "/a=/b"}));

    EXPECT_EQ(2, Understood({"--alias", "/a=/b", "/c=/d"}));
    EXPECT_THAT(m_strError, StartsWith("The following argument was not expected: /c=/d\n"));
    EXPECT_EQ(2, Understood({"--alias", "/a=/b", "--alias", "/a"}));
    EXPECT_THAT(m_strError, StartsWith("--alias: wants /FROM=/TO, two directories\n"));
}

TEST_F(WatchCommandTest, ARelativeRecordingIsOneOfTheCurrentDirectoryAndBeginsEmpty) {
    const std::string strFile = m_dir.WriteFile("run/recording", "of an earlier watch\n");

    EXPECT_EQ(3, Understood({"--record", "recording"}));

    EXPECT_EQ("", FileText(strFile));
}

TEST_F(WatchCommandTest, ANameOfARecordingNeverSteersTheTerminal) {
    EXPECT_EQ(3, Understood({"--record", "/no/\x1b[2Jplace"}));

    EXPECT_EQ("tevmon-host: cannot write /no/\\x1B[2Jplace: No such file or directory\n",
              m_strError);
}

TEST_F(WatchCommandTest, HelpShowsTheDefaults) {
    EXPECT_EQ(0, Run({"watch", "--help"}));

    for (const char* pszText :
         {"--metrics-interval SECONDS:FLOAT in [0.1 - 86400]=10",
          "--sensor TEXT:{auto,ebpf,connector-fanotify,connector}",
          "--batch N:INT in [1 - 100000]=256", "--batch-time MS:INT in [1 - 60000]=200",
          "--alias FROM=TO", "--queue-rows N:POSITIVE=200000",
          "Needs root. Without --for it goes on until Ctrl-C. SIGUSR1 has the balance shown."}) {
        EXPECT_THAT(m_host.Output(), HasSubstr(pszText));
    }
}
