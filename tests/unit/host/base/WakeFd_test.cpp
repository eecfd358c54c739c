#include "host/base/WakeFd.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <limits>
#include <thread>

namespace {

// Whether a poll that waits so long finds it readable.
bool IsReadable(const WakeFd& wake, int nMilliseconds) {
    pollfd fd = {wake.Fd(), POLLIN, 0};
    return poll(&fd, 1, nMilliseconds) == 1 && fd.revents == POLLIN;
}

constexpr int HANGS_AFTER_MS = 100000;

}  // namespace

TEST(WakeFdTest, IsReadableFromTheFirstWakeOn) {
    WakeFd wake;
    ASSERT_TRUE(wake.Open());

    EXPECT_FALSE(IsReadable(wake, 0));
    wake.Wake();
    EXPECT_TRUE(IsReadable(wake, 0));
    wake.Wake();
    EXPECT_TRUE(IsReadable(wake, 0));
}

TEST(WakeFdTest, EndsAnotherThreadsPoll) {
    WakeFd wake;
    ASSERT_TRUE(wake.Open());
    bool bWoken = false;
    std::thread waiter([&] { bWoken = IsReadable(wake, HANGS_AFTER_MS); });

    wake.Wake();
    waiter.join();

    EXPECT_TRUE(bWoken);
}

TEST(WakeFdTest, AWakeNeverWaitsForRoom) {
    WakeFd wake;
    ASSERT_TRUE(wake.Open());
    const uint64_t nFull = std::numeric_limits<uint64_t>::max() - 1;
    ASSERT_EQ(8, write(wake.Fd(), &nFull, sizeof(nFull)));

    wake.Wake();

    EXPECT_TRUE(IsReadable(wake, 0));
}

TEST(WakeFdTest, ClearedItWaitsForTheNextWake) {
    WakeFd wake;
    wake.Clear();
    ASSERT_TRUE(wake.Open());
    wake.Wake();
    wake.Wake();

    wake.Clear();
    EXPECT_FALSE(IsReadable(wake, 0));
    wake.Clear();
    wake.Wake();

    EXPECT_TRUE(IsReadable(wake, 0));
}

TEST(WakeFdTest, OutsideOfOpenAndCloseAWakeDoesNothing) {
    WakeFd wake;

    wake.Wake();
    EXPECT_EQ(-1, wake.Fd());
    ASSERT_TRUE(wake.Open());
    EXPECT_FALSE(IsReadable(wake, 0));
    wake.Close();
    wake.Wake();

    EXPECT_EQ(-1, wake.Fd());
}
