#include "host/base/MountTable.h"

#include <gtest/gtest.h>

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

TEST(MountTableTest, TextThatIsNoTableIsNone) {
    for (const char* pszText : {"", "\n\n", "1 2 3", "22 1 254:0 / / rw", "a b c:d / / rw - ext4",
                                "22 1 254 / / rw - ext4 x rw", "22 1 254:0 / rel rw - ext4 x rw"}) {
        for (const MountEntry& entry : mount_table::Parse(pszText)) {
            EXPECT_EQ('/', entry.strPoint[0]) << pszText;
        }
    }
    EXPECT_TRUE(mount_table::Parse("22 1 254 / / rw - ext4 x rw").empty());
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
