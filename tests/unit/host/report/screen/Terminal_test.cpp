#include "host/report/screen/Terminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>

#include <csignal>

#include "tests/support/Pty.h"

using testing::HasSubstr;

namespace {

constexpr char ENTERED[] = "\033[?1049h\033[?25l\033[?7l\033[2J";
constexpr char LEFT[] = "\033[0m\033[?7h\033[?25h\033[?1049l";

}  // namespace

TEST(TerminalTest, TheTerminalIsAsItWasAfterwards) {
    const Pty pty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    EXPECT_EQ(ENTERED, pty.ReadUntil(ENTERED));
    terminal.Close();
    EXPECT_EQ(LEFT, pty.ReadUntil(LEFT));

    ASSERT_TRUE(terminal.Open(pty.Terminal()));  // and once more
}

TEST(TerminalTest, OnlyWhatChangedIsDrawn) {
    const Pty pty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    terminal.Draw({"one", "two"});
    pty.ReadUntil("two");
    terminal.Draw({"one", "three"});
    EXPECT_EQ("\033[2;1H\033[Kthree", pty.ReadUntil("three"));

    terminal.ForgetDrawn();
    terminal.Draw({"one", "three"});
    EXPECT_EQ("\033[0m\033[2J\033[1;1H\033[Kone\033[2;1H\033[Kthree", pty.ReadUntil("three"));
}

TEST(TerminalTest, TheSizeIsTheTerminalsNow) {
    const Pty pty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    size_t nColumns = 0;
    size_t nRows = 0;
    ASSERT_TRUE(terminal.Size(nColumns, nRows));
    EXPECT_EQ(80u, nColumns);
    pty.Resize(200, 50);
    ASSERT_TRUE(terminal.Size(nColumns, nRows));
    EXPECT_EQ(200u, nColumns);
    EXPECT_EQ(50u, nRows);
}

TEST(TerminalTest, WhatIsNoTerminalIsRefused) {
    int fds[2] = {};
    ASSERT_EQ(0, pipe(fds));
    Terminal terminal;
    EXPECT_FALSE(terminal.Open(fds[1]));
    EXPECT_FALSE(terminal.Open(-1));
    close(fds[0]);
    close(fds[1]);
}

TEST(TerminalTest, ATerminalThatHungUpIsGone) {
    Pty pty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    pty.HangUp();
    terminal.Draw({"one"});
    EXPECT_TRUE(terminal.IsGone());
}

TEST(TerminalTest, ATerminalThatTakesNothingHoldsUpNobody) {
    const Pty pty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    pty.ReadUntil(ENTERED);
    ASSERT_EQ(0, tcflow(pty.Terminal(), TCOOFF));
    terminal.Draw({std::string(100000, 'x')});
    EXPECT_FALSE(terminal.IsGone());

    ASSERT_EQ(0, tcflow(pty.Terminal(), TCOON));
    terminal.Draw({"again"});  // whole, because nobody knows what is there
    EXPECT_THAT(pty.ReadUntil("again"), HasSubstr("\033[2J"));
}

TEST(TerminalTest, ACrashLeavesTheTerminalSane) {
    const Pty pty;
    const pid_t nChild = fork();
    if (nChild == 0) {
        const rlimit noCore = {0, 0};
        (void)setrlimit(RLIMIT_CORE, &noCore);
        Terminal terminal;
        (void)terminal.Open(pty.Terminal());
        std::abort();
    }
    ASSERT_GT(nChild, 0);
    const std::string strAll = pty.ReadUntil(LEFT);
    int nStatus = 0;
    ASSERT_EQ(nChild, waitpid(nChild, &nStatus, 0));

    EXPECT_THAT(strAll, HasSubstr(LEFT));
    EXPECT_TRUE(WIFSIGNALED(nStatus));
    EXPECT_EQ(SIGABRT, WTERMSIG(nStatus));
}
