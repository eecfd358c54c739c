#include "host/kernel/launch/OpenedFiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <vector>

#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/ExecNoticeBytes.h"
#include "tests/support/kernel/FakeKernel.h"

namespace {

class OpenedFilesTest : public testing::Test {
protected:
    OpenedFilesTest() {
        m_kernel.paths["/proc/self/mountinfo"] = m_dir.WriteFile("mountinfo", "");
        std::string strError;
        EXPECT_TRUE(m_opened.Open(strError)) << strError;
    }
    // Process nPid opens a file to start it; it waits in the kernel's queue. Its launch.
    LaunchEvent Start(uint32_t nPid, const std::string& strName) {
        const int nFd =
            open(m_dir.WriteFile(strName, "content of " + strName).c_str(), O_RDONLY | O_CLOEXEC);
        FileStatus status;
        EXPECT_TRUE(file_look::AtDescriptor(nFd, status));
        m_kernel.Tell({}, {{exec_open_bytes::Opened(static_cast<int32_t>(nPid), nFd)}});
        LaunchEvent event;
        event.nPid = nPid;
        event.nDevice = major(status.st_dev) << 20 | minor(status.st_dev);
        event.nInode = status.st_ino;
        event.nSize = static_cast<uint64_t>(status.st_size);
        event.nChanged = status.Changed();
        return event;
    }
    // What is known of the launch, each with a "!" where it is its program.
    std::vector<std::string> FilesOf(const LaunchEvent& event) {
        std::vector<std::string> names;
        for (const OpenedForStart& file : m_opened.FilesOf(event)) {
            names.push_back(FileText("/proc/self/fd/" + std::to_string(file.nFd)).substr(11) +
                            (file.bInterpreter ? "!" : ""));
        }
        return names;
    }
    std::string ContentOf(const LaunchEvent& event) {
        const std::string strPath = m_opened.PathOf(event, file_look::AtTarget);
        return strPath.empty() ? "none" : FileText(strPath);
    }

    using Names = std::vector<std::string>;

    FakeKernel m_kernel;
    TestDir m_dir;
    OpenedFiles m_opened;
    OpenedFiles::Clock::time_point m_now = OpenedFiles::Clock::now();
};

}  // namespace

TEST_F(OpenedFilesTest, AFileIsThereWithoutItsName) {
    const LaunchEvent event = Start(7, "program");
    ASSERT_EQ(0, unlink((m_dir.Path() + "/program").c_str()));
    EXPECT_EQ("content of program", ContentOf(event));
}

TEST_F(OpenedFilesTest, AFileOfAnotherProcessOrAnotherInodeIsNotIt) {
    LaunchEvent first = Start(7, "first");
    m_opened.Read(m_now);
    const LaunchEvent second = Start(7, "second");
    m_opened.Read(m_now);
    EXPECT_EQ("content of first", ContentOf(first));
    EXPECT_EQ("content of second", ContentOf(second));
    first.nPid = 8;
    EXPECT_EQ("none", ContentOf(first));
}

TEST_F(OpenedFilesTest, WhatIsOldIsLetGo) {
    const LaunchEvent event = Start(7, "program");
    m_opened.Read(m_now);
    m_opened.Read(m_now + OpenedFiles::KEPT);
    EXPECT_EQ("content of program", ContentOf(event));
    m_opened.Read(m_now + OpenedFiles::KEPT + std::chrono::milliseconds(1));
    EXPECT_EQ("none", ContentOf(event));
}

TEST_F(OpenedFilesTest, BeyondTheBoundTheOldestGo) {
    m_now += std::chrono::hours(1);  // however long this takes, none of them is old
    const LaunchEvent oldest = Start(7, "oldest");
    m_opened.Read(m_now);
    LaunchEvent second;
    for (size_t i = 0; i < OpenedFiles::MOST_FILES; ++i) {
        const LaunchEvent event = Start(8, "file" + std::to_string(i));
        second = i == 0 ? event : second;
        m_opened.Read(m_now);
    }
    EXPECT_EQ("none", ContentOf(oldest));
    EXPECT_EQ("content of file0", ContentOf(second));
}

TEST_F(OpenedFilesTest, TheFilesOfALaunchAreThoseOfItsProcessInTheirOrder) {
    (void)Start(7, "script");
    (void)Start(8, "other");
    m_opened.Read(m_now);
    const LaunchEvent event = Start(7, "shell");
    (void)Start(7, "loader");
    EXPECT_EQ((Names{"script", "shell!", "loader"}), FilesOf(event));
}

TEST_F(OpenedFilesTest, WhatAnEarlierStartOpenedIsOfNoLaterOne) {
    (void)Start(7, "failed");
    const LaunchEvent first = Start(7, "first");
    const LaunchEvent other = Start(8, "other");
    (void)Start(7, "script");
    const LaunchEvent second = Start(7, "second");
    m_opened.Started(first);
    EXPECT_EQ((Names{"script", "second!"}), FilesOf(second));
    EXPECT_EQ((Names{"other!"}), FilesOf(other));
    EXPECT_EQ("content of first", ContentOf(first));  // it is kept all the same
    m_opened.Started(first);
    EXPECT_EQ((Names{"script", "second!"}), FilesOf(second));
}

TEST_F(OpenedFilesTest, WhatWasOpenedBeforeSomeWereLostIsNotOfTheLaunch) {
    (void)Start(7, "script");
    m_opened.Read(m_now);
    m_kernel.Tell({}, {{exec_open_bytes::Overflow()}});
    m_opened.Read(m_now);
    const LaunchEvent event = Start(7, "shell");
    EXPECT_EQ((Names{"shell!"}), FilesOf(event));
    EXPECT_EQ("content of shell", ContentOf(event));
}

TEST_F(OpenedFilesTest, OfOneProcessTheNewestFilesAreLookedAt) {
    m_now += std::chrono::hours(1);  // however long this takes, none of them is old
    (void)Start(7, "oldest");
    for (size_t i = 0; i < OpenedFiles::MOST_OF_ONE - 1; ++i) {
        (void)Start(7, "failed");
        m_opened.Read(m_now);
    }
    const LaunchEvent event = Start(7, "program");
    m_opened.Read(m_now);
    const Names names = FilesOf(event);
    ASSERT_EQ(OpenedFiles::MOST_OF_ONE, names.size());
    EXPECT_EQ("failed", names.front());
    EXPECT_EQ("program!", names.back());
}
