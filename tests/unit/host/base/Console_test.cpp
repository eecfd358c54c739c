#include "host/base/Console.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "tests/support/StdoutCapture.h"

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
    EXPECT_THAT(strMore, HasSubstr(" lines were dropped here"));
    EXPECT_THAT(strMore, HasSubstr("\nread again\n"));
}
