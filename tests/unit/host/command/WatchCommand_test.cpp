#include "host/command/WatchCommand.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/support/TestDir.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// In a child of its own: the user is the process's. Watches as a user whom the kernel tells
// nothing.
[[noreturn]] void WatchWithoutRights(const std::string& strArguments) {
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
        _exit(3);
    }
    int nExitCode = -1;
    {
        const TestDir dir;
        const HostOptions options{dir.Path() + "/state", dir.Path() + "/no module"};
        CommandLine program("tevmon-host", "");
        AddWatchCommand(program, options, nExitCode);
        (void)program.Parse("watch --no-packages " + strArguments, nExitCode);
    }
    _exit(nExitCode);
}

}  // namespace

TEST(WatchCommandDeathTest, WithoutRightsTheFilesSensorIsRefusedBeforeAModuleIsLoaded) {
    EXPECT_EXIT(WatchWithoutRights("--no-launches"), testing::ExitedWithCode(10),
                "^tevmon-host: the kernel refuses to report file operations: .*; run as root");
}

TEST(WatchCommandDeathTest, TheSensorOfLaunchesIsTheOneThatWasAskedFor) {
    EXPECT_EXIT(WatchWithoutRights("--no-files --sensor connector-fanotify"),
                testing::ExitedWithCode(10),
                testing::AllOf(StartsWith("tevmon-host: "), Not(HasSubstr("instead of it"))));
    EXPECT_EXIT(WatchWithoutRights("--no-files"), testing::ExitedWithCode(10),
                "^tevmon-host: .*; instead of it: ");
}
