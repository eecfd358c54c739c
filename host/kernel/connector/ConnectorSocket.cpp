#include "host/kernel/connector/ConnectorSocket.h"

#include <fcntl.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr int BUFFER_BYTES = 64 << 20;  // taken only while messages wait
constexpr size_t MESSAGES = 64;         // in one call
constexpr size_t MESSAGE_BYTES = 256;
constexpr int ROUNDS = 8;
constexpr size_t HEADS = sizeof(nlmsghdr) + sizeof(cn_msg);

// The request with the kinds wanted; older kernels know the first number only.
struct Request {
    uint32_t nListen;
    uint32_t nKinds;
};

bool Subscribe(int nFd, uint32_t nKinds, bool bFilter) {
    const Request request = {PROC_CN_MCAST_LISTEN, nKinds};
    const size_t nBody = bFilter ? sizeof(request) : sizeof(request.nListen);
    nlmsghdr head = {};
    head.nlmsg_len = static_cast<uint32_t>(HEADS + nBody);
    head.nlmsg_type = NLMSG_DONE;
    cn_msg connector = {};
    connector.id = {CN_IDX_PROC, CN_VAL_PROC};
    connector.len = static_cast<uint16_t>(nBody);
    char message[HEADS + sizeof(request)];
    std::memcpy(message, &head, sizeof(head));
    std::memcpy(message + sizeof(head), &connector, sizeof(connector));
    std::memcpy(message + HEADS, &request, nBody);
    return send(nFd, message, head.nlmsg_len, 0) == static_cast<ssize_t>(head.nlmsg_len);
}

}  // namespace

std::string ConnectorRefusal(int nError) {
    if (nError == ECONNREFUSED) {
        return "the kernel's process connector serves the initial network namespace only, and this "
               "process is in another one; run the host in that of the machine (a service without "
               "PrivateNetwork, a container with the machine's network)";
    }
    return std::string("the kernel's process connector refuses: ") + std::strerror(nError) +
           "; it needs root, or the capability CAP_NET_ADMIN, outside of any process-number or "
           "user namespace, and CONFIG_PROC_EVENTS";
}

bool DecodeConnector(const void* pData, size_t nSize, ConnectorEvent& event) {
    // The kernel's own type has grown with time; all that is read stands in its first 32 bytes.
    constexpr size_t READ = 32;
    if (pData == nullptr || nSize < HEADS + READ) {
        return false;
    }
    cn_msg connector = {};
    std::memcpy(&connector, static_cast<const char*>(pData) + sizeof(nlmsghdr), sizeof(connector));
    if (connector.id.idx != CN_IDX_PROC || connector.id.val != CN_VAL_PROC) {
        return false;
    }
    uint32_t words[READ / sizeof(uint32_t)];
    std::memcpy(words, static_cast<const char*>(pData) + HEADS, sizeof(words));
    const uint32_t* const pIds = words + 4;  // after kind, processor and time
    uint64_t nNanos = 0;
    std::memcpy(&nNanos, words + 2, sizeof(nNanos));
    switch (words[0]) {
        case 0x00000001:  // a copy: parent's thread and process, child's thread and process
            event = {LAUNCH_KIND_FORK, pIds[3], pIds[1], nNanos};
            return pIds[2] == pIds[3];
        case 0x00000002:
            event = {LAUNCH_KIND_EXEC, pIds[1], 0, nNanos};
            return true;
        case 0x80000000:
            event = {LAUNCH_KIND_EXIT, pIds[1], 0, nNanos};
            return pIds[0] == pIds[1];
        default:
            return false;
    }
}

bool ConnectorSocket::CanFilter() {
    utsname name = {};
    unsigned int nMajor = 0, nMinor = 0;
    (void)uname(&name);
    return std::sscanf(name.release, "%u.%u", &nMajor, &nMinor) == 2 &&
           (nMajor > 6 || (nMajor == 6 && nMinor >= 6));
}

bool ConnectorSocket::Open(Kinds eKinds, std::string& strError) {
    m_fd.Reset(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_CONNECTOR));
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = CN_IDX_PROC;
    const bool bBound =
        m_fd && bind(m_fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    if (bBound) {
        const int nBytes = BUFFER_BYTES;
        (void)setsockopt(m_fd.Get(), SOL_SOCKET, SO_RCVBUFFORCE, &nBytes, sizeof(nBytes));
    }
    if (!bBound || !Subscribe(m_fd.Get(), static_cast<uint32_t>(eKinds), CanFilter())) {
        strError = ConnectorRefusal(errno);
        return false;
    }
    return true;
}

bool ConnectorSocket::Receive(std::vector<ConnectorEvent>& events) {
    static thread_local char bytes[MESSAGES][MESSAGE_BYTES];
    for (int nRound = 0; nRound < ROUNDS; ++nRound) {
        mmsghdr messages[MESSAGES] = {};
        iovec vectors[MESSAGES];
        for (size_t i = 0; i < MESSAGES; ++i) {
            vectors[i] = {bytes[i], MESSAGE_BYTES};
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int nCount = recvmmsg(m_fd.Get(), messages, MESSAGES, 0, nullptr);
        if (nCount < 0) {
            if (errno == ENOBUFS) {
                m_bOverrun = true;
                continue;
            }
            TakeDrops();
            return false;
        }
        for (int i = 0; i < nCount; ++i) {
            ConnectorEvent event;
            if (DecodeConnector(bytes[i], messages[i].msg_len, event)) {
                events.push_back(event);
            }
        }
    }
    return true;
}

// The kernel says "overrun" once, goes on dropping until the buffer is empty, and counts each one.
void ConnectorSocket::TakeDrops() {
    if (!m_bOverrun) {
        return;
    }
    m_bOverrun = false;
    uint32_t memory[SK_MEMINFO_VARS] = {};
    socklen_t nLength = sizeof(memory);
    if (getsockopt(m_fd.Get(), SOL_SOCKET, SO_MEMINFO, memory, &nLength) != 0) {
        ++m_nDropped;  // one at least
        return;
    }
    const uint32_t nNow = memory[SK_MEMINFO_DROPS];
    m_nDropped += static_cast<uint32_t>(nNow - m_nCounted);  // the counter may begin anew
    m_nCounted = nNow;
}
