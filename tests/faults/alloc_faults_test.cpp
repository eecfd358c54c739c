// Every allocation on the roads of a message fails, once and for good from there on.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <string>
#include <thread>
#include <tuple>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/JsonReaders.h"
#include "tests/faults/AllocFaults.h"
#include "tests/faults/Options.h"
#include "tests/faults/Roads.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/trace/OtherConnection.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevMonIpcMsgHandler.h"
#include "tevmon/core/CTevMonIpcRecever.h"

namespace {

constexpr int EXIT_STRUCK = 7;
constexpr int EXIT_CLEAN = 0;

// Made beforehand: what fails is the module's, not the host's.
const std::string LAUNCHES =
    R"({"param":[{"grup":"cloudquery","context":"cloudad","path":"program","cmd":"bash a.sh"}]})";
// One operation for each handler, on paths that it takes.
std::string Operations() {
    // Watched by its text, in truth in the road's own directory: a write's file must be there.
    const std::string strWatched =
        "/etc/profile.d/../.." + std::filesystem::current_path().string() + "/program";
    return R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":"/etc/cron.d/a",)"
           R"("exe_path":"program","optertion":"create"},)"
           R"({"path":"fifo","exe_path":"program","optertion":"create"},)"
           R"({"path":"/etc/systemd/system/a.service","exe_path":"program","optertion":"create"},)"
           R"({"path":")" +
           strWatched +
           R"(","exe_path":"program","optertion":"write"},)"
           R"({"path":"/etc/cron.d/a","exe_path":"program","optertion":"rename"},)"
           R"({"path":"/etc/cron.d/a","exe_path":"program","optertion":"remove"}]})";
}
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

constexpr const char* EVENTS[HANDLERS] = {"CreateProcess", "FileCreate", "FileDelete",
                                          "FileModify",    "FileRename", "ProcessPipe",
                                          "AddAutoRuns"};

// How many queries each handler has posted.
void CountQueries(const FakeRouter& router, Promises& promises) {
    for (const SentMessage& message : router.Posts()) {
        for (size_t i = 0; i < HANDLERS; ++i) {
            if (message.strData.find(std::string("\"") + EVENTS[i] + "\"") != std::string::npos) {
                ++promises.queries[i];
            }
        }
    }
}

// What a child has before its allocations begin to fail: the objects, and a message of each kind.
struct Module {
    Module() {
        std::ofstream("program") << "a program";
        (void)mkfifo("fifo", 0600);
        // What the other roads queue is no message of a host: it would stay at the head.
        (void)OtherConnection("../data/db/tevchennaldb.db").Exec("delete from msgchennal");
        CMsgRouterHolder::Instance()->SetRouter(&router);
    }

    const std::string strOperations = Operations();
    FakeRouter router;
    CTevMonIpcRecever recever;
    OwnChannel channel;
    OwnCache cache;
};

struct AllocRoad {
    const char* pszName;
    void (*pfnPrepare)(Module& module);
    void (*pfnRun)(Module& module);
    long nQueries;   // that every handler posts where nothing fails
    bool bOwnCache;  // records into the module's own, not into the analysers'
    bool bFirstUse;  // opens the stores; one that could not be opened stays closed
    long nEach;      // after so many allocations
    long nSteps;     // a road of many like ones is tried more rarely; by --step=1 it is not
};

void Nothing(Module&) {}

void ReceiveAll(Module& module) {
    Receive(module.recever, 20002, LAUNCHES);
    Receive(module.recever, 20003, VERDICT);
}

