#include "framework/base/CMutex.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Event.h"

namespace {

// Writes down what is asked of it.
class RecordingLock : public CBasicLock {
public:
    void Lock() TEV_ACQUIRE() TEV_NO_THREAD_SAFETY_ANALYSIS override { strCalls += "L"; }
    void Unlock() TEV_RELEASE() TEV_NO_THREAD_SAFETY_ANALYSIS override { strCalls += "U"; }

    std::string strCalls;
};

}  // namespace

TEST(CMutexTest, OneThreadAtATimeHoldsIt) {
    CMutex mutex;
    int nCount = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 10000; ++j) {
                mutex.Lock();
                ++nCount;
                mutex.Unlock();
            }
        });
    }

    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(40000, nCount);
}

TEST(CMutexTest, AnotherThreadWaitsForTheUnlock) {
    CMutex mutex;
    bool bUnlocking = false;
    bool bSeen = false;
    Event running;
    mutex.Lock();
    std::thread other([&] {
        running.Set();
        mutex.Lock();
        bSeen = bUnlocking;
        mutex.Unlock();
    });
    const bool bRunning = running.Wait();

    bUnlocking = true;
    mutex.Unlock();
    other.join();

    EXPECT_TRUE(bRunning);
    EXPECT_TRUE(bSeen);
}

TEST(CMutexTest, CanBeTakenAgainAfterTheUnlock) {
    CMutex mutex;

    for (int i = 0; i < 3; ++i) {
        const CAutoLock lock(mutex);
    }
    mutex.Lock();
    mutex.Unlock();

    SUCCEED();  // a lock still held would have hung here
}

TEST(CAutoLockTest, HoldsALockFromItsConstructionToTheEndOfTheBlock) {
    RecordingLock recording;
    {
        const CAutoLock lock(recording);
        EXPECT_EQ("L", recording.strCalls);
    }

    EXPECT_EQ("LU", recording.strCalls);
}

TEST(CAutoLockTest, LetsGoWhenTheBlockIsLeftByAnException) {
    RecordingLock recording;
    try {
        const CAutoLock lock(recording);
        throw std::runtime_error("out of the block");
    } catch (const std::runtime_error&) {
        recording.strCalls += "C";
    }

    EXPECT_EQ("LUC", recording.strCalls);
}
