#include "host/command/HostMain.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace {

// In a child of its own: user and environment are the process's. "tevmon-host queue count" and
// two more words, of a user who has no home.
[[noreturn]] void CountWithoutHome(const char* pszMore, const char* pszLast) {
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
        _exit(100);
    }
    unsetenv("XDG_STATE_HOME");
    unsetenv("HOME");
    const char* const argv[] = {"tevmon-host", "queue", "count", pszMore, pszLast};
    _exit(HostMain(5, argv));
}

}  // namespace

TEST(HostMainDeathTest, WhoHasNoHomeHasToNameTheStateDirectory) {
    EXPECT_EXIT(CountWithoutHome("--json", "--verbose"), testing::ExitedWithCode(2),
                "--state-dir is required");
}

TEST(HostMainDeathTest, AnEmptyTextNamesNoStateDirectory) {
    EXPECT_EXIT(CountWithoutHome("--state-dir", ""), testing::ExitedWithCode(2),
                "--state-dir: .*names no directory");
}

TEST(HostMainDeathTest, WhereItIsNamedNothingElseIsLookedFor) {
    EXPECT_EXIT(CountWithoutHome("--state-dir", "/no/such/place"), testing::ExitedWithCode(6),
                "cannot read /no/such/place/data/db/");
}
