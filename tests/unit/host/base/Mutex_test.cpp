#include "host/base/Mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "host/base/MonotonicCondition.h"
#include "tests/support/Event.h"

namespace {

// What another thread finds: whether it gets the lock while this one goes on.
class OtherThread {
public:
    explicit OtherThread(Mutex& mutex)
        : m_thread([this, &mutex] {
              const MutexLock lock(mutex);
              m_got.Set();
          }) {}
    ~OtherThread() { m_thread.join(); }

    bool Gets() { return m_got.Wait(); }
    bool GetsAtOnce() { return m_got.WaitFor(std::chrono::milliseconds(50)); }

private:
    Event m_got;
    std::thread m_thread;
};

}  // namespace

TEST(MutexTest, AnotherThreadGetsTheLockAtTheEndOfTheBlock) {
    Mutex mutex;
    std::unique_ptr<OtherThread> pOther;
    {
        const MutexLock lock(mutex);
        pOther = std::make_unique<OtherThread>(mutex);

        EXPECT_FALSE(pOther->GetsAtOnce());
    }

    EXPECT_TRUE(pOther->Gets());
}

TEST(MutexTest, BetweenUnlockAndLockAnotherThreadGetsIt) {
    Mutex mutex;
    MutexLock lock(mutex);

    lock.Unlock();
    EXPECT_TRUE(OtherThread(mutex).Gets());
    lock.Lock();
    auto pOther = std::make_unique<OtherThread>(mutex);

    EXPECT_FALSE(pOther->GetsAtOnce());
    lock.Unlock();
    EXPECT_TRUE(pOther->Gets());
}

TEST(MutexTest, AWaitGivesTheLockUpAndTakesItAgain) {
    Mutex mutex;
    MonotonicCondition changed;
    bool bChanged = false;
    MutexLock lock(mutex);
    std::thread other([&] {
        const MutexLock otherLock(mutex);
        bChanged = true;
        changed.NotifyAll();
    });

    while (!bChanged) {
        changed.Wait(mutex);
    }
    auto pOther = std::make_unique<OtherThread>(mutex);

    EXPECT_FALSE(pOther->GetsAtOnce());
    lock.Unlock();
    EXPECT_TRUE(pOther->Gets());
    other.join();
}

TEST(MutexTest, AWaitWithAnEndThatHasPassedReturnsWithTheLock) {
    Mutex mutex;
    MonotonicCondition changed;
    MutexLock lock(mutex);

    changed.WaitUntil(mutex, MonotonicCondition::Clock::now() - std::chrono::seconds(1));
    auto pOther = std::make_unique<OtherThread>(mutex);

    EXPECT_FALSE(pOther->GetsAtOnce());
    lock.Unlock();
    EXPECT_TRUE(pOther->Gets());
}
