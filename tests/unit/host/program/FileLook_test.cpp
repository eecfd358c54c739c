#include "host/program/FileLook.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstring>

#include "host/base/MountTable.h"
#include "host/base/UniqueFd.h"
#include "tests/support/TestDir.h"

namespace {

class FileLookTest : public testing::Test {
protected:
    FileLookTest() { EXPECT_EQ(0, symlink(m_strFile.c_str(), m_strLink.c_str())); }

    TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("file", "four");
    const std::string m_strLink = m_dir.Path() + "/link";
    FileStatus m_status;
};

}  // namespace

TEST_F(FileLookTest, ALinkIsFollowedOrLookedAtItself) {
    ASSERT_TRUE(file_look::AtTarget(m_strLink, m_status));
    EXPECT_TRUE(S_ISREG(m_status.st_mode));
    EXPECT_EQ(4, m_status.st_size);

    ASSERT_TRUE(file_look::AtItself(m_strLink, m_status));
    EXPECT_TRUE(S_ISLNK(m_status.st_mode));
}

TEST_F(FileLookTest, WhereNothingIsNothingIsFound) {
    ASSERT_EQ(0, unlink(m_strFile.c_str()));

    EXPECT_FALSE(file_look::AtTarget(m_strFile, m_status));
    EXPECT_FALSE(file_look::AtItself(m_strFile, m_status));
    EXPECT_FALSE(file_look::AtTarget(m_strLink, m_status));
    EXPECT_TRUE(file_look::AtItself(m_strLink, m_status));
}

TEST_F(FileLookTest, ALinkIsReadAsItIsWritten) {
    const std::string strLong(4000, 'x');
    ASSERT_EQ(0, symlink(strLong.c_str(), (m_dir.Path() + "/long").c_str()));
    const UniqueFd directory(open(m_dir.Path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));

    EXPECT_EQ(m_strFile, file_look::LinkText(m_strLink));
    EXPECT_EQ(m_strFile, file_look::LinkText("link", directory.Get()));
    EXPECT_EQ(strLong, file_look::LinkText("long", directory.Get()));
    EXPECT_EQ("", file_look::LinkText(m_strFile));
    EXPECT_EQ("", file_look::LinkText(m_dir.Path() + "/none"));
}

TEST_F(FileLookTest, AStatusIsWhatStatSaysAndTheMount) {
    struct stat expected = {};
    ASSERT_EQ(0, stat(m_strFile.c_str(), &expected));
    const UniqueFd file(open(m_strFile.c_str(), O_PATH | O_CLOEXEC));
    FileStatus byDescriptor;

    ASSERT_TRUE(file_look::AtTarget(m_strFile, m_status));
    ASSERT_TRUE(file_look::AtDescriptor(file.Get(), byDescriptor));

    for (const FileStatus* pStatus : {&m_status, &byDescriptor}) {
        EXPECT_EQ(expected.st_dev, pStatus->st_dev);
        EXPECT_EQ(expected.st_ino, pStatus->st_ino);
        EXPECT_EQ(expected.st_mode, pStatus->st_mode);
        EXPECT_EQ(expected.st_nlink, pStatus->st_nlink);
        EXPECT_EQ(expected.st_size, pStatus->st_size);
        EXPECT_EQ(0, std::memcmp(&expected.st_ctim, &pStatus->st_ctim, sizeof(timespec)));
        EXPECT_EQ(0, std::memcmp(&expected.st_mtim, &pStatus->st_mtim, sizeof(timespec)));
        EXPECT_NE(0u, pStatus->nMountId);
        EXPECT_LE(pStatus->nBorn,
                  expected.st_ctim.tv_sec * int64_t{1000000000} + expected.st_ctim.tv_nsec);
    }
}

// /proc is a file system without a device of its own, and mounted wherever tests run.
TEST_F(FileLookTest, TheDeviceOfAMountIsKnownWhereStatMayNameAnother) {
    const FileLook fnLook = file_look::ByMounts();
    ASSERT_TRUE(fnLook("/proc/self", m_status));
    ASSERT_EQ(0u, major(m_status.st_dev));
    EXPECT_EQ(minor(m_status.st_dev), m_status.nMountDevice);
    const std::vector<MountEntry> mounts = mount_table::Parse(mount_table::Text());
    const MountEntry* const pMount = mount_table::MountOf(mounts, "/proc/self");
    ASSERT_NE(nullptr, pMount);
    EXPECT_EQ(pMount->nId, m_status.nMountId);
    EXPECT_FALSE(fnLook(m_dir.Path() + "/none", m_status));
}
