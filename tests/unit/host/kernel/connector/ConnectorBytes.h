// Messages as the process connector sends them, for tests.
#ifndef TESTS_UNIT_HOST_KERNEL_CONNECTOR_CONNECTORBYTES_H
#define TESTS_UNIT_HOST_KERNEL_CONNECTOR_CONNECTORBYTES_H

#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "host/kernel/connector/ConnectorSocket.h"

namespace connector_bytes {

constexpr size_t HEADS = sizeof(nlmsghdr) + sizeof(cn_msg);

// The words are kind, processor, time (two), then the numbers of the processes.
inline std::string Message(const std::vector<uint32_t>& words, uint32_t nIndex = CN_IDX_PROC,
                           uint32_t nValue = CN_VAL_PROC) {
    nlmsghdr head = {};
    head.nlmsg_len = static_cast<uint32_t>(HEADS + words.size() * 4);
    head.nlmsg_type = NLMSG_DONE;
    cn_msg connector = {};
    connector.id = {nIndex, nValue};
    connector.len = static_cast<uint16_t>(words.size() * 4);
    std::string strBytes(HEADS + words.size() * 4, '\0');
    std::memcpy(&strBytes[0], &head, sizeof(head));
    std::memcpy(&strBytes[sizeof(head)], &connector, sizeof(connector));
    std::memcpy(&strBytes[HEADS], words.data(), words.size() * 4);
    return strBytes;
}

inline std::string Fork(uint32_t nParent, uint32_t nChild) {
    return Message({1, 0, 0, 0, nParent, nParent, nChild, nChild});
}

inline std::string Exec(uint32_t nPid) {
    return Message({2, 0, 0, 0, nPid, nPid, 0, 0});
}

inline std::string Exit(uint32_t nPid) {
    return Message({0x80000000, 0, 0, 0, nPid, nPid, 0, 0});
}

// The same message, of that moment.
inline std::string At(uint64_t nNanos, std::string strMessage) {
    std::memcpy(&strMessage[HEADS + 8], &nNanos, sizeof(nNanos));
    return strMessage;
}

// The processes of these events.
inline std::vector<uint32_t> PidsOf(const std::vector<ConnectorEvent>& events) {
    std::vector<uint32_t> pids;
    for (const ConnectorEvent& event : events) {
        pids.push_back(event.nPid);
    }
    return pids;
}

}  // namespace connector_bytes

#endif
