// Loading, starting, stopping and ending, over and over and at the wrong moment.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

#include "tests/stress/Module.h"
#include "tests/stress/Options.h"
#include "tests/support/Event.h"
#include "tests/support/TestDir.h"
#include "tests/support/Threads.h"
#include "tests/support/trace/OtherConnection.h"

using Texts = std::vector<std::string>;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long GROWTH_KILOBYTES = 512 * 1024;  // sanitizers keep freed memory on purpose
#else
constexpr long GROWTH_KILOBYTES = 1024;
#endif

void FireFrom4Threads(CountingRouter& router) {
    static std::atomic<long> nKeys{0};  // a known key costs 300 attempts
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&router, i] {
            router.Deliver(TYPE_EVENT, EventBody("/nowhere/" + std::to_string(i)));
            router.Deliver(TYPE_VERDICT, VerdictBody("key" + std::to_string(++nKeys)));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void OneLife(CountingRouter& router) {
    Module module(router);
    module.Start();
    FireFrom4Threads(router);
}

// How many descriptors of this process lead to a file of that name.
long DescriptorsOf(const std::string& strName) {
    long nFound = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        nFound += std::filesystem::read_symlink(entry, ignored).filename() == strName ? 1 : 0;
    }
    return nFound;
}

// By their names: a sanitizer has a thread of its own that comes and goes.
bool ModulesThreadsRun() {
    const std::multiset<std::string> names = ThreadNames();
    return names.count("tevmon_tasktime") == 1 && names.count("CTevCloudCachoM") == 1 &&
           names.count("TevChennalMgr") == 1;
}

class LifeTest : public testing::Test {
protected:
    const TestDir m_dir;
    CountingRouter m_router;
};

}  // namespace

TEST_F(LifeTest, WholeLivesLeaveNeitherMemoryNorDescriptorsBehind) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the race detector runs a library's atexit routines too late to unload it";
#endif
    const long nWarm = g_options.nLoads / 10 + 20;
    for (long i = 0; i < nWarm; ++i) {
        OneLife(m_router);
    }
    const size_t nDescriptors = DescriptorCount();
    const long nBefore = ResidentKilobytes();

    for (long i = 0; i < g_options.nLoads; ++i) {
        OneLife(m_router);
    }

    const long nGrowth = ResidentKilobytes() - nBefore;
    std::cout << "loads: " << g_options.nLoads << ", growth_kib " << nGrowth << "\n";
    EXPECT_LT(nGrowth, GROWTH_KILOBYTES);
    EXPECT_EQ(nDescriptors, DescriptorCount());
}

TEST_F(LifeTest, StartsAndStopsWithRandomGapsNeverHang) {
    Module module(m_router);
    std::mt19937 random(static_cast<uint32_t>(g_options.nSeed));
    const Event never;
    auto longest = std::chrono::nanoseconds(0);
    // A wait that does not notice a stop lasts longer than a hang.
    CThread::SetWaitHook([](uint32_t) -> uint32_t { return 150000; });

    for (long i = 0; i < g_options.nStarts; ++i) {
        module.Start();
        if (i % 1000 == 0) {  // those of the last start may stand there for a moment longer
            ASSERT_TRUE(Eventually(ModulesThreadsRun)) << i;
        }
        (void)never.WaitFor(std::chrono::milliseconds(random() % 11));
        const auto begin = std::chrono::steady_clock::now();
        module.Stop();
        longest =
            std::max<std::chrono::nanoseconds>(longest, std::chrono::steady_clock::now() - begin);
        ASSERT_LT(longest, HANGS_AFTER) << "start " << i << " of seed " << g_options.nSeed;
    }
    CThread::SetWaitHook(nullptr);

    const QuickWaits waits;
    m_router.Deliver(TYPE_EVENT, EventBody(m_dir.WriteFile("program", "a program")));
    module.Start();
    EXPECT_TRUE(Eventually([&] { return m_router.nPosts == 1; }))
        << "the last start drains nothing";
    std::cout << "starts: " << g_options.nStarts << ", longest stop "
              << std::chrono::duration_cast<std::chrono::milliseconds>(longest).count() << " ms\n";
}

TEST_F(LifeTest, AProcessThatExitsWithoutStopWhileThreadsFireEndsNormally) {
    for (long i = 0; i < g_options.nLoads / 10; ++i) {
        const int nStatus = StatusOfChild([i] {
            static CountingRouter router;
            static auto* pModule = new Module(router);  // never unloaded
            const QuickWaits waits;
            pModule->Start();
            for (int nThread = 0; nThread < 4; ++nThread) {
                std::thread([] {
                    for (;;) {
                        router.Deliver(TYPE_EVENT, EventBody("/nowhere"));
                    }
                }).detach();
            }
            std::mt19937 random(static_cast<uint32_t>(g_options.nSeed + i));
            (void)Event().WaitFor(std::chrono::milliseconds(random() % 20));
            return testing::Test::HasFailure() ? 1 : 0;
        });
        ASSERT_EQ(0, nStatus) << "child " << i << " of seed " << g_options.nSeed;
    }
    std::cout << "exits: " << g_options.nLoads / 10 << "\n";
}

TEST_F(LifeTest, FirstUsesFromEightThreadsAtOnceMakeOneOfEverything) {
    for (long i = 0; i < g_options.nLoads / 10; ++i) {
        const int nStatus = StatusOfChild([this, i] {
            CountingRouter router;
            Module module(router);
            std::atomic<int> nReady{0};
            std::vector<std::thread> threads;
            for (int nThread = 0; nThread < 8; ++nThread) {
                threads.emplace_back([&, nThread] {
                    ++nReady;
                    while (nReady < 8) {
                    }
                    if (nThread % 2 == 0) {
                        router.Deliver(TYPE_EVENT, EventBody("/nowhere"));
                    } else {
                        router.Deliver(TYPE_VERDICT, VerdictBody(std::to_string(i) + "k" +
                                                                 std::to_string(nThread)));
                    }
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            // A second store of a kind would hold its file open a second time.
            EXPECT_EQ(1, DescriptorsOf("tevchennaldb.db"));
            EXPECT_EQ(1, DescriptorsOf("tevcloudcacho.db"));
            EXPECT_EQ(Texts{std::to_string(4 * (i + 1))},
                      OtherConnection(m_dir.Database("tevchennaldb.db"))
                          .Rows("select count(*) from msgchennal"));
            EXPECT_EQ(Texts{std::to_string(4 * (i + 1))},
                      OtherConnection(m_dir.Database("tevcloudcacho.db"))
                          .Rows("select count(*) from cachotable"));
            return testing::Test::HasFailure() ? 1 : 0;
        });
        ASSERT_EQ(0, nStatus) << "child " << i;
    }
    std::cout << "first uses: " << g_options.nLoads / 10 << "\n";
}
