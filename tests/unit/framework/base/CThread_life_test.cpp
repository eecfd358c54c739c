#include "framework/base/CThread.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/BodyThread.h"
#include "tests/support/Event.h"

namespace {
std::atomic<bool> g_bRefusePriorities{false};
}

// Stands before the C library's, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) int setpriority(__priority_which_t eWhich,
                                                                  id_t nWho, int nValue) noexcept {
    static auto* const pfnNext =
        reinterpret_cast<int (*)(__priority_which_t, id_t, int)>(dlsym(RTLD_NEXT, "setpriority"));
    if (g_bRefusePriorities) {
        errno = EACCES;
        return -1;
    }
    return pfnNext(eWhich, nWho, nValue);
}

namespace {

std::string CurrentName() {
    char szName[16] = {};
    (void)prctl(PR_GET_NAME, szName, 0, 0, 0);
    return szName;
}

int CurrentNice() {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
}

}  // namespace

// --- what the thread is like

TEST(CThreadLifeTest, TheThreadBlocksAllSignalsAndTheCallersMaskStays) {
    sigset_t before;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &before);
    sigset_t inside;
    sigemptyset(&inside);
    BodyThread thread([&](BodyThread&) { (void)pthread_sigmask(SIG_SETMASK, nullptr, &inside); });

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    sigset_t after;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int nSignal = 1; nSignal <= SIGRTMAX; ++nSignal) {
        // The kernel keeps the first two free, the C library those before SIGRTMIN.
        const bool bCannotBeBlocked = nSignal == SIGKILL || nSignal == SIGSTOP ||
                                      (nSignal >= __SIGRTMIN && nSignal < SIGRTMIN);
        EXPECT_EQ(bCannotBeBlocked ? 0 : 1, sigismember(&inside, nSignal)) << nSignal;
        EXPECT_EQ(sigismember(&before, nSignal), sigismember(&after, nSignal)) << nSignal;
    }
}

TEST(CThreadLifeTest, TheThreadHasAStackOf8MiB) {
    size_t nSize = 0;
    BodyThread thread([&](BodyThread&) {
        pthread_attr_t attributes;
        ASSERT_EQ(0, pthread_getattr_np(pthread_self(), &attributes));
        (void)pthread_attr_getstacksize(&attributes, &nSize);
        (void)pthread_attr_destroy(&attributes);
    });

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ(8u * 1024 * 1024, nSize);
}

TEST(CThreadLifeTest, ThePriorityIsTheThreadsNiceValueWhereTheSystemAllowsIt) {
    const struct {
        CThread::Priority ePriority;
        int nNice;
    } cases[] = {{CThread::PriorityIdle, 19},
                 {CThread::PriorityLow, 10},
                 {CThread::PriorityNormal, 0},
                 {CThread::PriorityHigh, -5},
                 {CThread::PriorityHighest, -10}};
    const int nMine = CurrentNice();
    for (const auto& each : cases) {
        int nAllowed = 0;
        std::thread([&] {
            (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), each.nNice);
            nAllowed = CurrentNice();
        }).join();
        int nNice = 100;
        BodyThread thread([&](BodyThread&) { nNice = CurrentNice(); });

        ASSERT_TRUE(thread.start(each.ePriority));
        EXPECT_TRUE(thread.stop());

        EXPECT_EQ(nAllowed, nNice) << each.ePriority;
        EXPECT_EQ(nMine, CurrentNice());  // the caller's own stays
    }
}

TEST(CThreadLifeTest, TheLowestPriorityIsAlwaysAllowed) {
    int nNice = 100;
    BodyThread thread([&](BodyThread&) { nNice = CurrentNice(); });

    ASSERT_TRUE(thread.start(CThread::PriorityIdle));
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ(19, nNice);
}

TEST(CThreadLifeTest, APriorityThatTheSystemRefusesFailsNothing) {
    const int nMine = CurrentNice();
    int nNice = 100;
    BodyThread thread([&](BodyThread&) { nNice = CurrentNice(); });
    g_bRefusePriorities = true;

    EXPECT_TRUE(thread.start(CThread::PriorityIdle));
    EXPECT_TRUE(thread.stop());
    g_bRefusePriorities = false;

    EXPECT_EQ(nMine, nNice);
}

TEST(CThreadLifeTest, APriorityOutsideTheRangeChangesNothing) {
    const int nMine = CurrentNice();
    for (const int nPriority : {-1, 5, 1000}) {
        int nNice = 100;
        BodyThread thread([&](BodyThread&) { nNice = CurrentNice(); });

        EXPECT_TRUE(thread.start(static_cast<CThread::Priority>(nPriority)));
        EXPECT_TRUE(thread.stop());

        EXPECT_EQ(nMine, nNice);
    }
}

TEST(CThreadLifeTest, AnExceptionThatLeavesRunEndsTheThreadAndNothingElse) {
    int nRuns = 0;
    BodyThread thread([&](BodyThread&) {
        if (++nRuns == 1) {
            throw std::runtime_error("out of run");
        }
        throw 7;
    });

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());
    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    EXPECT_EQ(2, nRuns);
}

