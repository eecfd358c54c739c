#include "host/run/EventDelivery.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "tests/unit/host/run/RunParts.h"

using testing::HasSubstr;

namespace {

// So many batches, then the end; after Stop the end at once.
class FewBatches : public IEventSource {
public:
    explicit FewBatches(int nBatches) : m_nLeft(nBatches) {}
    bool Start(std::string&) override { return true; }
    SourceResult Next(EventBatch& batch, std::chrono::milliseconds) override {
        if (m_nLeft == 0) {
            return SOURCE_END;
        }
        --m_nLeft;
        batch.strBody = "{}";
        batch.nNumber = ++m_nNumber;
        batch.nEvents = 3;
        return SOURCE_BATCH;
    }
    void Stop() override {
        ++m_nStops;
        m_nLeft = 0;
    }
    SourceCounters Counters() const override { return {m_nNumber, 3 * m_nNumber, 0}; }
    std::string Name() const override { return "few"; }

    int m_nLeft;
    int m_nStops = 0;
    uint64_t m_nNumber = 0;
};

class EventDeliveryTest : public RunPartsTest {
protected:
    using RunPartsTest::RunPartsTest;

    void Deliver(IEventSource& source, bool bRefuseWhenFull = false) {
        EventDelivery delivery(m_router, m_queue, m_journal, m_control, bRefuseWhenFull);
        delivery.DeliverAll(source, [this](const std::string& strDoing) {
            m_doings.insert(strDoing);
            if (fnTurn) {
                fnTurn();
            }
        });
        delivery.WaitForRouter();
        m_router.Close();
    }

    std::set<std::string> m_doings;
    std::function<void()> fnTurn;
};

class EventDeliveryFullTest : public EventDeliveryTest {
protected:
    EventDeliveryFullTest() : EventDeliveryTest(2) {}
};

}  // namespace

TEST_F(EventDeliveryTest, EachBatchReachesTheModuleAndIsReported) {
    FewBatches source(5);
    Deliver(source);
    EXPECT_EQ(5, m_receiver.m_nCalls);
    EXPECT_EQ(5u, m_journal.PassCounters().nMessages);
    EXPECT_EQ(15u, m_journal.PassCounters().nEvents);
    EXPECT_EQ(5u, m_queue.Waiting());
    EXPECT_EQ(std::set<std::string>{"delivering"}, m_doings);
    EXPECT_EQ(1, source.m_nStops);
}

TEST_F(EventDeliveryTest, ARunThatMustEndStopsTheSourceOnce) {
    FewBatches source(5);
    m_control.EndAfter(0);
    Deliver(source);
    EXPECT_EQ(0, m_receiver.m_nCalls);
    EXPECT_EQ(2, source.m_nStops);  // when the run had to end, and after the last batch
}

TEST_F(EventDeliveryTest, AMessageThatNobodyReceivesGivesItsRoomBack) {
    (void)m_router.UnregisterReceiver(MSG_TYPE_HIPS_EVENT);
    FewBatches source(2);
    Deliver(source);
    EXPECT_EQ(2u, m_journal.PassCounters().nNotDelivered);
    EXPECT_EQ(0u, m_journal.PassCounters().nMessages);
    EXPECT_EQ(0u, m_queue.Waiting());
}

TEST_F(EventDeliveryFullTest, WhatFindsNoRoomIsRefusedWithItsEvents) {
    FewBatches source(5);
    Deliver(source, true);
    EXPECT_EQ(2, m_receiver.m_nCalls);
    EXPECT_EQ(3u, m_journal.PassCounters().nNotDelivered);
    EXPECT_EQ(3u, m_queue.Limiter().Load().nRefusedMessages);
    EXPECT_EQ(9u, m_queue.Limiter().Load().nRefusedEvents);
}

TEST_F(EventDeliveryFullTest, ASourceThatCanWaitWaitsForRoom) {
    FewBatches source(3);
    fnTurn = [this] { m_queue.Limiter().Analysed(); };  // the module begins with one message
    Deliver(source);
    EXPECT_EQ(3, m_receiver.m_nCalls);
    EXPECT_EQ(0u, m_queue.Limiter().Load().nRefusedMessages);
}

TEST_F(EventDeliveryFullTest, WhatWaitsForRoomIsNotSentAndNobodyRefusedItWhenTheRunEnds) {
    FewBatches source(3);
    uint64_t nUnsent = 0;
    fnTurn = [&] {
        nUnsent = std::max(nUnsent, m_journal.CurrentBalance(false).nUnsent);
        if (m_doings.count("waiting for room in the queue") != 0) {
            m_control.EndAfter(0);
        }
    };
    Deliver(source);

    EXPECT_EQ(3u, nUnsent);
    EXPECT_EQ(2, m_receiver.m_nCalls);
    const Balance balance = m_journal.CurrentBalance(true);
    EXPECT_EQ(9u, balance.input);
    EXPECT_EQ(6u, balance.Delivered());
    EXPECT_EQ(3u, balance.nUnsent);
    EXPECT_EQ(0u, balance.events.nRefused);
    EXPECT_EQ(0u, m_queue.Limiter().Load().nRefusedMessages);
    EXPECT_EQ(1u, m_journal.PassCounters().nNotDelivered);
}
