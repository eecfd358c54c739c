#include "host/base/MountTable.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace {

const char* const MOUNTS =
    "22 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
    "23 22 0:21 / /run rw shared:5 master:2 - tmpfs tmpfs rw\n"
    "no line of a mount\n"
    "24 22 8:1 /sub /srv/with\\040blank rw - xfs /dev/sda1 rw\n"
    "25 22 8:17 / /srv rw - ext4 /dev/sdb1 rw\n"
    "26 22 8:33 / /srv rw - btrfs /dev/sdc1 rw";

}  // namespace

TEST(MountTableTest, EachLineIsAMount) {
    const std::vector<MountEntry> mounts = mount_table::Parse(MOUNTS);

    ASSERT_EQ(5u, mounts.size());
    EXPECT_EQ(254u << 20, mounts[0].nDevice);
    EXPECT_EQ("/", mounts[0].strPoint);
    EXPECT_EQ("ext4", mounts[0].strType);
    EXPECT_EQ("tmpfs", mounts[1].strType);
    EXPECT_EQ("/sub", mounts[2].strRoot);
    EXPECT_EQ("/srv/with blank", mounts[2].strPoint);
    EXPECT_EQ(8u << 20 | 1, mounts[2].nDevice);
}

TEST(MountTableTest, APathLiesOnTheNearestMountAndTheLatestOfTwo) {
    const std::vector<MountEntry> mounts = mount_table::Parse(MOUNTS);

    EXPECT_EQ("ext4", mount_table::MountOf(mounts, "/etc/cron.d")->strType);
    EXPECT_EQ("ext4", mount_table::MountOf(mounts, "/")->strType);
    EXPECT_EQ("tmpfs", mount_table::MountOf(mounts, "/run")->strType);
    EXPECT_EQ("ext4", mount_table::MountOf(mounts, "/running")->strType);
    EXPECT_EQ("btrfs", mount_table::MountOf(mounts, "/srv/x")->strType);
    EXPECT_EQ("xfs", mount_table::MountOf(mounts, "/srv/with blank/x")->strType);
    EXPECT_EQ(nullptr, mount_table::MountOf({}, "/etc"));
}

TEST(MountTableTest, ALineThatIsNoMountIsLeftOutAndTheNextIsRead) {
    for (const char* pszLine :
         {"", "1 2 3", "22 1 254:0 / / rw", "22 1 254:0 / / rw -", "22 1 254 / / rw - ext4 x rw",
          "22 1 254:0 / rel rw - ext4 x rw", "22 1 254:0 / - ext4 x rw", "- - - - - - -",
          "22 1 254:0 /  rw - ext4 x rw"}) {
        const std::vector<MountEntry> mounts =
            mount_table::Parse(std::string(pszLine) + "\n23 22 8:1 / /next rw - xfs x rw");
        ASSERT_EQ(1u, mounts.size()) << pszLine;
        EXPECT_EQ("/next", mounts[0].strPoint) << pszLine;
    }
    EXPECT_TRUE(mount_table::Parse("").empty());
    EXPECT_TRUE(mount_table::Parse("\n\n").empty());
}

TEST(MountTableTest, ATableThatEndsInTheMiddleOfALineLosesThatLineOnly) {
    const std::string strTable = MOUNTS;
    size_t nBefore = 0;
    for (size_t nSize = 0; nSize <= strTable.size(); ++nSize) {
        const size_t nMounts = mount_table::Parse(strTable.substr(0, nSize)).size();
        EXPECT_LE(nBefore, nMounts) << nSize;
        EXPECT_GE(nBefore + 1, nMounts) << nSize;
        nBefore = nMounts;
    }
    EXPECT_EQ(5u, nBefore);
}

TEST(MountTableTest, OptionalFieldsAreAsManyAsTheLineHas) {
    const std::vector<MountEntry> mounts = mount_table::Parse(
        "1 0 8:1 / /none rw - ext4 x rw\n"
        "2 0 8:2 / /many rw shared:1 master:2 propagate_from:3 unbindable - xfs x rw\n");

    ASSERT_EQ(2u, mounts.size());
    EXPECT_EQ("ext4", mounts[0].strType);
    EXPECT_EQ("xfs", mounts[1].strType);
}

TEST(MountTableTest, EscapesOfPathsAreThreeOctalDigits) {
    const struct {
        const char* pszWritten;
        const char* pszPoint;
    } CASES[] = {{"/a\\040b", "/a b"},        {"/a\\011b", "/a\tb"},     {"/a\\012b", "/a\nb"},
                 {"/a\\134b", "/a\\b"},       {"/a\\134040", "/a\\040"}, {"/a\\04", "/a\\04"},
                 {"/a\\089", "/a\\089"},      {"/a\\", "/a\\"},          {"/a\\040", "/a "},
                 {"/\\303\\244", "/\xC3\xA4"}};
    for (const auto& each : CASES) {
        const std::vector<MountEntry> mounts = mount_table::Parse(
            "1 0 8:1 " + std::string(each.pszWritten) + " " + each.pszWritten + " rw - ext4 x rw");
        ASSERT_EQ(1u, mounts.size()) << each.pszWritten;
        EXPECT_EQ(each.pszPoint, mounts[0].strPoint);
        EXPECT_EQ(each.pszPoint, mounts[0].strRoot);
    }
}

