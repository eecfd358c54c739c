#include "host/process/SystemdNotifier.h"

#include <unistd.h>

#include <cstdlib>

#include "tests/support/NotifySocket.h"
#include "tests/support/TestDir.h"

namespace {

class SystemdNotifierTest : public testing::Test {
protected:
    ~SystemdNotifierTest() override {
        for (const char* pszName : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            unsetenv(pszName);
        }
    }

    TestDir m_dir;
    const std::string m_strSocket = m_dir.Path() + "/notify";
};

}  // namespace

TEST_F(SystemdNotifierTest, AMessageReachesTheSocketOfTheEnvironment) {
    const NotifySocket manager(m_strSocket);
    setenv("NOTIFY_SOCKET", m_strSocket.c_str(), 1);
    const SystemdNotifier notify;

    notify.Send("READY=1\nSTATUS=a text");

    EXPECT_TRUE(notify.IsWanted());
    EXPECT_EQ("READY=1\nSTATUS=a text", manager.Next(60000));
}

TEST_F(SystemdNotifierTest, ASocketThatIsNoFileHasANameWithAnAt) {
    const std::string strName = "@tevmon-test-" + std::to_string(getpid());
    const NotifySocket manager(strName);
    setenv("NOTIFY_SOCKET", strName.c_str(), 1);
    const SystemdNotifier notify;

    notify.Send("STOPPING=1");

    EXPECT_EQ("STOPPING=1", manager.Next(60000));
}

TEST_F(SystemdNotifierTest, TheEnvironmentIsTakenSoThatNobodyElseSpeaksForTheHost) {
    setenv("NOTIFY_SOCKET", m_strSocket.c_str(), 1);
    setenv("WATCHDOG_USEC", "30000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);

    const SystemdNotifier notify;

    EXPECT_EQ(std::chrono::seconds(30), notify.Watchdog());
    EXPECT_EQ(nullptr, std::getenv("NOTIFY_SOCKET"));
    EXPECT_EQ(nullptr, std::getenv("WATCHDOG_USEC"));
    EXPECT_EQ(nullptr, std::getenv("WATCHDOG_PID"));
}

TEST_F(SystemdNotifierTest, AWatchdogForAnotherProcessIsNotOurs) {
    setenv("NOTIFY_SOCKET", m_strSocket.c_str(), 1);
    setenv("WATCHDOG_USEC", "30000000", 1);
    setenv("WATCHDOG_PID", "1", 1);

    EXPECT_EQ(std::chrono::milliseconds(0), SystemdNotifier().Watchdog());
}

TEST_F(SystemdNotifierTest, WithoutAManagerNothingIsSentAndNothingFails) {
    const SystemdNotifier none;
    none.Send("READY=1");
    EXPECT_FALSE(none.IsWanted());

    setenv("NOTIFY_SOCKET", "relative", 1);
    EXPECT_FALSE(SystemdNotifier().IsWanted());
    setenv("NOTIFY_SOCKET", ("/" + std::string(200, 'x')).c_str(), 1);
    EXPECT_FALSE(SystemdNotifier().IsWanted());
    setenv("NOTIFY_SOCKET", m_strSocket.c_str(), 1);
    SystemdNotifier().Send("READY=1");
}
