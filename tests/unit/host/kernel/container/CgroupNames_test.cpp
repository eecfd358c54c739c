#include "host/kernel/container/CgroupNames.h"

#include <gtest/gtest.h>

#include "tests/support/TestDir.h"

namespace {

const std::string ID(64, 'a');
const std::string OTHER_ID(64, '0');

}  // namespace

TEST(CgroupNamesTest, TheContainerIsTheOneThatTheRuntimeNamed) {
    EXPECT_EQ(ID, ContainerOf("/system.slice/docker-" + ID + ".scope"));
    EXPECT_EQ(ID, ContainerOf("/docker/" + ID));
    EXPECT_EQ(ID, ContainerOf("/machine.slice/libpod-" + ID + ".scope/container"));
    EXPECT_EQ(ID,
              ContainerOf("/kubepods.slice/kubepods-pod1.slice/cri-containerd-" + ID + ".scope"));
    EXPECT_EQ(ID, ContainerOf("/machine.slice/libpod-conmon-" + ID + ".scope"));
}

TEST(CgroupNamesTest, OfContainersInContainersTheInnermostIsMeant) {
    EXPECT_EQ(ID, ContainerOf("/docker/" + OTHER_ID + "/docker/" + ID));
}

TEST(CgroupNamesTest, OtherGroupsAreNoContainers) {
    EXPECT_EQ("", ContainerOf(""));
    EXPECT_EQ("", ContainerOf("/"));
    EXPECT_EQ("", ContainerOf("/system.slice/ssh.service"));
    EXPECT_EQ("", ContainerOf("/docker/" + ID.substr(1)));
    EXPECT_EQ("", ContainerOf("/docker/" + ID + "a"));
    EXPECT_EQ("", ContainerOf("/docker/" + std::string(64, 'A')));
    EXPECT_EQ("", ContainerOf("/docker/" + ID.substr(1) + "g"));
}

TEST(CgroupNamesTest, WithoutTheHierarchyNothingIsKnown) {
    EXPECT_EQ("", CgroupNames("").PathOf(1));
    EXPECT_EQ("", CgroupNames("/none/at/all").PathOf(1));
    const TestDir dir;  // no cgroup2
    EXPECT_EQ("", CgroupNames(dir.Path()).PathOf(1));
}
