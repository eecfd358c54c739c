#include "host/command/HostMain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TestDir.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

class HostMainTest : public testing::Test {
protected:
    // The exit code of "tevmon-host queue count" with these words more. Afterwards m_strError holds
    // standard error.
    int Count(std::vector<const char*> words) {
        words.insert(words.begin(), {"tevmon-host", "queue", "count"});
        testing::internal::CaptureStderr();
        const int nExitCode =
            HostMain(static_cast<int>(words.size()), words.data(), [this] { return m_strDefault; });
        m_strError = testing::internal::GetCapturedStderr();
        return nExitCode;
    }

    TestDir m_dir;
    std::string m_strDefault;  // the state directory of a user who names none
    std::string m_strError;
};

}  // namespace

TEST_F(HostMainTest, WhoHasNoHomeHasToNameTheStateDirectory) {
    EXPECT_EQ(2, Count({"--json", "--verbose"}));

    EXPECT_THAT(m_strError, HasSubstr("--state-dir is required"));
}

TEST_F(HostMainTest, AnEmptyTextNamesNoStateDirectory) {
    EXPECT_EQ(2, Count({"--state-dir", ""}));

    EXPECT_THAT(m_strError, StartsWith("--state-dir: "));
    EXPECT_THAT(m_strError, HasSubstr("names no directory"));
}

TEST_F(HostMainTest, WhereItIsNamedNothingElseIsLookedFor) {
    m_strDefault = m_dir.Path() + "/default";

    EXPECT_EQ(6, Count({"--state-dir", "/no/such/place"}));

    EXPECT_THAT(m_strError, HasSubstr("cannot read /no/such/place/data/db/"));
}

TEST_F(HostMainTest, WhereNoneIsNamedItIsTheUsersOwn) {
    m_strDefault = m_dir.Path() + "/default";

    EXPECT_EQ(6, Count({}));

    EXPECT_THAT(m_strError, HasSubstr("cannot read " + m_strDefault + "/data/db/"));
}
