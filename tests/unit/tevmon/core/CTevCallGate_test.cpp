// The gate is shut once per process; every test is a process of its own.
#include "tevmon/core/CTevCallGate.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "tests/support/Event.h"

TEST(CTevCallGateTest, CallsMayEnterUntilItIsShut) {
    const CTevCallGate first;
    const CTevCallGate second;

    EXPECT_TRUE(first.IsOpen());
    EXPECT_TRUE(second.IsOpen());
}

TEST(CTevCallGateTest, WithNobodyInsideItShutsAtOnceAndStaysShut) {
    EXPECT_TRUE(CTevCallGate::Shut(0));

    EXPECT_FALSE(CTevCallGate().IsOpen());
    EXPECT_TRUE(CTevCallGate::Shut(0));
}

TEST(CTevCallGateTest, ShuttingGivesUpOnACallThatDoesNotLeave) {
    const CTevCallGate inside;

    EXPECT_FALSE(CTevCallGate::Shut(1));

    EXPECT_TRUE(inside.IsOpen());  // what was let in may finish
    EXPECT_FALSE(CTevCallGate().IsOpen());
}

TEST(CTevCallGateTest, ShuttingWaitsForACallThatLeaves) {
    Event entered;
    std::atomic<bool> bLeft{false};
    std::thread caller([&] {
        const CTevCallGate inside;
        entered.Set();
        // Leaves only when it sees others turned away.
        EXPECT_TRUE(Eventually([] { return !CTevCallGate().IsOpen(); }));
        bLeft = true;
    });
    ASSERT_TRUE(entered.Wait());

    EXPECT_TRUE(CTevCallGate::Shut(30000));

    EXPECT_TRUE(bLeft.load());
    caller.join();
}

TEST(CTevCallGateTest, ARefusedCallDoesNotHoldTheGate) {
    ASSERT_TRUE(CTevCallGate::Shut(0));
    {
        const CTevCallGate refused;
        EXPECT_FALSE(refused.IsOpen());
    }

    EXPECT_TRUE(CTevCallGate::Shut(0));
}

TEST(CTevCallGateTest, ACancelledThreadLeavesTheCallFirst) {
    static bool s_bLeft = false;
    // A function of its own: the frame that is unwound at the end holds nothing.
    const auto call = [] {
        const CTevCallGate inside;
        (void)pthread_cancel(pthread_self());
        pthread_testcancel();
        s_bLeft = true;
    };
    static void (*s_pfnCall)() = call;
    const auto body = [](void*) -> void* {
        s_pfnCall();
        pthread_testcancel();
        return nullptr;
    };
    pthread_t caller;
    ASSERT_EQ(0, pthread_create(&caller, nullptr, body, nullptr));

    void* pResult = nullptr;
    ASSERT_EQ(0, pthread_join(caller, &pResult));

    EXPECT_TRUE(s_bLeft);
    EXPECT_EQ(PTHREAD_CANCELED, pResult);
    EXPECT_TRUE(CTevCallGate::Shut(0));
}

// With the signal at its default, as a host that never thought of it has it: it ends the process.
TEST(CTevCallGateTest, AFileThatMayNotGrowRaisesNoSignalDuringACall) {
    const int nFile = memfd_create("database", MFD_CLOEXEC);
    const rlimit limit = {4, 4};
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    int nError = 0;

    {
        const CTevCallGate inside;
        nError = write(nFile, "one\n", 4) == 4 && write(nFile, "two\n", 4) < 0 ? errno : 0;
    }

    EXPECT_EQ(EFBIG, nError);
    sigset_t mask;
    (void)pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(0, sigismember(&mask, SIGXFSZ));
    (void)close(nFile);
}

TEST(CTevCallGateTest, ASignalThatTheHostHoldsBackItselfStaysPending) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGXFSZ);
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    (void)raise(SIGXFSZ);

    { const CTevCallGate inside; }

    sigset_t pending;
    (void)sigpending(&pending);
    EXPECT_EQ(1, sigismember(&pending, SIGXFSZ));
}
