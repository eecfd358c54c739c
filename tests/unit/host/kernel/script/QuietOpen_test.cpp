#include "host/kernel/script/QuietOpen.h"

#include <gtest/gtest.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/TestDir.h"

namespace {

using quiet_open::Place;

std::vector<MountEntry> MountOf(const std::string& strPath, const std::string& strType) {
    FileStatus status;
    EXPECT_TRUE(file_look::AtTarget(strPath, status)) << strPath;
    MountEntry mount;
    mount.nId = status.nMountId;
    mount.strType = strType;
    return {mount};
}

std::string InodeOf(const UniqueFd& fd) {
    FileStatus status;
    return fd && quiet_open::Look(fd.Get(), status) ? std::to_string(status.st_ino) : "none";
}

std::string InodeAt(const std::string& strPath) {
    FileStatus status;
    return file_look::AtTarget(strPath, status) ? std::to_string(status.st_ino) : "nothing";
}

// Whether the kernel has to ask the file system for it.
bool IsAskedFor(const std::string& strPath) {
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_CACHED;
    const UniqueFd fd(
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, strPath.c_str(), &how, sizeof(how))));
    return !fd && errno == EAGAIN;
}

class QuietOpenTest : public testing::Test {
protected:
    const TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("in/file", "x");
    const UniqueFd m_directory{open(m_dir.Path().c_str(), O_PATH | O_CLOEXEC)};
    const uint32_t m_nPid = static_cast<uint32_t>(getpid());
};

}  // namespace

TEST_F(QuietOpenTest, WhatTheKernelKnowsIsOpenedOnAnyFileSystem) {
    EXPECT_EQ(InodeAt(m_strFile), InodeOf(Place(m_strFile, {})));
    EXPECT_EQ("none", InodeOf(Place(m_dir.Path() + "/none", {})));
    EXPECT_EQ("none", InodeOf(Place("", {})));
}

TEST_F(QuietOpenTest, ALinkOfProcIsNotFollowed) {
    ASSERT_EQ(0, symlink("/proc/self/cwd", (m_dir.Path() + "/link").c_str()));
    EXPECT_EQ("none", InodeOf(Place(m_dir.Path() + "/link", {})));
    EXPECT_EQ("none", InodeOf(Place("/proc/self/root" + m_strFile, {})));
    // Nor where it stays on one mount that may be asked.
    const UniqueFd status(open("/proc/self/status", O_RDONLY | O_CLOEXEC));
    const std::string strLink = "/proc/self/fd/" + std::to_string(status.Get());
    EXPECT_EQ("none", InodeOf(Place(strLink, MountOf("/proc", "ext4"))));
}

TEST_F(QuietOpenTest, APipeIsNotWaitedFor) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0644));
    FileStatus status;
    const UniqueFd fd = Place(strPipe, {});
    ASSERT_TRUE(quiet_open::Look(fd.Get(), status));
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(QuietOpenTest, OnlyALocalFileSystemIsAsked) {
    const std::string strAsked = "/sys/kernel/mm";
    if (!IsAskedFor(strAsked)) {
        GTEST_SKIP() << strAsked << " is there without asking, or not at all";
    }
    EXPECT_EQ(InodeAt(strAsked), InodeOf(Place(strAsked, MountOf("/sys", "ext4"))));
    EXPECT_EQ("none", InodeOf(Place(strAsked, MountOf("/sys", "fuse"))));
    EXPECT_EQ("none", InodeOf(Place(strAsked, {})));
    const UniqueFd sys(open("/sys", O_PATH | O_CLOEXEC));
    const auto mounts = MountOf("/sys", "ext4");
    EXPECT_EQ(InodeAt(strAsked),
              InodeOf(Place("kernel/mm", mounts, sys.Get(), quiet_open::INSIDE_DIRECTORY)));
    EXPECT_EQ(InodeAt("/sys/kernel"),
              InodeOf(Place("kernel", mounts, sys.Get(), quiet_open::INSIDE_DIRECTORY)));
    EXPECT_EQ("none", InodeOf(Place("kernel", {}, sys.Get(), quiet_open::INSIDE_DIRECTORY)));
}

