#include "host/process/Privileges.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>

#include "tests/support/FileText.h"

namespace {

constexpr int NUMBERS = 64;  // more than any kernel has

// What the calling thread has in effect, a bit by each number.
uint64_t InEffect() {
    const std::string strStatus = FileText("/proc/thread-self/status");
    const size_t nAt = strStatus.find("\nCapEff:");
    return nAt == std::string::npos ? ~uint64_t{0}
                                    : std::stoull(strStatus.substr(nAt + 8), nullptr, 16);
}

uint64_t Asked() {
    uint64_t nBits = 0;
    for (int nCapability = 0; nCapability < NUMBERS; ++nCapability) {
        nBits |= privileges::Has(nCapability) ? uint64_t{1} << nCapability : 0;
    }
    return nBits;
}

}  // namespace

TEST(PrivilegesTest, EachCapabilityThatIsInEffectIsThereAndNoOther) {
    EXPECT_EQ(InEffect(), Asked());
}

TEST(PrivilegesTest, AThreadIsAskedWhatItHasItselfAndByNow) {
    const uint64_t nBefore = InEffect();
    uint64_t nInThread = ~uint64_t{0};
    uint64_t nDropped = ~uint64_t{0};

    std::thread([&nInThread, &nDropped] {
        nInThread = Asked();
        privileges::DropAll();
        nDropped = Asked();
    }).join();

    EXPECT_EQ(nBefore, nInThread);
    EXPECT_EQ(0u, nDropped);
    EXPECT_EQ(nBefore, Asked());
}
