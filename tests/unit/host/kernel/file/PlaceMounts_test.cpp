#include "host/kernel/file/PlaceMounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/host/kernel/file/FakeMarkCalls.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PlaceMountsTest : public testing::Test {
protected:
    // With the last whole mount of device 8:1 as the one that its paths are reported by.
    std::vector<std::string> Read() {
        std::vector<std::string> changed = m_mounts.Read();
        const MountEntry* pWatched = nullptr;
        for (const MountEntry& mount : m_mounts.All()) {
            pWatched = mount.strRoot == "/" && mount.nDevice == (8U << 20 | 1) ? &mount : pWatched;
        }
        if (pWatched != nullptr) {
            m_mounts.SetWatched(*pWatched);
        }
        return changed;
    }

    FakeMarkCalls m_calls;
    WatchedPaths m_places{{}, [](const std::string& strPath) {
                              return strPath == "/etc/init.d" ? "/etc/rc.d/init.d" : strPath;
                          }};
    PlaceMounts m_mounts{m_calls, m_places};
};

}  // namespace

TEST_F(PlaceMountsTest, APlaceThatALinkLeadsToIsNamedOnce) {
    m_calls.m_directories.insert("/etc/rc.d/init.d");
    EXPECT_THAT(Read(), IsEmpty());
    m_calls.m_strMounts += "5 1 8:2 / /etc/rc.d/init.d rw - xfs x rw\n";

    EXPECT_THAT(Read(), ElementsAre("/etc/rc.d/init.d"));
}

TEST_F(PlaceMountsTest, AnotherPartAtTheSamePointOnTheSameNumberIsAnotherMount) {
    m_calls.m_strMounts += "5 1 8:1 /one /etc/cron.d rw - ext4 x rw\n";
    (void)Read();
    m_calls.m_strMounts.replace(m_calls.m_strMounts.find("/one"), 4, "/two");

    EXPECT_THAT(Read(), ElementsAre("/etc/cron.d"));
}

TEST_F(PlaceMountsTest, ADirectoryThatIsNotThereLiesWhereTheNearestAboveItLies) {
    (void)Read();

    EXPECT_EQ("/run", m_mounts.Existing("/run/none/below"));
    EXPECT_EQ("/", m_mounts.Existing("/none/below"));
    EXPECT_EQ(2u, m_mounts.At("/run/none/below")->nId);
    m_calls.m_strMounts.clear();
    (void)Read();
    EXPECT_EQ(nullptr, m_mounts.At("/run"));
}

TEST_F(PlaceMountsTest, AMountWhosePointLeadsToAnotherIsNotReached) {
    (void)Read();
    m_calls.m_mountIds = {{"/run", 9}, {"/", 1}};

    EXPECT_TRUE(m_mounts.IsReached(m_mounts.All()[0]));
    EXPECT_FALSE(m_mounts.IsReached(m_mounts.All()[1]));
    EXPECT_TRUE(m_mounts.IsReached(m_mounts.All()[3]));  // not known
}

TEST_F(PlaceMountsTest, APartOfAFileSystemThatIsMountedOverAPlaceHasItsPathThere) {
    m_calls.m_strMounts +=
        "5 1 8:1 /srv/jobs /etc/cron.d rw - ext4 x rw\n6 1 8:1 /srv /mnt rw - ext4 x rw\n"
        "7 1 8:1 /srv/jobs/one /etc/cron.d/two rw - ext4 x rw\n";
    Read();

    EXPECT_EQ("/etc/cron.d", m_mounts.PathInPlace("/srv/jobs"));
    EXPECT_EQ("/etc/cron.d/job", m_mounts.PathInPlace("/srv/jobs/job"));
    EXPECT_EQ("/etc/cron.d/two", m_mounts.PathInPlace("/srv/jobs/one"));
    EXPECT_EQ("/srv/jobless", m_mounts.PathInPlace("/srv/jobless"));
    EXPECT_EQ("/srv/other", m_mounts.PathInPlace("/srv/other"));  // /mnt is no place
    EXPECT_EQ("/etc/cron.d/job", m_mounts.PathInPlace("/etc/cron.d/job"));
}

TEST_F(PlaceMountsTest, AMountAboveAPlaceGivesItsPathAndOneThatIsHiddenDoesNot) {
    m_calls.m_strMounts +=
        "5 1 8:1 /srv/hidden /etc rw - ext4 x rw\n6 1 8:1 /srv/etc /etc rw - ext4 x rw\n";
    Read();

    EXPECT_EQ("/etc/cron.d/job", m_mounts.PathInPlace("/srv/etc/cron.d/job"));
    EXPECT_EQ("/srv/hidden/cron.d/job", m_mounts.PathInPlace("/srv/hidden/cron.d/job"));
}

TEST_F(PlaceMountsTest, WhereTheRootIsAPartPathsByTheMountOfAllAreThoseBelowTheRoot) {
    m_calls.m_strMounts = "1 0 8:1 /sub / rw - ext4 x rw\n2 1 8:1 / /whole rw - ext4 x rw\n";
    Read();

    EXPECT_EQ("/etc/cron.d/job", m_mounts.PathInPlace("/whole/sub/etc/cron.d/job"));
    EXPECT_EQ("/", m_mounts.PathInPlace("/whole/sub"));
    EXPECT_EQ("/whole/more", m_mounts.PathInPlace("/whole/more"));
}

TEST_F(PlaceMountsTest, APartMountedInAPlaceThatIsHiddenByAnotherMountIsNotThere) {
    m_calls.m_strMounts += "5 1 8:1 /srv/jobs /etc/cron.d/jobs rw - ext4 x rw\n";
    m_calls.m_mountIds = {{"/etc/cron.d/jobs", 6}};
    (void)Read();

    EXPECT_EQ("/srv/jobs/job", m_mounts.PathInPlace("/srv/jobs/job"));
}