void ReceiveBoth(Module& module) {
    Receive(module.recever, 20002, LAUNCHES);
    Receive(module.recever, 20002, module.strOperations);
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

// The first use of everything, and the second. A known verdict is 300 times the same.
constexpr long EACH = 1000000;
const AllocRoad ALLOC_ROADS[] = {
    {"receive_first", Nothing, ReceiveAll, 0, false, true, EACH, 1},
    {"receive", ReceiveAll, ReceiveBoth, 0, false, false, EACH, 1},
    {"drain_first", ReceiveBoth, Drain, 1, false, true, EACH, 1},
    {"drain", DrainOnceBefore, Drain, 2, false, false, EACH, 1},
    {"record", RecordOnceBefore, Record, 0, true, false, EACH, 1},
    {"record_known", Nothing, RecordKnown, 0, true, false, 100, 50},
    {"expiry", Nothing, Expire, 0, true, false, EACH, 1},
};

// Whether a verdict that is recorded now is found afterwards.
bool RecordsAgain(CTevCloudCachoMgr& cache, const char* pszKey) {
    CachoRecord found;
    return cache.Record(pszKey, 70, -1, 5, "detail") && cache.GetRecord(pszKey, found);
}

int RunUnder(const AllocRoad& road, long nAt, bool bForGood, Promises& promises) {
    Module module;
    road.pfnPrepare(module);
    AllocFaults::Arm(nAt, bForGood);
    road.pfnRun(module);
    const bool bStruck = AllocFaults::Disarm();
    CountQueries(module.router, promises);
    // A lock that is still held stops these for ever; the child's alarm ends it. Nor does the fault
    // cost the first message and the first verdict that come when there is memory again.
    std::thread other([&] {
        QueueOneMore(promises);
        // The road's own connection first: until then it may hold a lock that it could not let go.
        CTevCloudCachoMgr& analysers = *CTevCloudCachoMgr::Instance();
        const bool bOwn = road.bOwnCache && RecordsAgain(module.cache, "afterwards");
        const bool bAnalysers = RecordsAgain(analysers, "and again");
        promises.cacheWorksOn = (bOwn || !road.bOwnCache) && (bAnalysers || road.bFirstUse) ? 1 : 0;
        ReceiveAll(module);
        Drain(module);
        Record(module);
        Expire(module);
    });
    other.join();
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
         nAt += g_options.nStep * (nAt < road.nEach || g_options.nStep == 1 ? 1 : road.nSteps)) {
        place.Reset(g_options.nSeed);
        nStatus = place.InChild([&] { return RunUnder(road, nAt, bForGood, place.Shared()); });

        ASSERT_TRUE(WIFEXITED(nStatus)) << "signal " << WTERMSIG(nStatus) << " at n=" << nAt;
        ASSERT_NE(99, WEXITSTATUS(nStatus)) << "an exception escaped at n=" << nAt;
        ASSERT_EQ(std::vector<std::string>{}, place.Broken(-1, RoadPlace::LEFT_UNKNOWN))
            << "at n=" << nAt;
        ASSERT_EQ(1, place.Shared().worksOn) << "no message goes in afterwards, n=" << nAt;
        ASSERT_EQ(1, place.Shared().cacheWorksOn) << "no verdict goes in afterwards, n=" << nAt;
        ASSERT_LT(nAt, 100000);
        ++nPoints;
    }

    EXPECT_EQ(EXIT_CLEAN, WEXITSTATUS(nStatus));
    EXPECT_LT(1, nPoints) << "nothing failed";
    // The last run, where nothing failed any more, shows what the others were on the way to.
    size_t nReached = 0;
    for (size_t i = 0; i < HANDLERS; ++i) {
        EXPECT_EQ(road.nQueries, place.Shared().queries[i]) << EVENTS[i];
        nReached += road.nQueries > 0 && place.Shared().queries[i] == road.nQueries ? 1 : 0;
    }
    std::cout << "points: " << nPoints - 1;
    if (road.nQueries > 0) {
        std::cout << ", " << nReached << " of " << HANDLERS << " handlers reached";
    }
    std::cout << "\n";
}

// Each element of a message is queued for itself. In a child: the store is the process's.
namespace {

constexpr int EXIT_NONE_QUEUED = 1;
constexpr int EXIT_NOTHING_TRIED = 2;

int OneElementFails() {
    const std::string strBody = R"({"param":[{"grup":"cloudquery","context":"cloudad"},)"
                                R"({"grup":"cloudquery","context":"cloudfd"}]})";
    CTevChennalDB* pStore = CTevChennalDB::Instance();
    CHipsMsgHandler handler;
    std::string strReply;
    int32_t nStatus = 0;
    (void)handler.Run("", strBody, strReply, &nStatus);  // what is made once is made now
    Json::Value jsonRoot;
    AllocFaults::Arm(std::numeric_limits<long>::max(), false);
    (void)ParseJsonText(strBody, jsonRoot);
    (void)AllocFaults::Disarm();
    const long nParsing = AllocFaults::Calls();

    long nLost = 0;
    long nPoints = 0;
    for (bool bStruck = true; bStruck; ++nPoints) {
        (void)pStore->Clear();
        AllocFaults::Arm(nParsing + 1 + nPoints, false);
        (void)handler.Run("", strBody, strReply, &nStatus);
        bStruck = AllocFaults::Disarm();
        const int nQueued = pStore->Count();
        if (nQueued < 1) {
            return EXIT_NONE_QUEUED;
        }
        nLost += 2 - nQueued;
    }
    return nParsing > 10 && nPoints > 10 && nLost > 1 ? EXIT_CLEAN : EXIT_NOTHING_TRIED;
}

}  // namespace

TEST(AllocFaultsElementTest, AnElementThatFindsNoMemoryLeavesItsNeighbourQueued) {
#if !TESTS_ALLOC_FAULTS
    GTEST_SKIP() << "the sanitizers' allocator cannot be made to fail";
#endif
    RoadPlace place;
    place.Reset(g_options.nSeed);

    const int nStatus = place.InChild(OneElementFails);

    ASSERT_TRUE(WIFEXITED(nStatus));
    EXPECT_EQ(EXIT_CLEAN, WEXITSTATUS(nStatus));
}

INSTANTIATE_TEST_SUITE_P(Every, AllocFaultsTest,
                         testing::Combine(testing::Range(0, 7), testing::Bool()), NameOf);
