// Copies, starts and ends of processes in the order in which they happened.
//
// Where the kernel sends a socket only the kinds that it asks for there are two, so that a flood of
// copies pushes no start out. Two sockets have no order among them but by time: what is younger
// than a look at them waits for the next look, because the other one may have had what came before
// it.
//
// Threads: one. Errors: Open's text says what is missing; nothing throws but std::bad_alloc.
#ifndef HOST_KERNEL_CONNECTOR_CONNECTORFEED_H
#define HOST_KERNEL_CONNECTOR_CONNECTORFEED_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/kernel/connector/ConnectorSocket.h"

class ConnectorFeed {
public:
    ConnectorFeed() = default;

    ConnectorFeed(const ConnectorFeed&) = delete;
    ConnectorFeed& operator=(const ConnectorFeed&) = delete;

    bool Open(std::string& strError);
    int Fd() const { return m_starts.Fd(); }  // readable when a start waits

    // Appends what happened until the call; true when some of that still waits.
    bool Receive(std::vector<ConnectorEvent>& events);
    // Whether something younger was read, which waits for the next call.
    bool IsHolding() const { return !m_later.empty(); }

    // The monotonic clock in nanoseconds, and when the last event that was given happened.
    static uint64_t Now();
    uint64_t Given() const { return m_nGiven; }

    // Messages that found no room. Where there is one socket all of them are taken for starts.
    uint64_t DroppedStarts() const { return m_starts.Dropped(); }
    uint64_t DroppedLives() const { return m_lives.Dropped(); }

private:
    ConnectorSocket m_starts;
    ConnectorSocket m_lives;
    uint64_t m_nGiven = 0;
    std::vector<ConnectorEvent> m_later;  // read, and younger than the look
};

#endif
