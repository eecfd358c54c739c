// SIGKILL in the place of the n-th I/O call, or half-way through its write, n rising until a run
// gets to its end; then the next start takes what is there.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <iostream>
#include <string>

#include "tests/faults/FaultVfs.h"
#include "tests/faults/Options.h"
#include "tests/faults/Roads.h"

namespace {

class KillTest : public testing::TestWithParam<const char*> {
protected:
    int RunUnder(const FaultPlan& plan, uint32_t nSeed) {
        return m_place.InChild([&] {
            FaultVfs::Arm(plan);
            m_road.pfnRun(m_place.Shared(), nSeed);
            return 0;
        });
    }

    // True when the run was killed, false when it got to its end first.
    bool OnePoint(const FaultPlan& plan, uint32_t nSeed, bool& bKilled) {
        m_place.Reset(nSeed);
        const int nStatus = RunUnder(plan, nSeed);
        bKilled = WIFSIGNALED(nStatus) && WTERMSIG(nStatus) == SIGKILL;
        if (!bKilled && (!WIFEXITED(nStatus) || WEXITSTATUS(nStatus) != 0)) {
            ADD_FAILURE() << "the run ended otherwise, status " << nStatus;
            return false;
        }
        // Checked before the next start and after it: either may be what loses something.
        EXPECT_EQ(std::vector<std::string>{}, m_place.Broken(1));
        const int nNext = m_place.InChild([&] {
            DrainAll(m_place.Shared());
            QueueOneMore(m_place.Shared());
            RecordOneMore(m_place.Shared());
            return 0;
        });
        EXPECT_EQ(0, nNext);
        EXPECT_EQ(std::vector<std::string>{}, m_place.Broken(1, RoadPlace::LEFT_NONE));
        EXPECT_EQ(1, m_place.Shared().worksOn);
        EXPECT_EQ(1, m_place.Shared().cacheWorksOn);
        return !HasFailure();
    }

    const Road& m_road = RoadOf(GetParam());
    RoadPlace m_place;
};

}  // namespace

TEST_P(KillTest, LosesNothingAcknowledgedAndRepeatsOneMessageAtMost) {
    long nKills = 0;
    uint32_t nSeed = g_options.nSeed;

    for (; nKills < g_options.nKills; ++nSeed) {
        FaultPlan plan;
        plan.eKind = nSeed % 3 == 2 ? FaultPlan::TORN_KILL : FaultPlan::KILL;
        bool bKilled = true;
        const long nBefore = nKills;
        for (plan.nAt = 1; bKilled && nKills < g_options.nKills; ++plan.nAt) {
            ASSERT_TRUE(OnePoint(plan, nSeed, bKilled))
                << "again by --seed=" << nSeed << ", n=" << plan.nAt << ", "
                << m_place.Shared().struck;
            nKills += bKilled ? 1 : 0;
        }
        ASSERT_TRUE(nKills > nBefore || plan.eKind == FaultPlan::TORN_KILL);
    }

    std::cout << "kills: " << nKills << ", seeds " << g_options.nSeed << " to " << nSeed - 1
              << "\n";
}

static std::string RoadName(const testing::TestParamInfo<const char*>& param) {
    return param.param;
}

INSTANTIATE_TEST_SUITE_P(In, KillTest,
                         testing::Values("burst", "drain", "burst_and_drain", "store_verdict",
                                         "record", "expiry", "create"),
                         RoadName);
