#include "host/module/ModuleStdout.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "tests/support/StdoutCapture.h"

namespace {

using Lines = std::vector<std::string>;

void Print(const std::string& strText) {
    ASSERT_EQ(static_cast<ssize_t>(strText.size()),
              write(STDOUT_FILENO, strText.data(), strText.size()));
}

}  // namespace

TEST(ModuleStdoutTest, LinesAreToldFoldedAndStandardOutputComesBack) {
    const StdoutCapture standardOutput;
    Lines lines;
    ModuleStdout printed([&lines](const std::string& strLine) { lines.push_back(strLine); });

    ASSERT_TRUE(printed.Begin());
    Print("a\nb\na\n");
    Print("the ");
    Print("rest");
    printed.End();
    Print("after\n");

    EXPECT_EQ((Lines{"(2 times) a", "b", "the rest"}), lines);
    EXPECT_EQ("after\n", standardOutput.Text());
}

TEST(ModuleStdoutTest, MoreThanAPipeHoldsIsReadWhileItIsPrinted) {
    const StdoutCapture standardOutput;
    uint64_t nBytes = 0;
    ModuleStdout printed([&nBytes](const std::string& strLine) { nBytes += strLine.size(); });

    ASSERT_TRUE(printed.Begin());
    for (int i = 0; i < 20; ++i) {
        Print(std::string(100000, static_cast<char>('a' + i)) + "\n");
    }
    printed.End();

    EXPECT_LT(20u * 4096, nBytes);
}

TEST(ModuleStdoutTest, WhatStaysInTheBufferOfTheLibraryIsTold) {
    const StdoutCapture standardOutput;
    Lines lines;
    ModuleStdout printed([&lines](const std::string& strLine) { lines.push_back(strLine); });

    ASSERT_TRUE(printed.Begin());
    std::printf("buffered");
    printed.End();

    EXPECT_EQ(Lines{"buffered"}, lines);
    EXPECT_EQ("", standardOutput.Text());
}

TEST(ModuleStdoutTest, ASideThatStaysOpenDoesNotHoldUpTheEnd) {
    const StdoutCapture standardOutput;
    Lines lines;
    ModuleStdout printed([&lines](const std::string& strLine) { lines.push_back(strLine); });
    ASSERT_TRUE(printed.Begin());
    const int nKept = dup(STDOUT_FILENO);
    ASSERT_EQ(2, write(nKept, "a\n", 2));

    printed.End();

    EXPECT_EQ(Lines{"a"}, lines);
    close(nKept);
}
