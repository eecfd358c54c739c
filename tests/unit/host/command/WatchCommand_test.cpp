#include "host/command/WatchCommand.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/support/FakeModules.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/FakeFileSensor.h"
#include "tests/support/host/FakeLaunchSensor.h"

using testing::ExitedWithCode;

namespace {

// In a child of its own: a run takes privileges from its process, and keeps its directory and its
// signals. Every sensor is refused, and says which one it is; unless bOpen.
[[noreturn]] void Watch(const std::string& strArguments, bool bOpen = false) {
    int nExitCode = -1;
    {
        const TestDir dir;
        const HostOptions options{dir.Path() + "/state", FakeModule("lacks_function")};
        FakeLaunchState launches;
        FakeFileState files;
        SensorMakers makers;
        makers.fnLaunches = [&launches, bOpen](const std::string& strWord) {
            launches.strRefusal = bOpen ? "" : "no " + strWord;
            return std::make_unique<FakeLaunchSensor>(launches);
        };
        makers.fnFiles = [&files, bOpen](const std::shared_ptr<WatchedPaths>& pPlaces, bool bAll) {
            const std::string strEtc = pPlaces->Spelled("/srv/root/cron.d/job");
            files.strRefusal = bOpen ? "" : (bAll ? "nothing, not even " : "no ") + strEtc;
            return std::make_unique<FakeFileSensor>(files);
        };
        CommandLine program("tevmon-host", "");
        AddWatchCommand(program, options, nExitCode, makers);
        (void)program.Parse("watch --no-packages " + strArguments, nExitCode);
    }
    _exit(nExitCode);
}

}  // namespace

TEST(WatchCommandDeathTest, ASensorOfFilesThatIsRefusedEndsTheWatchBeforeAModuleIsLoaded) {
    EXPECT_EXIT(Watch("--no-launches"), ExitedWithCode(10),
                "^tevmon-host: no /srv/root/cron.d/job\n$");
}

TEST(WatchCommandDeathTest, TheModuleIsLoadedOnceTheSensorsAreOpen) {
    EXPECT_EXIT(Watch("", true), ExitedWithCode(4), "is not a module: it has no function");
}

TEST(WatchCommandDeathTest, TheSensorOfFilesKnowsTheAliasesAndWhetherItWatchesEverything) {
    EXPECT_EXIT(Watch("--no-launches --all-filesystems --alias /srv/root=/etc"), ExitedWithCode(10),
                "^tevmon-host: nothing, not even /etc/cron.d/job\n$");
}

TEST(WatchCommandDeathTest, TheSensorOfLaunchesIsTheOneThatWasAskedFor) {
    EXPECT_EXIT(Watch("--no-files --sensor connector-fanotify"), ExitedWithCode(10),
                "^tevmon-host: no connector-fanotify\n$");
    EXPECT_EXIT(Watch("--no-files"), ExitedWithCode(10), "^tevmon-host: no auto\n$");
}
