#include "host/kernel/launch/LaunchSensor.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

namespace {

// In a child of its own: the user is the process's.
void OpenWithoutPrivilege() {
    if (getuid() == 0 && setuid(65534) != 0) {
        _exit(3);
    }
    std::string strError;
    const bool bOpen = MakeLaunchSensor()->Open(strError);
    std::fprintf(stderr, "%s\n", strError.c_str());
    _exit(bOpen ? 0 : 42);
}

}  // namespace

TEST(LaunchSensorDeathTest, WithoutPrivilegeItSaysWhatIsMissingAndHowToGetIt) {
    EXPECT_EXIT(OpenWithoutPrivilege(), testing::ExitedWithCode(42),
                "run as root|built without the launch sensor");
}
