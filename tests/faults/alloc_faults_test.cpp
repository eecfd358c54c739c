// Every allocation on the roads of a message fails, once and for good from there on.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <tuple>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/faults/AllocFaults.h"
#include "tests/faults/Options.h"
#include "tests/faults/Roads.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/trace/OtherConnection.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevMonIpcRecever.h"

namespace {

constexpr int EXIT_STRUCK = 7;
constexpr int EXIT_CLEAN = 0;

// Made beforehand: what fails is the module's, not the host's.
const std::string LAUNCHES =
    R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"program","cmd":"bash a.sh"}]})";
const std::string OPERATIONS =
    R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":"/etc/cron.d/a",)"
    R"("exe_path":"program","optertion":"create"}]})";
const std::string VERDICT =
    R"({"msg_type":"cloudqr","param":{"func":"cloudad","context":"abc","result":"70"}})";

void Receive(CTevMonIpcRecever& recever, int64_t nMsgType, const std::string& strBody) {
    const Guid sender = {};
    (void)recever.ReceiveCallback(&sender, nMsgType, strBody.data(),
                                  static_cast<uint32_t>(strBody.size()), nullptr, 0);
}

class OwnChannel : public CTevChennalMgr {
public:
    OwnChannel() { SetRunning(true); }
    ~OwnChannel() override = default;
    using CTevChennalMgr::Drain;
};

class OwnCache : public CTevCloudCachoMgr {
public:
    OwnCache() { SetRunning(true); }
    ~OwnCache() override = default;
    using CTevCloudCachoMgr::CheckRecords;
};

// What a child has before its allocations begin to fail: the objects, and a message of each kind.
struct Module {
    Module() {
        std::ofstream("program") << "a program";
        // What the other roads queue is no message of a host: it would stay at the head.
        (void)OtherConnection("../data/db/tevchennaldb.db").Exec("delete from msgchennal");
        CMsgRouterHolder::Instance()->SetRouter(&router);
    }

    FakeRouter router;
    CTevMonIpcRecever recever;
    OwnChannel channel;
    OwnCache cache;
};

struct AllocRoad {
    const char* pszName;
    void (*pfnPrepare)(Module& module);
    void (*pfnRun)(Module& module);
    long nSteps;  // a road of many like allocations is looked at more rarely
};

void Nothing(Module&) {}

void ReceiveAll(Module& module) {
    Receive(module.recever, 20002, LAUNCHES);
    Receive(module.recever, 20003, VERDICT);
}

void ReceiveBoth(Module& module) {
    Receive(module.recever, 20002, LAUNCHES);
    Receive(module.recever, 20002, OPERATIONS);
}

void Drain(Module& module) {
    module.channel.Drain();
}

void DrainOnceBefore(Module& module) {
    ReceiveBoth(module);
    Drain(module);
    ReceiveBoth(module);
}

void Record(Module& module) {
    (void)module.cache.Record("abc", 70, -1, 5, "detail");
}

void RecordKnown(Module& module) {
    (void)module.cache.Record("key2", 70, -1, 5, "detail");
}

void RecordOnceBefore(Module& module) {
    (void)module.cache.Record("xyz", 70, -1, 5, "detail");
}

void Expire(Module& module) {
    module.cache.CheckRecords();
}

// The first use of everything, and the second.
const AllocRoad ALLOC_ROADS[] = {
    {"receive_first", Nothing, ReceiveAll, 1},
    {"receive", ReceiveAll, ReceiveBoth, 1},
    {"drain_first", ReceiveBoth, Drain, 1},
    {"drain", DrainOnceBefore, Drain, 1},
    {"record", RecordOnceBefore, Record, 1},
    {"record_known", Nothing, RecordKnown, 50},
    {"expiry", Nothing, Expire, 1},
};

int RunUnder(const AllocRoad& road, long nAt, bool bForGood, Promises& promises) {
    Module module;
    road.pfnPrepare(module);
    AllocFaults::Arm(nAt, bForGood);
    road.pfnRun(module);
    const bool bStruck = AllocFaults::Disarm();
    // A lock that is still held, or a transaction that is still open, stops these for ever; the
    // child's alarm ends it.
    std::thread other([&] {
        ReceiveAll(module);
        Drain(module);
        Record(module);
        Expire(module);
    });
    other.join();
    QueueOneMore(promises);
    return bStruck ? EXIT_STRUCK : EXIT_CLEAN;
}

using Case = std::tuple<int, bool>;  // index of the road, whether for good

class AllocFaultsTest : public testing::TestWithParam<Case> {};

std::string NameOf(const testing::TestParamInfo<Case>& param) {
    return std::string(ALLOC_ROADS[std::get<0>(param.param)].pszName) +
           (std::get<1>(param.param) ? "_for_good" : "_once");
}

}  // namespace

TEST_P(AllocFaultsTest, NothingEndsAndNoLockStays) {
#if !TESTS_ALLOC_FAULTS
    GTEST_SKIP() << "the sanitizers' allocator cannot be made to fail";
#endif
    const AllocRoad& road = ALLOC_ROADS[std::get<0>(GetParam())];
    const bool bForGood = std::get<1>(GetParam());
    RoadPlace place;
    int nStatus = EXIT_STRUCK << 8;
    long nAt = g_options.nFirst;
    long nPoints = 0;

    for (; WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == EXIT_STRUCK;
         nAt += g_options.nStep * road.nSteps) {
        place.Reset();
        nStatus = place.InChild([&] { return RunUnder(road, nAt, bForGood, place.Shared()); });

        ASSERT_TRUE(WIFEXITED(nStatus)) << "signal " << WTERMSIG(nStatus) << " at n=" << nAt;
        ASSERT_NE(99, WEXITSTATUS(nStatus)) << "an exception escaped at n=" << nAt;
        ASSERT_EQ(std::vector<std::string>{}, place.Broken(-1, true)) << "at n=" << nAt;
        ASSERT_EQ(1, place.Shared().worksOn) << "no message goes in afterwards, n=" << nAt;
        ASSERT_LT(nAt, 100000);
        ++nPoints;
    }

    EXPECT_EQ(EXIT_CLEAN, WEXITSTATUS(nStatus));
    std::cout << "points: " << nPoints - 1 << "\n";
}

INSTANTIATE_TEST_SUITE_P(Every, AllocFaultsTest,
                         testing::Combine(testing::Range(0, 7), testing::Bool()), NameOf);
