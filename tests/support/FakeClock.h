// Puts the clock that time() reads under the test's control. The program that links this file
// answers time() itself; while no FakeClock lives it answers truly.
#ifndef TESTS_SUPPORT_FAKECLOCK_H
#define TESTS_SUPPORT_FAKECLOCK_H

#include <cstdint>

class FakeClock {
public:
    explicit FakeClock(int64_t tmNow);
    ~FakeClock();

    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    void Set(int64_t tmNow);
    void Advance(int64_t nSeconds);
};

#endif
