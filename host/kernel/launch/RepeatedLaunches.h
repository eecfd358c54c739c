// Launches that need no report of their own: the same version of a file, under the same names,
// started by the same program for the same user a moment ago, and judged by its own digest.
//
// Threads: one. Errors: none but std::bad_alloc.
//
// Bounded: what finds no room is reported.
#ifndef HOST_KERNEL_LAUNCH_REPEATEDLAUNCHES_H
#define HOST_KERNEL_LAUNCH_REPEATEDLAUNCHES_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/kernel/launch/Launch.h"

class RepeatedLaunches {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t MOST = 1024;  // reports that do for others

    // window: for how long after a report; 0: every launch is reported.
    explicit RepeatedLaunches(std::chrono::milliseconds window) : m_window(window) {}

    // This launch, when an earlier report does for it; nothing when it needs one of its own.
    std::optional<Launch> Find(const LaunchEvent& event, const std::string& strStarter,
                               Clock::time_point now);
    // Lets go of what is over. A source does so at rest as well: the files stay held until then.
    void Expire(Clock::time_point now);
    // It was reported, and is held.
    void Reported(const LaunchEvent& event, const Launch& launch, Clock::time_point now);

private:
    struct Report {
        Launch launch;
        Clock::time_point when;
    };
    using Reports = std::unordered_map<std::string, Report>;

    const std::chrono::milliseconds m_window;
    Reports m_reports;                         // by all that makes two launches the same
    std::deque<Reports::value_type*> m_order;  // of them, the oldest first
};

#endif
