#include "host/base/Console.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <vector>

#include "tests/support/StdoutCapture.h"
#include "tests/support/host/OnTerminal.h"

using testing::HasSubstr;

namespace {

// Replaces standard output while it lives.
class StandardOutput {
public:
    explicit StandardOutput(int nFd) : m_nOld(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        dup2(nFd, STDOUT_FILENO);
    }
    ~StandardOutput() {
        dup2(m_nOld, STDOUT_FILENO);
        close(m_nOld);
    }
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

private:
    int m_nOld;
};

// What it was given, errors marked.
class KeepingScreen : public IScreen {
public:
    void ScreenLine(const std::string& strLine, bool bError) override {
        lines.push_back((bError ? "! " : "") + strLine);
    }
    std::vector<std::string> lines;
};

}  // namespace

TEST(ConsoleTest, ResultsAndRemarksGoTheirOwnWays) {
    const StdoutCapture standardOutput;
    testing::internal::CaptureStderr();
    Console output;

    output.Line("a result");
    output.Error("a remark");

    EXPECT_EQ("a result\n", standardOutput.Text());
    EXPECT_EQ("a remark\n", testing::internal::GetCapturedStderr());
}

TEST(ConsoleTest, WhatOthersPrintGoesToStandardErrorOnceStandardOutputIsTaken) {
    const StdoutCapture standardOutput;
    testing::internal::CaptureStderr();
    {
        Console output;
        output.TakeStandardOutput();
        ASSERT_EQ(6, write(STDOUT_FILENO, "other\n", 6));
        output.Line("a result");
    }
    ASSERT_EQ(6, write(STDOUT_FILENO, "given\n", 6));  // given back at the end

    EXPECT_EQ("a result\ngiven\n", standardOutput.Text());
    EXPECT_EQ("other\n", testing::internal::GetCapturedStderr());
}

TEST(ConsoleTest, AFullDiskIsReportedOnceAndEndsTheWriting) {
    const int nFull = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_LE(0, nFull);
    const StandardOutput full(nFull);
    Console output;
    EXPECT_FALSE(output.IsBroken());

    output.Line("a result");
    output.Line("another");

    EXPECT_TRUE(output.IsBroken());
    EXPECT_EQ("No space left on device", output.BrokenReason());
    close(nFull);
}

TEST(ConsoleTest, AReaderThatLeftNeedsNoWords) {
    int fds[2];
    ASSERT_EQ(0, pipe2(fds, O_CLOEXEC));
    close(fds[0]);
    const auto pfnOld = std::signal(SIGPIPE, SIG_IGN);
    const StandardOutput broken(fds[1]);
    Console output;

    output.Line("a result");

    EXPECT_TRUE(output.IsBroken());
    EXPECT_EQ("", output.BrokenReason());
    std::signal(SIGPIPE, pfnOld);
    close(fds[1]);
}

TEST(ConsoleTest, WithoutATerminalThereIsNoColourAndNoProgress) {
    const StdoutCapture standardOutput;
    testing::internal::CaptureStderr();
    Console output;

    output.Progress("50 %");

    EXPECT_EQ("bad", output.Paint(Console::COLOUR_RED, "bad"));
    EXPECT_FALSE(output.HasProgress());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(ConsoleTest, AStandardErrorThatNobodyReadsStallsNobodyAndItsDroppedLinesAreCounted) {
    int pipeFds[2];
    ASSERT_EQ(0, pipe2(pipeFds, O_CLOEXEC));
    const int nOld = dup(STDERR_FILENO);
    ASSERT_EQ(STDERR_FILENO, dup2(pipeFds[1], STDERR_FILENO));
    Console output;

    for (int i = 0; i < 2000; ++i) {
        output.Error(std::string(99, 'x'));  // more than a pipe holds
    }
    std::string strText(1 << 20, ' ');
    strText.resize(static_cast<size_t>(read(pipeFds[0], strText.data(), strText.size())));
    output.Error("read again");
    const ssize_t nMore = read(pipeFds[0], strText.data(), strText.size());
    dup2(nOld, STDERR_FILENO);
    for (const int nFd : {nOld, pipeFds[0], pipeFds[1]}) {
        close(nFd);
    }

    const std::string strMore = strText.substr(0, static_cast<size_t>(nMore));
    EXPECT_EQ(0u, strMore.find("\ntevmon-host: ")) << strMore;
    EXPECT_THAT(strMore, HasSubstr(" lines left out here, because nobody read standard error\n"));
    EXPECT_THAT(strMore, HasSubstr("\nread again\n"));
}

TEST(ConsoleTest, OnATerminalEachColourHasItsSequence) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    const Console output;
    EXPECT_TRUE(output.HasColour());
    EXPECT_EQ("a", output.Paint(Console::COLOUR_NONE, "a"));
    EXPECT_EQ("\033[1ma\033[0m", output.Paint(Console::COLOUR_BOLD, "a"));
    EXPECT_EQ("\033[2ma\033[0m", output.Paint(Console::COLOUR_DIM, "a"));
    EXPECT_EQ("\033[32ma\033[0m", output.Paint(Console::COLOUR_GREEN, "a"));
    EXPECT_EQ("\033[33ma\033[0m", output.Paint(Console::COLOUR_YELLOW, "a"));
    EXPECT_EQ("\033[31ma\033[0m", output.Paint(Console::COLOUR_RED, "a"));
}

