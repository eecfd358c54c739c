#include "framework/base/ObserverSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/Event.h"

TEST(ObserverSlotTest, WhoeverStandsInItIsCalled) {
    ObserverSlot<int> slot;
    EXPECT_FALSE(slot.IsSet());
    EXPECT_EQ(nullptr, slot.With([](int* pObserver) { return pObserver; }));
    int nFirst = 1;
    int nSecond = 2;
    slot.Set(&nFirst);
    EXPECT_TRUE(slot.IsSet());
    EXPECT_EQ(1, slot.With([](int* pObserver) { return *pObserver; }));
    slot.Set(&nSecond);
    EXPECT_EQ(2, slot.With([](int* pObserver) { return *pObserver; }));
    slot.Set(nullptr);
    EXPECT_FALSE(slot.IsSet());
    EXPECT_EQ(nullptr, slot.With([](int* pObserver) { return pObserver; }));
}

TEST(ObserverSlotTest, SetWaitsForTheCallsOfTheOneBeforeAndForNoOthers) {
    ObserverSlot<int> slot;
    int nFirst = 1;
    int nSecond = 2;
    slot.Set(&nFirst);
    Event called, goOn;
    std::atomic<bool> bReturned{false};
    std::thread caller([&] {
        slot.With([&](int*) {
            called.Set();
            goOn.Wait();
            EXPECT_FALSE(bReturned);
        });
    });
    ASSERT_TRUE(called.Wait());
    std::thread setter([&] {
        slot.Set(&nSecond);
        bReturned = true;
    });
    // From when the second one stands in it, it is called, though the first one's call goes on.
    EXPECT_TRUE(Eventually(
        [&] { return slot.With([&](int* pObserver) { return pObserver == &nSecond; }); }));
    EXPECT_FALSE(bReturned);
    goOn.Set();
    caller.join();
    setter.join();
    EXPECT_TRUE(bReturned);
}

TEST(ObserverSlotTest, ACallThatThrowsHasEnded) {
    ObserverSlot<int> slot;
    int nObserver = 1;
    slot.Set(&nObserver);
    EXPECT_THROW(slot.With([](int*) { throw 1; }), int);
    slot.Set(nullptr);  // does not wait
}
