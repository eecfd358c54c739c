#include "host/kernel/launch/ExecOpens.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

namespace {

// In a child of its own: the user is the process's.
void OpenWithoutPrivilege() {
    if (getuid() == 0 && setuid(65534) != 0) {
        _exit(3);
    }
    ExecOpens opens;
    std::string strError;
    const bool bOpen = opens.Open(strError);
    std::fprintf(stderr, "%s\n", strError.c_str());
    _exit(bOpen ? 0 : 42);
}

}  // namespace

TEST(ExecOpensDeathTest, WithoutPrivilegeItSaysWhatIsMissing) {
    EXPECT_EXIT(OpenWithoutPrivilege(), testing::ExitedWithCode(42),
                "refuses to tell executed files: .*CAP_SYS_ADMIN");
}

TEST(ExecOpensTest, OfAProcessThatOpenedNothingThereIsNothing) {
    ExecOpens opens;

    EXPECT_TRUE(opens.Take(1).empty());
    EXPECT_EQ("", opens.Unmarked());
}
