// The log line that each failure of a file operation leaves: its text, level, source and function.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"
#include "tevmon/core/CTevFsMonitor.h"

namespace {

struct Failure {
    const char* pszOperation;
    const char* pszPath;
    const char* pszProgram;  // "program" can be hashed
    const char* pszFunction;
    const char* pszText;
};

// In the test's current directory stand "program", a regular file, and "pipe".
class CTevFsMonitorFailuresTest : public testing::TestWithParam<Failure> {
protected:
    CTevFsMonitorFailuresTest() {
        (void)m_dir.WriteFile("run/program", "abc", 0755);
        EXPECT_EQ(0, mkfifo("pipe", 0600));
        CMsgRouterHolder::Instance()->SetRouter(&m_router);
    }
    ~CTevFsMonitorFailuresTest() override { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    const TestDir m_dir;
    FakeRouter m_router;
    LogCapture m_log;
};

}  // namespace

TEST_P(CTevFsMonitorFailuresTest, IsLoggedAtLevelFourByItsHandlerAndPostsNothing) {
    const Failure& failure = GetParam();

    EXPECT_TRUE(CTevFsMonitor::Instance()->ParseFsOpMsg(
        "", std::string(R"({"param":[{"optertion":")") + failure.pszOperation + R"(","path":")" +
                failure.pszPath + R"(","exe_path":")" + failure.pszProgram + R"("}]})"));

    const auto records = m_log.Find(failure.pszText);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(4, records[0].nLevel);
    EXPECT_EQ(failure.pszFunction, records[0].strFunction);
    EXPECT_EQ("tevmon/core/CTevFsMonitor", records[0].strSource);
    EXPECT_TRUE(m_router.Posts().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Failures, CTevFsMonitorFailuresTest,
    testing::Values(Failure{"create", "/etc/cron.d/gone", "none", "FileCreateHandler",
                            "[CTevFsMonitor] calc exepath md5 faid! [none][create]"},
                    Failure{"remove", "/etc/cron.d/gone", "none", "FileDeleteHandler",
                            "[CTevFsMonitor] calc exepath md5 faid! [none][remove]"},
                    Failure{"write", "/etc/cron.d/gone", "none", "FileModifyHandler",
                            "[CTevFsMonitor] calc exepath md5 faid! [none][write]"},
                    Failure{"rename", "/etc/cron.d/gone", "none", "FileRenameHandler",
                            "[CTevFsMonitor] calc exepath md5 faid! [none][rename]"},
                    Failure{"write", "/etc/cron.d/no/such", "program", "FileModifyHandler",
                            "[CTevFsMonitor] stat faid [/etc/cron.d/no/such]"},
                    Failure{"create", "gone", "program", "ProcessPipeHandler",
                            "[CTevFsMonitor] stat faid [gone]"},
                    Failure{"create", "pipe", "none", "ProcessPipeHandler",
                            "[CTevFsMonitor] calc md5 faid! [pipe]"},
                    Failure{"create", "/etc/systemd/system/no/such.service", "none",
                            "AddAutoRunsHandler", "[AddAutoRunsHandler] calc md5 faid! [none]"}));
