#include "host/kernel/script/ScriptFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "host/base/UniqueFd.h"
#include "tests/support/TestDir.h"

namespace {

constexpr int64_t SECOND = 1000000000;

}  // namespace

TEST(ScriptFileTest, ARelativeNameStandsInItsDirectory) {
    EXPECT_EQ("/srv/a", script_file::Joined("/srv", "a"));
    EXPECT_EQ("/srv/a", script_file::Joined("/srv", ".//./a"));
    EXPECT_EQ("/srv/../a", script_file::Joined("/srv", "../a"));
    EXPECT_EQ("/a", script_file::Joined("", "a"));
}

TEST(ScriptFileTest, ANameOverALinkOfProcLeadsNowhere) {
    const TestDir dir;
    const std::string strFile = dir.WriteFile("file", "x");
    ASSERT_EQ(0, symlink(strFile.c_str(), (dir.Path() + "/link").c_str()));
    FileStatus status;
    EXPECT_TRUE(script_file::LookWithoutMagic(dir.Path() + "/link", status));
    EXPECT_FALSE(script_file::LookWithoutMagic("/proc/self/root" + strFile, status));
    EXPECT_FALSE(script_file::LookWithoutMagic(dir.Path() + "/none", status));
}

TEST(ScriptFileTest, ATimeWithoutAPartOfAMillisecondMayBeOfACoarseClock) {
    const TestDir dir;
    const UniqueFd memory(memfd_create("script", MFD_CLOEXEC));
    const UniqueFd proc(open("/proc/self/status", O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(script_file::HasLooseTimes(memory.Get(), SECOND + 1, 99 * SECOND));
    EXPECT_FALSE(script_file::HasLooseTimes(proc.Get(), SECOND + 1, 2 * SECOND));
    EXPECT_TRUE(script_file::HasLooseTimes(proc.Get(), SECOND, 2 * SECOND));
    EXPECT_TRUE(script_file::HasLooseTimes(proc.Get(), 2 * SECOND, SECOND));
    EXPECT_FALSE(script_file::HasLooseTimes(proc.Get(), SECOND, 4 * SECOND));
    EXPECT_TRUE(script_file::HasLooseTimes(-1, SECOND + 1, 99 * SECOND));
}

TEST(ScriptFileTest, TheKernelsNameIsThereWithoutTheFile) {
    const TestDir dir;
    const std::string strFile = dir.WriteFile("file", "x");
    const UniqueFd fd(open(strFile.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(strFile, script_file::KernelName(fd.Get()));
    ASSERT_EQ(0, unlink(strFile.c_str()));
    EXPECT_EQ(strFile, script_file::KernelName(fd.Get()));
    EXPECT_EQ("", script_file::KernelName(-1));
}
