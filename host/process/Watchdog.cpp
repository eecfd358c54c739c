#include "host/process/Watchdog.h"

#include <algorithm>

bool Watchdog::IsSignDue(Clock::time_point now, bool bWaiting,
                         std::optional<Clock::time_point> lastSign) {
    if (!bWaiting) {
        m_waitingSince.reset();
    } else if (!m_waitingSince) {
        m_waitingSince = now;
    }
    m_bSilent = m_waitingSince &&
                now - std::max(*m_waitingSince, lastSign.value_or(*m_waitingSince)) > MOST_SILENCE;
    // Three in each interval: one that is late or lost is no reason to be killed.
    const bool bDue = m_interval.count() > 0 && (!m_sent || now - *m_sent >= m_interval / 3);
    if (!bDue || m_bSilent) {
        return false;
    }
    m_sent = now;
    return true;
}
