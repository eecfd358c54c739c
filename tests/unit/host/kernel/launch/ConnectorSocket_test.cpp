#include "host/kernel/launch/ConnectorSocket.h"

#include <gtest/gtest.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>

#include <cstring>

namespace {

// Kind, processor, time, then the numbers of the processes.
std::string Message(const std::vector<uint32_t>& words, uint32_t nIndex = CN_IDX_PROC) {
    nlmsghdr head = {};
    cn_msg connector = {};
    connector.id = {nIndex, CN_VAL_PROC};
    std::string strBytes(sizeof(head) + sizeof(connector) + words.size() * 4, '\0');
    std::memcpy(&strBytes[0], &head, sizeof(head));
    std::memcpy(&strBytes[sizeof(head)], &connector, sizeof(connector));
    std::memcpy(&strBytes[sizeof(head) + sizeof(connector)], words.data(), words.size() * 4);
    return strBytes;
}

bool Decode(const std::string& strBytes, ConnectorEvent& event) {
    return DecodeConnector(strBytes.data(), strBytes.size(), event);
}

}  // namespace

TEST(ConnectorSocketTest, CopiesStartsAndEndsOfProcessesAreDecoded) {
    ConnectorEvent event;

    ASSERT_TRUE(Decode(Message({1, 0, 0, 0, 11, 10, 20, 20}), event));
    EXPECT_EQ(LAUNCH_KIND_FORK, event.eKind);
    EXPECT_EQ(20u, event.nPid);
    EXPECT_EQ(10u, event.nParent);
    ASSERT_TRUE(Decode(Message({2, 0, 0, 0, 20, 20, 0, 0}), event));
    EXPECT_EQ(LAUNCH_KIND_EXEC, event.eKind);
    EXPECT_EQ(20u, event.nPid);
    ASSERT_TRUE(Decode(Message({0x80000000, 0, 0, 0, 20, 20, 0, 0}), event));
    EXPECT_EQ(LAUNCH_KIND_EXIT, event.eKind);
    EXPECT_EQ(20u, event.nPid);
}

TEST(ConnectorSocketTest, ThreadsOtherKindsAndBrokenMessagesAreNone) {
    ConnectorEvent event;

    EXPECT_FALSE(Decode(Message({1, 0, 0, 0, 10, 10, 21, 20}), event));
    EXPECT_FALSE(Decode(Message({0x80000000, 0, 0, 0, 21, 20, 0, 0}), event));
    EXPECT_FALSE(Decode(Message({4, 0, 0, 0, 20, 20, 0, 0}), event));
    EXPECT_FALSE(Decode(Message({2, 0, 0, 0, 20, 20, 0, 0}, 9), event));
    const std::string strWhole = Message({2, 0, 0, 0, 20, 20, 0, 0});
    for (size_t nSize = 0; nSize < strWhole.size(); ++nSize) {
        EXPECT_FALSE(DecodeConnector(strWhole.data(), nSize, event)) << nSize;
    }
}

TEST(ConnectorSocketTest, DropsAreThoseOfTheConnectorsSocketWithThisPort) {
    const std::string strTable =
        "sk               Eth Pid        Groups   Rmem     Wmem     Dump  Locks    Drops    Inode\n"
        "0000000000000000 0   4711       00000000 0        0        0     2        5        10   \n"
        "0000000000000000 11  0          00000000 0        0        0     2        6        11   \n"
        "0000000000000000 11  4711       00000001 640      0        0     2        7        12   "
        "\n";

    EXPECT_EQ(7u, DropsOf(strTable, 4711));
    EXPECT_EQ(0u, DropsOf(strTable, 4712));
    EXPECT_EQ(0u, DropsOf("", 4711));
}
