#include "host/run/ManagerSigns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/NotifySocket.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

TEST(ManagerSignsTest, ReadySignsOfLifeAndTheEndAreSent) {
    const TestDir dir;
    const std::string strSocket = dir.Path() + "/notify";
    const NotifySocket manager(strSocket);
    setenv("NOTIFY_SOCKET", strSocket.c_str(), 1);
    setenv("WATCHDOG_USEC", "300000", 1);
    const VerdictService service;
    RunJournal journal(service, {}, false);
    ManagerSigns signs(journal);
    EXPECT_EQ(nullptr, std::getenv("NOTIFY_SOCKET"));

    signs.Ready();
    signs.Turn(7, std::nullopt);
    signs.Stopping();

    EXPECT_EQ("READY=1", manager.Next(60000));
    EXPECT_EQ("WATCHDOG=1\nSTATUS=7 messages wait for the module", manager.Next(60000));
    EXPECT_EQ("STOPPING=1", manager.Next(60000));
    unsetenv("WATCHDOG_USEC");
}

TEST(ManagerSignsTest, WithoutAServiceManagerNothingIsSaid) {
    unsetenv("NOTIFY_SOCKET");
    testing::internal::CaptureStderr();
    const VerdictService service;
    RunJournal journal(service, {}, false);
    ManagerSigns signs(journal);
    signs.Ready();
    signs.Turn(7, std::nullopt);
    signs.Stopping();
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}