TEST_F(QuietOpenTest, ADirectoryIsNotLeft) {
    using namespace quiet_open;
    EXPECT_EQ(InodeAt(m_strFile), InodeOf(Place("/in/file", {}, m_directory.Get(), INSIDE_ROOT)));
    EXPECT_EQ(InodeAt(m_strFile),
              InodeOf(Place("in/../in/file", {}, m_directory.Get(), INSIDE_DIRECTORY)));
    EXPECT_EQ("none", InodeOf(Place("../in/file", {}, m_directory.Get(), INSIDE_DIRECTORY)));
    ASSERT_EQ(0, symlink("/in/file", (m_dir.Path() + "/absolute").c_str()));
    const auto mounts = MountOf(m_dir.Path(), "ext4");  // following a link writes its time
    EXPECT_EQ(InodeAt(m_strFile),
              InodeOf(Place("/absolute", mounts, m_directory.Get(), INSIDE_ROOT)));
    EXPECT_EQ("none", InodeOf(Place("absolute", mounts, m_directory.Get(), INSIDE_DIRECTORY)));
}

TEST_F(QuietOpenTest, AProcesssNamesAreItsOwn) {
    const UniqueFd fd(open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC));
    const UniqueFd folder(open(m_dir.Path().c_str(), O_RDONLY | O_CLOEXEC));
    const std::string strNumber = std::to_string(fd.Get());
    const std::string strInside = std::to_string(folder.Get()) + "/in/file";
    ASSERT_NE("", m_dir.WriteFile("run/here", "x"));
    const std::string strInode = InodeAt(m_strFile);
    for (const std::string& strName :
         {m_strFile, "/dev/fd/" + strNumber, "/proc/self/fd/" + strNumber, "/dev/fd/" + strInside,
          "/proc/thread-self/fd/" + strInside, "/proc/self/root" + m_strFile}) {
        EXPECT_EQ(strInode, InodeOf(quiet_open::PlaceOf(m_nPid, strName, {}))) << strName;
    }
    const std::string strHere = InodeAt(m_dir.Path() + "/run/here");
    EXPECT_EQ(strHere, InodeOf(quiet_open::PlaceOf(m_nPid, "./here", {})));
    EXPECT_EQ(strHere, InodeOf(quiet_open::PlaceOf(m_nPid, "/proc/self/cwd/here", {})));
    for (const char* pszName : {"/dev/fd/x", "/dev/fd/", "/proc/self/exe", "/dev/fd/99999", ""}) {
        EXPECT_EQ("none", InodeOf(quiet_open::PlaceOf(m_nPid, pszName, {}))) << pszName;
    }
    EXPECT_EQ("none", InodeOf(quiet_open::PlaceOf(0x7ffffff0, m_strFile, {})));
}

TEST_F(QuietOpenTest, LocalIsWhatItsMountSays) {
    const UniqueFd fd = Place(m_strFile, {});
    EXPECT_TRUE(quiet_open::IsLocal(fd.Get(), MountOf(m_strFile, "ext4")));
    EXPECT_FALSE(quiet_open::IsLocal(fd.Get(), MountOf(m_strFile, "fuse")));
    EXPECT_FALSE(quiet_open::IsLocal(fd.Get(), {}));
    EXPECT_FALSE(quiet_open::IsLocal(-1, MountOf(m_strFile, "ext4")));
}

TEST_F(QuietOpenTest, TheMountsOfAProcessAreItsTable) {
    const auto mounts = quiet_open::MountsOf(m_nPid);
    EXPECT_FALSE(mounts.empty());
    for (const MountEntry& mount : mounts) {
        EXPECT_NE("overlay", mount.strType);
    }
    EXPECT_TRUE(quiet_open::MountsOf(0x7ffffff0).empty());
}

TEST_F(QuietOpenTest, AFileIsPlacedByAPathOrByAProcess) {
    const PlacedFile here = placed_file::Here(m_strFile);
    EXPECT_EQ(m_strFile, here.strName);
    EXPECT_EQ(InodeAt(m_strFile), std::to_string(here.status.st_ino));
    ASSERT_NE("", m_dir.WriteFile("run/there", "x"));
    const PlacedFile there = placed_file::OfProcess(m_nPid, "./there");
    EXPECT_EQ(m_dir.Path() + "/run/there", there.strName);
    EXPECT_FALSE(placed_file::Here(m_dir.Path() + "/none").bLocal);
    EXPECT_FALSE(placed_file::OfProcess(m_nPid, "./none").bLocal);
}