TEST(MountTableTest, APathOutsideOfEveryMountLiesOnNone) {
    const std::vector<MountEntry> mounts = mount_table::Parse("1 0 8:1 / /srv rw - ext4 x rw\n");

    EXPECT_EQ(nullptr, mount_table::MountOf(mounts, "/etc"));
    EXPECT_EQ(nullptr, mount_table::MountOf(mounts, "/"));
    EXPECT_EQ(nullptr, mount_table::MountOf(mounts, "/srv2"));
    EXPECT_EQ(nullptr, mount_table::MountOf(mounts, "/sr"));
    EXPECT_EQ(nullptr, mount_table::MountOf(mounts, ""));
    EXPECT_EQ(&mounts[0], mount_table::MountOf(mounts, "/srv"));
}

TEST(MountTableTest, FileSystemsAreOnDiskInMemoryOrAcrossTheNetwork) {
    EXPECT_STREQ("disk", mount_table::DiskType("ext4"));
    EXPECT_STREQ("memory", mount_table::DiskType("tmpfs"));
    EXPECT_STREQ("network", mount_table::DiskType("nfs4"));
    EXPECT_STREQ("disk", mount_table::DiskType(""));
    EXPECT_TRUE(mount_table::IsLocal("xfs"));
    EXPECT_FALSE(mount_table::IsLocal("proc"));
    EXPECT_FALSE(mount_table::IsLocal("nfs"));
}

TEST(MountTableTest, EachTypeOfAFileSystemIsOnDiskInMemoryOrAcrossTheNetworkAndLocalOrNot) {
    for (const char* pszType : {"tmpfs", "ramfs", "devtmpfs"}) {
        EXPECT_STREQ("memory", mount_table::DiskType(pszType)) << pszType;
        EXPECT_TRUE(mount_table::IsLocal(pszType)) << pszType;
    }
    EXPECT_STREQ("memory", mount_table::DiskType("rootfs"));
    EXPECT_FALSE(mount_table::IsLocal("rootfs"));
    for (const char* pszType :
         {"nfs", "nfs4", "cifs", "smb3", "9p", "ceph", "afs", "coda", "ncpfs", "ocfs2", "gfs2",
          "lustre", "fuse", "beegfs", "virtiofs", "fuseblk", "glusterfs"}) {
        EXPECT_STREQ("network", mount_table::DiskType(pszType)) << pszType;
        EXPECT_FALSE(mount_table::IsLocal(pszType)) << pszType;
    }
    for (const char* pszType :
         {"ext2", "ext3", "ext4", "xfs", "btrfs", "f2fs", "jfs", "vfat", "exfat", "ntfs3", "udf",
          "zfs", "overlay", "bcachefs", "reiserfs"}) {
        EXPECT_STREQ("disk", mount_table::DiskType(pszType)) << pszType;
        EXPECT_TRUE(mount_table::IsLocal(pszType)) << pszType;
    }
    for (const char* pszType : {"", "proc", "sysfs", "cgroup2", "squashfs", "ext", "ext44"}) {
        EXPECT_STREQ("disk", mount_table::DiskType(pszType)) << pszType;
        EXPECT_FALSE(mount_table::IsLocal(pszType)) << pszType;
    }
}

TEST(MountTableTest, NumbersOfADeviceAreDecimal) {
    const std::vector<MountEntry> mounts =
        mount_table::Parse("1 0 010:0012 / /a rw - ext4 x rw\n2 0 0:1048575 / /b rw - ext4 x rw\n");

    ASSERT_EQ(2u, mounts.size());
    EXPECT_EQ(10u << 20 | 12, mounts[0].nDevice);
    EXPECT_EQ(1048575u, mounts[1].nDevice);
}

TEST(MountTableTest, TheRootOfAMountBelowTheRootDoesNotTakeItsPlace) {
    const std::vector<MountEntry> mounts = mount_table::Parse(
        "1 0 8:1 / /a/b rw - xfs x rw\n2 0 8:2 / / rw - ext4 x rw\n"
        "3 0 8:3 / /a rw - btrfs x rw\n4 0 8:4 / / rw - tmpfs x rw\n");

    EXPECT_EQ("xfs", mount_table::MountOf(mounts, "/a/b/c")->strType);
    EXPECT_EQ("btrfs", mount_table::MountOf(mounts, "/a/bc")->strType);
    EXPECT_EQ("tmpfs", mount_table::MountOf(mounts, "/ab")->strType);
}

TEST(MountTableTest, TheTableOfThisProcessHasItsRootOrWhatStandsAboveIt) {
    const std::vector<MountEntry> mounts = mount_table::Parse(mount_table::Text());

    ASSERT_FALSE(mounts.empty());
    EXPECT_NE(nullptr, mount_table::MountOf(mounts, mounts.front().strPoint));
}

TEST(MountTableTest, WhatIsOpenedIsTheTableOfThisProcess) {
    const UniqueFd table = mount_table::Open();

    EXPECT_EQ("/proc/" + std::to_string(getpid()) + "/mountinfo",
              std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(table.Get())));
}

// A change itself is seen by the tests of the sensors.
TEST(MountTableTest, ATableThatCouldNotBeOpenedAndAFileThatIsNoneNeverChange) {
    EXPECT_FALSE(mount_table::HasChanged(UniqueFd()));
    EXPECT_FALSE(mount_table::HasChanged(UniqueFd(open("/dev/null", O_RDONLY | O_CLOEXEC))));
}
