// Whether a sign of life is due to the service manager, and deserved: it is asked at every turn of
// the loop that takes events from the sensors, so a loop that stands still gives none; and the
// module must not have been inactive for too long while messages wait for it.
//
// Threads: one. Errors: none.
#ifndef HOST_PROCESS_WATCHDOG_H
#define HOST_PROCESS_WATCHDOG_H

#include <chrono>
#include <optional>

class Watchdog {
public:
    using Clock = std::chrono::steady_clock;

    // A file of the greatest size that is hashed, 4 GiB, at 10 MB/s, and a good deal more.
    static constexpr std::chrono::minutes MOST_SILENCE{10};

    // interval: how often a sign must come; 0 for never. The first one is due at once.
    explicit Watchdog(std::chrono::milliseconds interval) : m_interval(interval) {}

    // True when a sign is to be sent now. bWaiting: messages wait for the module. lastSign: when it
    // was last active.
    bool IsSignDue(Clock::time_point now, bool bWaiting, std::optional<Clock::time_point> lastSign);

    // As of the last call of IsSignDue.
    bool IsModuleSilent() const { return m_bSilent; }

private:
    const std::chrono::milliseconds m_interval;
    std::optional<Clock::time_point> m_waitingSince;
    std::optional<Clock::time_point> m_sent;
    bool m_bSilent = false;
};

#endif
