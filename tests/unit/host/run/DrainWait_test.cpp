#include "host/run/DrainWait.h"

#include <functional>

#include "tests/unit/host/run/RunParts.h"

namespace {

class DrainWaitTest : public RunPartsTest {
protected:
    // fnTurn gets the number of the turn, from 1.
    DrainResult Wait(const std::function<void(int nTurn)>& fnTurn = {}) {
        return WaitUntilDrained(m_router, m_queue, m_journal, m_control,
                                [&](const std::string& strDoing) {
                                    EXPECT_EQ("waiting for the module", strDoing);
                                    ++m_nTurns;
                                    if (fnTurn) {
                                        fnTurn(m_nTurns);
                                    }
                                });
    }

    int m_nTurns = 0;
};

}  // namespace

TEST_F(DrainWaitTest, AnEmptyQueueIsDrainedAtOnce) {
    EXPECT_EQ(DRAINED, Wait());
    EXPECT_EQ(1, m_nTurns);
}

TEST_F(DrainWaitTest, ItWaitsUntilTheQueueIsEmpty) {
    AddRows(1);
    EXPECT_EQ(DRAINED, Wait([this](int nTurn) {
                  if (nTurn == 3) {
                      DbFile(m_options.ChannelDatabase()).Execute("delete from msgchennal");
                  }
              }));
    EXPECT_EQ(3, m_nTurns);
}

TEST_F(DrainWaitTest, ASignOfTheModulesWorkPutsTheLookOff) {
    EXPECT_EQ(DRAINED, Wait([this](int nTurn) {
                  if (nTurn <= 2) {
                      m_journal.Record(ModuleNoted{
                          ModuleRecord{NOTE_ANALYSED, "{}"}});  // at work at this moment
                  }
              }));
    EXPECT_LT(2, m_nTurns);
}

TEST_F(DrainWaitTest, ARunThatMustEndEndsTheWait) {
    AddRows(1);
    EXPECT_EQ(DRAIN_ENDED, Wait([this](int nTurn) {
                  if (nTurn == 2) {
                      m_control.EndAfter(0);
                  }
              }));
}

TEST_F(DrainWaitTest, AQueueThatCannotBeReadForLongEndsTheWait) {
    m_dir.WriteFile("data/db/tevchennaldb.db", std::string(4096, 'x'));
    EXPECT_EQ(DRAIN_UNREADABLE, Wait());
    EXPECT_EQ(40, m_nTurns);
}
