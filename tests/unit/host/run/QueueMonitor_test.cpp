#include "host/run/QueueMonitor.h"

#include <gmock/gmock.h>

#include "tests/support/host/CallingListener.h"
#include "tests/unit/host/run/RunParts.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class QueueMonitorTest : public RunPartsTest {
protected:
    QueueMonitorTest() : RunPartsTest(10) { m_journal.AddListener(m_listener); }

    std::vector<QueueState> m_states;
    CallingListener m_listener{[this](const RunEvent& event) {
        if (const auto* pChanged = std::get_if<QueueChanged>(&event)) {
            m_states.push_back(pChanged->load.eState);
        }
    }};
};

}  // namespace

TEST_F(QueueMonitorTest, WhatAnEarlierRunLeftTakesRoom) {
    AddRows(9);
    m_queue.Begin();
    EXPECT_EQ(9u, m_queue.Waiting());
    EXPECT_TRUE(m_queue.Limiter().Take(1, 2));
    EXPECT_FALSE(m_queue.Limiter().Take(1, 2));
}

TEST_F(QueueMonitorTest, AStateThatChangedIsReportedOnce) {
    AddRows(8);
    m_queue.Begin();
    m_queue.Turn();  // looks into the database; not again so soon
    EXPECT_THAT(m_states, IsEmpty());
    ASSERT_TRUE(m_queue.Limiter().Take(1, 2));
    m_queue.Turn();
    m_queue.Turn();
    EXPECT_THAT(m_states, ElementsAre(QUEUE_HIGH));
}

TEST_F(QueueMonitorTest, WhatTheModuleBeganWithLeavesRoomInEachPass) {
    m_queue.Begin();
    m_queue.Turn();
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(m_queue.Limiter().Take(1, 2));
        m_queue.Limiter().Stored(1);
    }
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, "{}"}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, "{}"}});
    m_queue.Turn();
    EXPECT_EQ(2u, m_queue.Waiting());
    m_journal.EndPass(true);  // the journal counts from 0 again
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, "{}"}});
    m_queue.Turn();
    EXPECT_EQ(1u, m_queue.Waiting());
}

TEST_F(QueueMonitorTest, TheFirstTurnSetsTheCountRightByTheDatabase) {
    m_queue.Begin();
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(m_queue.Limiter().Take(1, 2));
        m_queue.Limiter().Stored(1);  // and never was
    }
    AddRows(1);
    m_queue.Turn();
    EXPECT_EQ(1u, m_queue.Waiting());
}

TEST_F(QueueMonitorTest, AQueueThatCannotBeReadHasNoDepthAndKeepsItsCount) {
    ASSERT_TRUE(m_queue.Limiter().Take(1, 2));
    m_dir.WriteFile("data/db/tevchennaldb.db", std::string(4096, 'x'));
    EXPECT_FALSE(m_queue.Depth());
    m_queue.Turn();
    EXPECT_EQ(1u, m_queue.Waiting());
}
