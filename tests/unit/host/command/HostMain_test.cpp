#include "host/command/HostMain.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TestDir.h"

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

    EXPECT_NE(std::string::npos, m_strError.find("--state-dir is required")) << m_strError;
}

TEST_F(HostMainTest, AnEmptyTextNamesNoStateDirectory) {
    EXPECT_EQ(2, Count({"--state-dir", ""}));

    EXPECT_EQ(0u, m_strError.find("--state-dir: ")) << m_strError;
    EXPECT_NE(std::string::npos, m_strError.find("names no directory")) << m_strError;
}

TEST_F(HostMainTest, WhereItIsNamedNothingElseIsLookedFor) {
    m_strDefault = m_dir.Path() + "/default";

    EXPECT_EQ(6, Count({"--state-dir", "/no/such/place"}));

    EXPECT_NE(std::string::npos, m_strError.find("cannot read /no/such/place/data/db/"))
        << m_strError;
}

TEST_F(HostMainTest, WhereNoneIsNamedItIsTheUsersOwn) {
    m_strDefault = m_dir.Path() + "/default";

    EXPECT_EQ(6, Count({}));

    EXPECT_NE(std::string::npos, m_strError.find("cannot read " + m_strDefault + "/data/db/"))
        << m_strError;
}
