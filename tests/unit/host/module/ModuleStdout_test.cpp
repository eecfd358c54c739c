#include "host/module/ModuleStdout.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <vector>

#include "tests/support/Event.h"
#include "tests/support/FileText.h"
#include "tests/support/StdoutCapture.h"

namespace {

using Lines = std::vector<std::string>;

void Print(const std::string& strText) {
    ASSERT_EQ(static_cast<ssize_t>(strText.size()),
              write(STDOUT_FILENO, strText.data(), strText.size()));
}

std::set<int> OpenFds() {
    std::set<int> listed;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        listed.insert(std::stoi(entry.path().filename()));
    }
    std::set<int> fds;
    for (const int nFd : listed) {  // without that of the listing itself
        if (fcntl(nFd, F_GETFD) != -1) {
            fds.insert(nFd);
        }
    }
    return fds;
}

bool HasReader() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (FileText((task.path() / "comm").string()) == "host_modstdout\n") {
            return true;
        }
    }
    return false;
}

}  // namespace

TEST(ModuleStdoutTest, LinesAreReportedFoldedAndStandardOutputComesBack) {
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

TEST(ModuleStdoutTest, WhatStaysInTheBufferOfTheLibraryIsReported) {
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

TEST(ModuleStdoutTest, LongLinesComeInPiecesAndAnyByteComesAsItIs) {
    const StdoutCapture standardOutput;
    Lines lines;
    ModuleStdout printed([&lines](const std::string& strLine) { lines.push_back(strLine); });
    const std::string strOdd("\0\x1b\xff\r", 4);

    ASSERT_TRUE(printed.Begin());
    Print(std::string(4096, 'a') + std::string(4096, 'b') + "c\n\n" + strOdd + "\n");
    Print(std::string(4096, 'd') + "\nx\n" + std::string(4097, 'e') + "\n");
    printed.End();

    EXPECT_EQ((Lines{std::string(4096, 'a'), std::string(4096, 'b'), "c", "", strOdd,
                     std::string(4096, 'd'), "x", std::string(4096, 'e'), "e"}),
              lines);
}

TEST(ModuleStdoutTest, ALineIsReportedWhileTheModuleIsSilentAfterwards) {
    const StdoutCapture standardOutput;
    Lines lines;
    Event told;
    ModuleStdout printed([&](const std::string& strLine) {
        lines.push_back(strLine);
        told.Set();
    });
    ASSERT_TRUE(printed.Begin());

    Print("a\na\n");
    const bool bTold = told.Wait();
    printed.End();

    EXPECT_TRUE(bTold);
    EXPECT_EQ(Lines{"(2 times) a"}, lines);
}

TEST(ModuleStdoutTest, ASecondBeginIsRefusedAndChangesNothing) {
    const StdoutCapture standardOutput;
    Lines lines;
    ModuleStdout printed([&lines](const std::string& strLine) { lines.push_back(strLine); });
    ASSERT_TRUE(printed.Begin());
    Print("a\n");

    const bool bAgain = printed.Begin();
    Print("b\n");
    printed.End();
    Print("after\n");

    EXPECT_FALSE(bAgain);
    EXPECT_EQ((Lines{"a", "b"}), lines);
    EXPECT_EQ("after\n", standardOutput.Text());
}

TEST(ModuleStdoutTest, AfterItsEndItCanBeginAgainAndASecondEndIsNone) {
    const StdoutCapture standardOutput;
    Lines lines;
    const std::set<int> before = OpenFds();
    ModuleStdout printed([&lines](const std::string& strLine) { lines.push_back(strLine); });

    ASSERT_TRUE(printed.Begin());
    Print("a\n");
    printed.End();
    printed.End();
    Print("between\n");
    ASSERT_TRUE(printed.Begin());
    Print("b\n");
    printed.End();

    EXPECT_EQ((Lines{"a", "b"}), lines);
    EXPECT_EQ("between\n", standardOutput.Text());
    EXPECT_EQ(before, OpenFds());
}

TEST(ModuleStdoutTest, NothingThatItOpensIsLeftToAProgramStartedMeanwhile) {
    const StdoutCapture standardOutput;
    const std::set<int> before = OpenFds();
    ModuleStdout printed([](const std::string&) {});
    ASSERT_TRUE(printed.Begin());

    std::vector<int> kept;
    size_t nMore = 0;
    for (const int nFd : OpenFds()) {
        nMore += before.count(nFd) == 0 ? 1 : 0;
        if (before.count(nFd) == 0 && (fcntl(nFd, F_GETFD) & FD_CLOEXEC) == 0) {
            kept.push_back(nFd);
        }
    }
    printed.End();

    EXPECT_LT(0u, nMore);
    EXPECT_EQ(std::vector<int>{}, kept);
}

// The kernel would report the end of the pipe for ever.
TEST(ModuleStdoutTest, AModuleThatClosesStandardOutputEndsTheReading) {
    const StdoutCapture standardOutput;
    Lines lines;
    ModuleStdout printed([&lines](const std::string& strLine) { lines.push_back(strLine); });
    ASSERT_TRUE(printed.Begin());
    Print("a\nthe rest");
    const bool bRead = Eventually(HasReader);

    (void)close(STDOUT_FILENO);
    const bool bEnded = Eventually([] { return !HasReader(); });
    printed.End();
    Print("after\n");

    EXPECT_TRUE(bRead);
    EXPECT_TRUE(bEnded);
    EXPECT_EQ((Lines{"a", "the rest"}), lines);
    EXPECT_EQ("after\n", standardOutput.Text());
}
