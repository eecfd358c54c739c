// The kernel's process connector: copies, starts and ends of processes as netlink messages. They
// name the process only; what it runs must be looked up while it lives.
//
// Threads: one. Errors: Open's text says what is missing; nothing throws but std::bad_alloc.
#ifndef HOST_KERNEL_CONNECTOR_CONNECTORSOCKET_H
#define HOST_KERNEL_CONNECTOR_CONNECTORSOCKET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/UniqueFd.h"
#include "host/kernel/launch/LaunchEvent.h"

struct ConnectorEvent {
    LaunchKind eKind = LAUNCH_KIND_EXEC;
    uint32_t nPid = 0;     // of the process, never of a thread
    uint32_t nParent = 0;  // of LAUNCH_KIND_FORK
    uint64_t nNanos = 0;   // when, by the monotonic clock
};

// The event in one netlink message; false when it is none of those, or one of a thread.
bool DecodeConnector(const void* pData, size_t nSize, ConnectorEvent& event);

// What a refusal of the kernel's, an errno, means and what to do about it. ECONNREFUSED: it has no
// socket of its own for the connector in any network namespace but the first.
std::string ConnectorRefusal(int nError);

class ConnectorSocket {
public:
    enum Kinds { EXECS = 2, LIVES = 1 | 0x80000000, ALL_KINDS = EXECS | LIVES };

    ConnectorSocket() = default;

    ConnectorSocket(const ConnectorSocket&) = delete;
    ConnectorSocket& operator=(const ConnectorSocket&) = delete;

    // Whether this kernel sends a socket only the kinds it asks for; older ones send all of them.
    static bool CanFilter();

    bool Open(Kinds eKinds, std::string& strError);
    // Appends what waits, some hundred events at most; false when nothing waited any more.
    bool Receive(std::vector<ConnectorEvent>& events);
    int Fd() const { return m_fd.Get(); }
    // Messages that found no room, as of the last Receive that found nothing more.
    uint64_t Dropped() const { return m_nDropped; }

private:
    void TakeDrops();

    UniqueFd m_fd;
    bool m_bOverrun = false;
    uint32_t m_nCounted = 0;  // the kernel's counter of drops when it was last looked at
    uint64_t m_nDropped = 0;
};

#endif
