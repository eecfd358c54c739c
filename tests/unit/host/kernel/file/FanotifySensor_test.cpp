#include "host/kernel/file/FanotifySensor.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// What the kernel tells is tested live; this runs without any privilege.
[[noreturn]] void OpenWithoutPrivilege() {
    for (unsigned long nCapability = 0; prctl(PR_CAPBSET_DROP, nCapability, 0, 0, 0) == 0;) {
        ++nCapability;
    }
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
        std::_Exit(3);
    }
    std::string strError;
    const bool bOpen = MakeFileSensor(std::make_shared<WatchedPaths>(), false)->Open(strError);
    (void)std::fprintf(stderr, "%s\n", strError.c_str());
    std::_Exit(bOpen ? 2 : 0);
}

}  // namespace

// A mark of a whole file system needs privilege, also where the group itself does not: the sensor
// then says that it can watch places only, or that it is refused.
TEST(FanotifySensorDeathTest, WithoutPrivilegeItSaysWhatIsMissing) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(OpenWithoutPrivilege(), testing::ExitedWithCode(0), "run as root");
}
