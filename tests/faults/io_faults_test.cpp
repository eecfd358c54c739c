// Every I/O call of every operation of the stores fails once, and fails for good from there on.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <iostream>
#include <string>
#include <tuple>

#include "tests/faults/FaultVfs.h"
#include "tests/faults/Options.h"
#include "tests/faults/Roads.h"

namespace {

constexpr int EXIT_STRUCK = 7;
constexpr int EXIT_CLEAN = 0;

struct FaultKind {
    const char* pszName;
    FaultPlan::Kind eKind;
};

constexpr FaultKind KINDS[] = {{"error", FaultPlan::FAIL},
                               {"full", FaultPlan::FULL},
                               {"short", FaultPlan::SHORT},
                               {"cantopen", FaultPlan::CANTOPEN},
                               {"unlock", FaultPlan::UNLOCK}};

using Case = std::tuple<int, int, bool>;  // index of the road, of the kind, whether for good

class IoFaultsTest : public testing::TestWithParam<Case> {};

std::string NameOf(const testing::TestParamInfo<Case>& info) {
    return std::string(ROADS[static_cast<size_t>(std::get<0>(info.param))].pszName) + "_" +
           KINDS[std::get<1>(info.param)].pszName +
           (std::get<2>(info.param) ? "_for_good" : "_once");
}

int RunUnder(const FaultPlan& plan, const Road& road, Promises& promises) {
    FaultVfs::Arm(plan);
    road.pfnRun(promises, g_options.nSeed);
    const bool bStruck = FaultVfs::Disarm();
    QueueOneMore(promises);
    RecordOneMore(promises);
    return bStruck ? EXIT_STRUCK : EXIT_CLEAN;
}

}  // namespace

TEST_P(IoFaultsTest, NothingAcknowledgedIsLostAndNothingEnds) {
    const Road& road = ROADS[static_cast<size_t>(std::get<0>(GetParam()))];
    FaultPlan plan;
    plan.eKind = KINDS[std::get<1>(GetParam())].eKind;
    plan.bForGood = std::get<2>(GetParam());
    // FetchAndRemove, which nobody calls, returns them after its commit.
    const bool bMayLose = plan.eKind == FaultPlan::UNLOCK && road.pszName == std::string("take");
    const auto eLeft = bMayLose ? RoadPlace::LEFT_UNKNOWN : RoadPlace::LEFT_ANY;
    RoadPlace place;
    int nStatus = EXIT_STRUCK << 8;

    for (plan.nAt = g_options.nFirst; WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == EXIT_STRUCK;
         ++plan.nAt) {
        place.Reset(g_options.nSeed);
        nStatus = place.InChild([&] { return RunUnder(plan, road, place.Shared()); });

        ASSERT_TRUE(WIFEXITED(nStatus)) << "signal " << WTERMSIG(nStatus) << " at n=" << plan.nAt;
        ASSERT_NE(99, WEXITSTATUS(nStatus)) << "an exception escaped at n=" << plan.nAt;
        ASSERT_EQ(std::vector<std::string>{}, place.Broken(-1, eLeft))
            << "at n=" << plan.nAt << ", " << place.Shared().struck;
        ASSERT_EQ(1, place.Shared().worksOn) << "no message goes in after the fault, n=" << plan.nAt
                                             << ", " << place.Shared().struck;
        ASSERT_EQ(1, place.Shared().cacheWorksOn)
            << "no verdict goes in after the fault, n=" << plan.nAt << ", "
            << place.Shared().struck;
        ASSERT_LT(plan.nAt, 100000);
    }

    EXPECT_EQ(EXIT_CLEAN, WEXITSTATUS(nStatus));
    const bool bOfWrites = plan.eKind == FaultPlan::FULL || plan.eKind == FaultPlan::SHORT;
    EXPECT_EQ(road.bWrites || !bOfWrites, plan.nAt > 2) << "nothing was struck";
    std::cout << "points: " << plan.nAt - 2 << "\n";
}

INSTANTIATE_TEST_SUITE_P(Every, IoFaultsTest,
                         testing::Combine(testing::Range(0, static_cast<int>(ROAD_COUNT)),
                                          testing::Range(0, 5), testing::Bool()),
                         NameOf);