TEST(ConsoleTest, TheEnvironmentSaysWhatTheTerminalTakes) {
    const struct {
        const char* pszTerm;
        const char* pszNoColour;
        bool bColour;
        bool bTerminal;
    } CASES[] = {{"xterm", nullptr, true, true},
                 {"xterm", "", true, true},
                 {"xterm", "0", false, true},
                 {"dumb", nullptr, false, false},
                 {nullptr, nullptr, false, false}};
    for (const auto& each : CASES) {
        const Pty pty;
        const OnTerminal onTerminal(pty, STDOUT_FILENO, each.pszNoColour);
        const Variable term("TERM", each.pszTerm);
        const Console output;
        EXPECT_EQ(each.bColour, output.HasColour());
        EXPECT_EQ(each.bTerminal ? STDOUT_FILENO : -1, output.TerminalFd());
    }
}

TEST(ConsoleTest, AStandardOutputThatIsTakenTwiceIsTheSameAndStillTheTerminal) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    testing::internal::CaptureStderr();
    Console output;
    output.TakeStandardOutput();
    const int nFd = output.TerminalFd();
    output.TakeStandardOutput();
    output.Line("a result");

    EXPECT_LT(STDERR_FILENO, nFd);
    EXPECT_EQ(nFd, output.TerminalFd());
    EXPECT_EQ("a result\r\n", pty.ReadUntil("\n"));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

// Else the first file that is opened would be standard input.
TEST(ConsoleTest, AClosedDescriptorIsTakenBeforeAFileCanTakeIt) {
    const StdoutCapture standardOutput;
    const int nInput = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    {
        Console output;
        output.TakeStandardOutput();
        output.Line("a result");
    }
    const int nFlags = fcntl(STDIN_FILENO, F_GETFL);
    dup2(nInput, STDIN_FILENO);
    close(nInput);

    EXPECT_EQ(O_RDWR, nFlags & O_ACCMODE);
    EXPECT_EQ("a result\n", standardOutput.Text());
}

TEST(ConsoleTest, OnATerminalProgressMakesRoomForLinesAndComesBack) {
    const Pty pty;
    const OnTerminal onTerminal(pty, STDERR_FILENO);
    const StdoutCapture standardOutput;
    {
        Console output;
        EXPECT_TRUE(output.HasProgress());
        output.Progress("50 %");
        output.Progress("50 %");
        output.Line("a result");
        output.Error("a remark");
        output.Progress("60 %");
        output.Progress("");
        output.Line("another");
        output.Progress("70 %");
    }
    ASSERT_EQ(3, write(STDERR_FILENO, "end", 3));

    EXPECT_EQ(
        "50 %"
        "\r\033[K50 %"
        "\r\033[Ka remark\r\n50 %"
        "\r\033[K60 %"
        "\r\033[K"
        "70 %"
        "\r\033[Kend",
        pty.ReadUntil("end"));
    EXPECT_EQ("a result\nanother\n", standardOutput.Text());
}

