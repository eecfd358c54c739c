#include "host/kernel/connector/ConnectorFeed.h"

#include <algorithm>
#include <cstddef>
#include <ctime>

namespace {

// Of one moment: a copy, its start, its end.
bool IsBefore(const ConnectorEvent& one, const ConnectorEvent& other) {
    static const int RANKS[] = {1, 0, 2};
    return one.nNanos != other.nNanos ? one.nNanos < other.nNanos
                                      : RANKS[one.eKind] < RANKS[other.eKind];
}

}  // namespace

uint64_t ConnectorFeed::Now() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

bool ConnectorFeed::Open(std::string& strError) {
    const bool bFilter = ConnectorSocket::CanFilter();
    return m_starts.Open(bFilter ? ConnectorSocket::EXECS : ConnectorSocket::ALL_KINDS, strError) &&
           (!bFilter || m_lives.Open(ConnectorSocket::LIVES, strError));
}

bool ConnectorFeed::Receive(std::vector<ConnectorEvent>& events) {
    uint64_t nUntil = Now();
    const auto nBefore = static_cast<std::ptrdiff_t>(events.size());
    events.insert(events.end(), m_later.begin(), m_later.end());
    m_later.clear();
    const size_t nOld = events.size();
    const bool bMore = m_starts.Receive(events);
    if (bMore && events.size() > nOld) {
        nUntil = std::min(nUntil, events.back().nNanos);
    }
    if (m_lives.Fd() >= 0) {
        while (m_lives.Receive(events)) {
        }
    }
    std::stable_sort(events.begin() + nBefore, events.end(), IsBefore);
    const auto later =
        std::find_if(events.begin() + nBefore, events.end(),
                     [nUntil](const ConnectorEvent& event) { return event.nNanos > nUntil; });
    m_later.assign(later, events.end());
    events.erase(later, events.end());
    m_nGiven = events.empty() ? m_nGiven : events.back().nNanos;
    return bMore;
}