TEST(CThreadLifeTest, AThreadThatExitsInTheBodyCountsAsEnded) {
    std::atomic<pid_t> nThread{0};
    BodyThread thread([&](BodyThread&) {
        nThread = gettid();
        pthread_exit(nullptr);
    });
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(Eventually([&] { return nThread != 0; }));
    ASSERT_TRUE(Vanishes(nThread));

    EXPECT_TRUE(thread.isJoinable());
    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());
}

TEST(CThreadLifeTest, AThreadThatIsCancelledInAWaitCountsAsEnded) {
    Event running;
    pthread_t self = {};
    BodyThread thread([&](BodyThread& body) {
        self = pthread_self();
        running.Set();
        body.Wait(TEN_MINUTES);
    });
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(running.Wait());

    EXPECT_EQ(0, pthread_cancel(self));

    EXPECT_TRUE(thread.stop());
    EXPECT_TRUE(thread.Start());  // its lock was given back
    EXPECT_TRUE(thread.stop());
}

TEST(CThreadLifeTest, TheNameIsCutAfter15Bytes) {
    std::vector<std::string> names;
    BodyThread thread([&](BodyThread&) {
        CThread::setCurThreadName("TevChennalMgr");
        names.push_back(CurrentName());
        CThread::setCurThreadName("tevmon_tasktimer");
        names.push_back(CurrentName());
        CThread::setCurThreadName(nullptr);
        names.push_back(CurrentName());
        CThread::setCurThreadName("");
        names.push_back(CurrentName());
    });
    const std::string strMine = CurrentName();

    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.stop());

    const std::vector<std::string> expected = {"TevChennalMgr", "tevmon_tasktime",
                                               "tevmon_tasktime", ""};
    EXPECT_EQ(expected, names);
    EXPECT_EQ(strMine, CurrentName());
}

// --- destruction

namespace {

struct Outside {  // what a thread may use after its CThread has gone
    Event started;
    Event gate;
    std::atomic<pid_t> nThread{0};
    std::atomic<bool> bReturned{false};
};

// Destroys itself in its own body and goes on.
class SelfDestroying : public CThread {
public:
    explicit SelfDestroying(Outside& outside) : m_outside(outside) {}
    ~SelfDestroying() override { EXPECT_FALSE(stop()); }

protected:
    void run() override {
        Outside& outside = m_outside;
        outside.nThread = gettid();
        delete this;
        outside.started.Set();
        EXPECT_TRUE(outside.gate.Wait());
        outside.bReturned = true;
    }

private:
    Outside& m_outside;
};

// Leaves the stop to the base class, and so uses nothing of its own in the body.
class Forgetful : public CThread {
public:
    explicit Forgetful(Outside& outside) : m_outside(outside) {}

protected:
    void run() override {
        Outside& outside = m_outside;
        CThread& base = *this;
        outside.started.Set();
        base.Wait(TEN_MINUTES);
        outside.bReturned = true;
    }

private:
    Outside& m_outside;
};

}  // namespace

TEST(CThreadLifeTest, DestroyedOnItsOwnThreadItGoesOnAndTouchesNothingOfIt) {
    Outside outside;
    auto* pThread = new SelfDestroying(outside);
    ASSERT_TRUE(pThread->start(CThread::PriorityNormal));
    ASSERT_TRUE(outside.started.Wait());
    EXPECT_FALSE(outside.bReturned);

    outside.gate.Set();

    EXPECT_TRUE(Vanishes(outside.nThread));
    EXPECT_TRUE(outside.bReturned);
}

TEST(CThreadLifeTest, DestroyedOnItsOwnThreadWhileAnotherStopsItBothEnd) {
    Outside outside;
    class Waiting : public SelfDestroying {
    public:
        using SelfDestroying::SelfDestroying;

    protected:
        void run() override {
            EXPECT_TRUE(Eventually([this] { return isStoped(); }));
            SelfDestroying::run();
        }
    };
    auto* pThread = new Waiting(outside);
    ASSERT_TRUE(pThread->start(CThread::PriorityNormal));
    outside.gate.Set();

    EXPECT_TRUE(pThread->stop());

    EXPECT_TRUE(outside.bReturned);
}

TEST(CThreadLifeTest, TheBaseStopsAThreadThatTheDerivedClassForgot) {
    Outside outside;
    auto* pThread = new Forgetful(outside);
    ASSERT_TRUE(pThread->start(CThread::PriorityNormal));
    ASSERT_TRUE(outside.started.Wait());

    delete pThread;

    EXPECT_TRUE(outside.bReturned);
}

TEST(CThreadLifeTest, AStopInProgressOutlivesTheCThread) {
    for (int i = 0; i < 20; ++i) {
        Event gate;
        auto* pThread = new BodyThread([&gate](BodyThread&) { gate.Wait(); });
        ASSERT_TRUE(pThread->Start());
        std::thread stopper([pThread] { EXPECT_TRUE(pThread->stop()); });
        ASSERT_TRUE(Eventually([pThread] { return pThread->isStoped(); }));
        std::thread destroyer([pThread] { delete pThread; });

        gate.Set();

        stopper.join();
        destroyer.join();
    }
}
