#include "host/report/screen/Terminal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "tests/support/Pty.h"

using testing::HasSubstr;
using testing::Not;

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

TEST(TerminalTest, WhatIsRefusedLeavesTheHandlersOfSignalsAlone) {
    int fds[2] = {};
    ASSERT_EQ(0, pipe(fds));
    const auto pfnOurs = [](int) {};
    const auto pfnOld = std::signal(SIGFPE, pfnOurs);
    Terminal terminal;
    EXPECT_FALSE(terminal.Open(fds[1]));
    terminal.Close();

    EXPECT_EQ(static_cast<sighandler_t>(pfnOurs), std::signal(SIGFPE, pfnOld));
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

TEST(TerminalTest, OfOneProcessOneTerminalIsOpenAtATime) {
    const Pty pty;
    const Pty otherPty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    EXPECT_FALSE(terminal.Open(otherPty.Terminal()));
    {
        Terminal second;
        EXPECT_FALSE(second.Open(otherPty.Terminal()));
        second.Close();
    }
    terminal.Draw({"one"});
    EXPECT_THAT(pty.ReadUntil("one"), Not(HasSubstr(LEFT)));

    terminal.Close();
    Terminal second;
    EXPECT_TRUE(second.Open(otherPty.Terminal()));
    EXPECT_EQ(ENTERED, otherPty.ReadUntil(ENTERED));
}

TEST(TerminalTest, ASizeThatIsNotKnownLeavesTheNumbersAsTheyAre) {
    const Pty pty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    size_t nColumns = 1;
    size_t nRows = 2;
    for (const auto& size : {std::pair<unsigned short, unsigned short>{0, 24}, {80, 0}}) {
        pty.Resize(size.first, size.second);
        EXPECT_FALSE(terminal.Size(nColumns, nRows));
    }
    EXPECT_EQ(1u, nColumns);
    EXPECT_EQ(2u, nRows);
}

TEST(TerminalTest, AnotherNumberOfLinesIsDrawnWholeAndTheSameAgainNotAtAll) {
    const Pty pty;
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    terminal.Draw({"one", "two"});
    pty.ReadUntil("two");
    terminal.Draw({"one", "two"});
    terminal.Draw({"one"});
    EXPECT_EQ("\033[0m\033[2J\033[1;1H\033[Kone", pty.ReadUntil("one"));
}

TEST(TerminalTest, HandlersOfSignalsAreGivenBack) {
    const Pty pty;
    const auto pfnOurs = [](int) {};
    const auto pfnOld = std::signal(SIGFPE, pfnOurs);
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    struct sigaction action = {};
    ASSERT_EQ(0, sigaction(SIGFPE, nullptr, &action));
    EXPECT_NE(static_cast<sighandler_t>(pfnOurs), action.sa_handler);
    terminal.Close();

    EXPECT_EQ(static_cast<sighandler_t>(pfnOurs), std::signal(SIGFPE, pfnOld));
}

TEST(TerminalTest, ARestoredTerminalIsNotRestoredOnceMore) {
    const Pty pty;
    Terminal::Restore();  // of none
    {
        Terminal terminal;
        ASSERT_TRUE(terminal.Open(pty.Terminal()));
        errno = ERANGE;
        Terminal::Restore();
        EXPECT_EQ(ERANGE, errno);
        EXPECT_FALSE(terminal.Open(pty.Terminal()));  // it has to be closed first
        Terminal::Restore();
        terminal.Close();
        terminal.Close();
    }
    ASSERT_EQ(3, write(pty.Terminal(), "end", 3));

    EXPECT_EQ(std::string(ENTERED) + LEFT + "end", pty.ReadUntil("end"));
}

// Standard error is the same description as standard output as a rule, and others write there.
TEST(TerminalTest, TheDescriptorThatItIsMadeOfGoesOnBlockingAndItsKeysAreNotTouched) {
    const Pty pty;
    termios before = {};
    ASSERT_EQ(0, tcgetattr(pty.Terminal(), &before));
    Terminal terminal;
    ASSERT_TRUE(terminal.Open(pty.Terminal()));
    termios during = {};
    ASSERT_EQ(0, tcgetattr(pty.Terminal(), &during));

    EXPECT_EQ(0, fcntl(pty.Terminal(), F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(before.c_lflag, during.c_lflag);  // not this process's own terminal
    EXPECT_EQ(before.c_cc[VSUSP], during.c_cc[VSUSP]);
}

// In a session of its own, where the terminal is its own.
TEST(TerminalTest, OnItsOwnTerminalNothingThatIsTypedIsShownUntilItIsGivenBack) {
    const Pty pty;
    const pid_t nChild = fork();
    if (nChild == 0) {
        termios keys = {};
        Terminal terminal;
        const bool bOwn = setsid() > 0 && ioctl(pty.Terminal(), TIOCSCTTY, 0) == 0;
        const bool bOpen = bOwn && terminal.Open(pty.Terminal());
        (void)tcgetattr(pty.Terminal(), &keys);
        const bool bQuiet = (keys.c_lflag & (ECHO | ICANON)) == 0 && (keys.c_lflag & ISIG) != 0 &&
                            keys.c_cc[VSUSP] == _POSIX_VDISABLE;
        terminal.Close();
        (void)tcgetattr(pty.Terminal(), &keys);
        const bool bBack = (keys.c_lflag & (ECHO | ICANON)) == (ECHO | ICANON) &&
                           keys.c_cc[VSUSP] != _POSIX_VDISABLE;
        _exit((bOpen ? 1 : 0) + (bQuiet ? 2 : 0) + (bBack ? 4 : 0));
    }
    ASSERT_GT(nChild, 0);
    int nStatus = 0;
    ASSERT_EQ(nChild, waitpid(nChild, &nStatus, 0));

    ASSERT_TRUE(WIFEXITED(nStatus));
    EXPECT_EQ(7, WEXITSTATUS(nStatus));
}
