// How often work may be done that others cause at will, so that it takes a tenth of one thread's
// time at most: after each time there is a pause of nine times as long, one second at most.
//
// Threads: one. Errors: none.
#ifndef HOST_KERNEL_FILE_WORKPACE_H
#define HOST_KERNEL_FILE_WORKPACE_H

#include <algorithm>
#include <chrono>

class WorkPace {
public:
    using Clock = std::chrono::steady_clock;

    bool MayBegin(Clock::time_point now) const { return now >= m_due; }
    void Ended(Clock::time_point begin, Clock::time_point end) {
        m_due = end + std::min<Clock::duration>(9 * (end - begin), std::chrono::seconds(1));
    }

private:
    Clock::time_point m_due;
};

#endif