TEST(ConsoleTest, ProgressIsCutBeforeItWrapsToo) {
    const Pty pty;
    pty.Resize(10, 24);
    const OnTerminal onTerminal(pty, STDERR_FILENO);
    Console output;
    output.Progress("0123456789");
    output.Progress("");
    EXPECT_EQ("012345678\r\033[K", pty.ReadUntil("\033[K"));

    pty.Resize(0, 0);  // not known
    output.Progress(std::string(81, 'x'));
    output.Progress("");
    EXPECT_EQ(std::string(79, 'x') + "\r\033[K", pty.ReadUntil("\033[K"));
}

TEST(ConsoleTest, AScreenTakesLinesAndErrorsAndThereAreNoColoursMeanwhile) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    testing::internal::CaptureStderr();
    Console output;
    KeepingScreen screen;
    output.SetScreen(&screen);
    output.Line("a result\nof two lines");
    output.Error("a remark");
    output.Complain("foreign\033");
    EXPECT_EQ("a", output.Paint(Console::COLOUR_RED, "a"));
    output.SetScreen(nullptr);
    output.Line("after it");

    EXPECT_EQ((std::vector<std::string>{"a result\nof two lines", "! a remark",
                                        "! tevmon-host: foreign\\x1B"}),
              screen.lines);
    EXPECT_EQ("after it\r\n", pty.ReadUntil("after it\r\n"));
    // It is no terminal, so nothing else would show them.
    EXPECT_EQ("a remark\ntevmon-host: foreign\\x1B\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ("\033[31ma\033[0m", output.Paint(Console::COLOUR_RED, "a"));
}

TEST(ConsoleTest, WhereStandardErrorIsTheDrawnTerminalNothingIsWrittenIntoTheScreen) {
    const Pty pty;
    const OnTerminal onTerminal(pty, STDERR_FILENO);
    Console output;
    KeepingScreen screen;
    output.SetScreen(&screen);
    output.Error("a remark");
    output.Progress("50 %");
    output.SetScreen(nullptr);
    output.Error("after it");

    EXPECT_EQ((std::vector<std::string>{"! a remark"}), screen.lines);
    EXPECT_EQ("after it\r\n", pty.ReadUntil("after it\r\n"));
}

TEST(ConsoleTest, TheFirstReasonForABrokenOutputIsKeptAndScreensGetNothingMore) {
    const StdoutCapture standardOutput;
    Console output;
    EXPECT_EQ("", output.BrokenReason());
    output.Break(EIO);
    output.Break(ENOSPC);
    KeepingScreen screen;
    output.SetScreen(&screen);
    output.Line("a result");
    output.SetScreen(nullptr);
    output.Line("another");

    EXPECT_TRUE(output.IsBroken());
    EXPECT_EQ("Input/output error", output.BrokenReason());
    EXPECT_EQ(std::vector<std::string>(), screen.lines);
    EXPECT_EQ("", standardOutput.Text());
}

TEST(ConsoleTest, AForeignTextCanNeitherEndItsComplaintNorSteerTheTerminal) {
    testing::internal::CaptureStderr();
    Console output;
    output.Complain("a\ntevmon-host: b\r\xFF\xE2\x80\xAE");

    EXPECT_EQ("tevmon-host: a\\x0Atevmon-host: b\\x0D\\xFF\\xE2\\x80\\xAE\n",
              testing::internal::GetCapturedStderr());
}

TEST(ConsoleTest, ALongErrorIsWrittenWhole) {
    testing::internal::CaptureStderr();
    Console output;
    output.Error(std::string(10000, 'x') + "y");

    EXPECT_EQ(std::string(10000, 'x') + "y\n", testing::internal::GetCapturedStderr());
}

TEST(ConsoleTest, AStandardErrorThatIsClosedIsNoReasonToStall) {
    const StdoutCapture standardOutput;
    const int nOld = dup(STDERR_FILENO);
    close(STDERR_FILENO);
    Console output;
    output.Error("a remark");
    output.Line("a result");
    dup2(nOld, STDERR_FILENO);
    close(nOld);

    testing::internal::CaptureStderr();
    output.Error("another");
    EXPECT_EQ("another\n", testing::internal::GetCapturedStderr());  // none was dropped
    EXPECT_EQ("a result\n", standardOutput.Text());
}
