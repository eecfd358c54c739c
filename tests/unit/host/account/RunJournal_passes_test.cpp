#include "host/account/RunJournal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/host/CallingListener.h"
#include "tests/support/host/RunHappenings.h"

using testing::ElementsAre;

namespace {

class RunJournalPassesTest : public testing::Test {
protected:
    VerdictService m_service;
    RunJournal m_journal{m_service, {}, true};
};

}  // namespace

TEST_F(RunJournalPassesTest, APassHasItsOwnCountersAndTheRunAllOfThem) {
    std::vector<uint64_t> heard;
    CallingListener listener([&heard](const RunEvent& event) {
        if (const auto* pPass = std::get_if<PassEnded>(&event)) {
            heard.insert(heard.end(), {pPass->result.counters.nCentre, pPass->bDrained ? 1u : 0u});
        } else if (const auto* pEnded = std::get_if<RunEnded>(&event)) {
            heard.insert(heard.end(), {pEnded->total.counters.nCentre, pEnded->passes.size()});
        }
    });
    m_journal.AddListener(listener);
    m_journal.Record(CentreRecord{3, 6});
    m_journal.EndPass(true);
    m_journal.Record(CentreRecord{3, 6});
    m_journal.Record(CentreRecord{3, 6});
    m_journal.EndPass(false);
    m_journal.Record(CentreRecord{3, 6});
    EXPECT_EQ(1u, m_journal.PassCounters().nCentre);
    m_journal.End(RunEnd());

    EXPECT_THAT(heard, ElementsAre(1, 1, 2, 0, 4, 2));
}

TEST_F(RunJournalPassesTest, OfManyPassesTheFirstFewAreKeptAndAllAreCounted) {
    std::vector<uint64_t> kept;
    uint64_t nTotal = 0;
    CallingListener listener([&](const RunEvent& event) {
        if (const auto* pEnded = std::get_if<RunEnded>(&event)) {
            for (const PassResult& pass : pEnded->passes) {
                kept.push_back(pass.counters.nUnusable);
            }
            nTotal = pEnded->total.counters.nUnusable;
        }
    });
    m_journal.AddListener(listener);
    for (uint64_t nPass = 1; nPass <= 8; ++nPass) {
        for (uint64_t i = 0; i < nPass; ++i) {
            m_journal.Record(InputUnusable{"a", 0, "why"});
        }
        m_journal.EndPass(true);
    }
    m_journal.End(RunEnd());

    EXPECT_THAT(kept, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(36u, nTotal);
}

TEST_F(RunJournalPassesTest, TheRunHasEndedBeforeItsLastLossesAreAnnounced) {
    std::vector<std::string> heard;
    CallingListener listener([&](const RunEvent& event) {
        if (std::holds_alternative<RunEnding>(event)) {
            heard.emplace_back(m_journal.HasEnded() ? "ending, ended" : "ending");
        } else if (const auto* pDropped = std::get_if<EventsDropped>(&event)) {
            heard.push_back(
                std::string(pDropped->eReason == DROP_REFUSED ? "refused" : "unstored") +
                (m_journal.HasEnded() ? ", ended" : ""));
        }
    });
    m_journal.AddListener(listener);
    m_journal.Record(BatchSent{OneLaunch(1, "/bin/a")});
    m_journal.Record(BatchEnded{OneEvent(1), 1});
    m_journal.Record(BatchSent{OneLaunch(2, "/bin/a")});
    RunEnd end;
    end.queueDepth = 0;
    m_journal.End(end);

    EXPECT_THAT(heard, ElementsAre("ending", "refused, ended", "unstored, ended"));
}
