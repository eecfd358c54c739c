// Makes two clocks leap at each look while it lives: the coarse wall clock and the processor time
// of the calling thread. All others, and these while none lives, are the true ones.
//
// The program that links this folder answers clock_gettime itself. One at a time. Threads: any.
#ifndef TESTS_SUPPORT_CLOCKS_LEAPINGCLOCKS_H
#define TESTS_SUPPORT_CLOCKS_LEAPINGCLOCKS_H

#include <cstdint>

class LeapingClocks {
public:
    // Seconds that each look at a clock adds to it.
    LeapingClocks(int64_t nWallSeconds, int64_t nProcessorSeconds);
    ~LeapingClocks();

    LeapingClocks(const LeapingClocks&) = delete;
    LeapingClocks& operator=(const LeapingClocks&) = delete;

    // Looks at the wall clock so far: a test asks whether it was reached at all.
    static int WallLooks();
};

#endif
