#include "host/kernel/connector/ConnectorFeed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <limits>

#include "tests/support/Event.h"
#include "tests/support/kernel/FakeKernel.h"
#include "tests/unit/host/kernel/connector/ConnectorBytes.h"

using namespace connector_bytes;
using testing::ElementsAre;

namespace {

class ConnectorFeedTest : public testing::Test {
protected:
    void Open(const char* pszRelease) {
        std::string strError;
        m_kernel.strRelease = pszRelease;
        ASSERT_TRUE(m_feed.Open(strError)) << strError;
    }
    bool Receive() {
        m_events.clear();
        return m_feed.Receive(m_events);
    }
    std::vector<uint32_t> Pids() const { return PidsOf(m_events); }  // of the last Receive

    FakeKernel m_kernel;
    ConnectorFeed m_feed;
    std::vector<ConnectorEvent> m_events;
};

}  // namespace

TEST_F(ConnectorFeedTest, WhatTwoSocketsHaveIsGivenInTheOrderOfTime) {
    Open("6.6.0");
    m_kernel.Tell({{0, {{At(20, Exec(2))}, {At(40, Exec(4))}}},
                   {1, {{At(10, Fork(9, 1))}, {At(30, Fork(2, 3))}, {At(50, Exit(5))}}}},
                  {});

    EXPECT_FALSE(Receive());

    EXPECT_THAT(Pids(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(LAUNCH_KIND_FORK, m_events[2].eKind);
    EXPECT_EQ(30u, m_events[2].nNanos);
}

TEST_F(ConnectorFeedTest, OfOneMomentACopyComesFirstAndItsEndLast) {
    Open("6.6.0");
    m_kernel.Tell({{0, {{Exec(2)}}}, {1, {{Exit(3)}, {Fork(9, 1)}}}}, {});

    EXPECT_FALSE(Receive());

    EXPECT_THAT(Pids(), ElementsAre(1, 2, 3));
}

TEST_F(ConnectorFeedTest, OneSocketIsGivenAsItCame) {
    Open("6.1.0");
    m_kernel.Tell({{0, {{At(10, Exec(2))}, {At(20, Fork(2, 3))}, {At(30, Exec(2))}}}}, {});

    EXPECT_FALSE(Receive());

    EXPECT_THAT(Pids(), ElementsAre(2, 3, 2));
    EXPECT_EQ(1u, m_kernel.Requests().size());
}

// Its cause may be in the socket that was read first, since.
TEST_F(ConnectorFeedTest, WhatIsYoungerThanTheLookWaitsForTheNext) {
    Open("6.6.0");
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t nSoon = static_cast<uint64_t>(now.tv_sec) * 1000000000 +
                           static_cast<uint64_t>(now.tv_nsec) + 300000000;
    m_kernel.Tell(
        {{0, {{At(1, Exec(1))}}}, {1, {{At(nSoon, Fork(9, 2))}, {At(nSoon * 2, Fork(9, 3))}}}}, {});
    EXPECT_FALSE(Receive());
    EXPECT_THAT(Pids(), ElementsAre(1));
    EXPECT_TRUE(m_feed.IsHolding());

    m_kernel.Tell({{0, {{At(nSoon - 1, Exec(9))}}}}, {});
    std::vector<ConnectorEvent> all;
    EXPECT_TRUE(Eventually([&] {
        EXPECT_FALSE(m_feed.Receive(all));
        return all.size() == 2;
    }));

    EXPECT_EQ(9u, all[0].nPid);
    EXPECT_EQ(2u, all[1].nPid);
    EXPECT_TRUE(m_feed.IsHolding());  // the third is of far ahead
}

TEST_F(ConnectorFeedTest, WhereStartsStillWaitNothingYoungerThanThoseReadIsGiven) {
    Open("6.6.0");
    std::vector<FakeKernel::Told> starts;
    for (uint32_t i = 1; i <= 600; ++i) {
        starts.push_back({At(i, Exec(i))});
    }
    m_kernel.Tell({{0, starts}, {1, {{At(2, Exit(700))}, {At(550, Exit(701))}}}}, {});

    EXPECT_TRUE(Receive());
    ASSERT_EQ(513u, m_events.size());
    EXPECT_EQ(700u, m_events[2].nPid);
    EXPECT_EQ(512u, m_events.back().nPid);
    EXPECT_FALSE(Receive());
    ASSERT_EQ(89u, m_events.size());
    EXPECT_EQ(701u, m_events[38].nPid);
    EXPECT_FALSE(m_feed.IsHolding());
}

TEST_F(ConnectorFeedTest, DropsAreThoseOfTheirSocket) {
    Open("6.6.0");
    m_kernel.drops = {5, 7};
    m_kernel.Tell({{0, {{"", ENOBUFS}}}, {1, {{"", ENOBUFS}}}}, {});

    EXPECT_FALSE(Receive());

    EXPECT_EQ(5u, m_feed.DroppedStarts());
    EXPECT_EQ(7u, m_feed.DroppedLives());
}
