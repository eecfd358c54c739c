#include "host/run/JournalObservers.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "tests/support/host/CallingListener.h"
#include "tests/support/host/RunHappenings.h"

namespace {

// The numbers of what was lost and of records for the centre.
class NumberListener : public IRunListener {
public:
    void OnEvent(const RunEvent& event, int64_t /*tmWhen*/) override {
        if (const auto* pLost = std::get_if<LaunchesLost>(&event)) {
            heard.insert(heard.end(), {pLost->nLaunches, pLost->nTotal});
        } else if (const auto* pOverflow = std::get_if<FileQueueOverflowed>(&event)) {
            heard.insert(heard.end(), {pOverflow->nTimes, pOverflow->nTotal});
        } else if (const auto* pRecord = std::get_if<CentreRecord>(&event)) {
            heard.insert(heard.end(), {static_cast<uint64_t>(pRecord->nMsgType), pRecord->nBytes});
        }
    }
    std::vector<uint64_t> heard;
};

class JournalObserversTest : public testing::Test {
protected:
    JournalObserversTest() { m_journal.AddListener(m_listener); }

    VerdictService m_service;
    RunJournal m_journal{m_service, {}, false};
    std::vector<size_t> m_published;  // which kinds of events
    CallingListener m_listener{
        [this](const RunEvent& event) { m_published.push_back(event.index()); }};
};

}  // namespace

TEST_F(JournalObserversTest, EverythingThatASensorReportsIsAnEventOfItsOwn) {
    SensorObserver observer(m_journal);
    observer.OnLaunch(Started("/bin/a", "/bin/b"));
    observer.OnRepeat(Started("/bin/a", "/bin/b"));
    observer.OnUnresolved(LaunchEvent(), LaunchContext(), nullptr);
    observer.OnLost(1, 2);
    observer.OnCounters(LaunchCounters());
    observer.OnOperation(FileOperation());
    observer.OnOverflow(1, 2);
    observer.OnFileCounters(FileCounters());
    observer.OnNotice("text");

    EXPECT_EQ(9u, m_published.size());
    EXPECT_EQ(9u, std::set<size_t>(m_published.begin(), m_published.end()).size());
}

TEST_F(JournalObserversTest, NumbersKeepTheirPlaces) {
    NumberListener numbers;
    m_journal.AddListener(numbers);
    SensorObserver observer(m_journal);
    observer.OnLost(1, 2);
    observer.OnOverflow(3, 4);
    LaunchCounters launches;
    launches.nCaptured = 5;
    observer.OnCounters(launches);
    FileCounters files;
    files.nCaptured = 6;
    observer.OnFileCounters(files);
    ModuleObserver module(m_journal);
    EXPECT_EQ("", module.OnMessage(Guid(), 20300, "record"));

    EXPECT_EQ((std::vector<uint64_t>{1, 2, 3, 4, 20300, 6}), numbers.heard);
    EXPECT_EQ(5u, m_journal.CurrentBalance(false).launches.nCaptured);
    EXPECT_EQ(6u, m_journal.CurrentBalance(false).files.nCaptured);
}

TEST_F(JournalObserversTest, WhatTheModuleSaysAndSendsIsCounted) {
    ModuleObserver observer(m_journal);
    observer.OnQuery(LaunchQuery("/bin/a"), QUERY_ANSWERED, Verdict());
    observer.OnModuleNote({NOTE_ANALYSED, "{}"});
    observer.OnAnswerEnded("key", 70, true);
    observer.OnModuleLine({4, "text", "Run"});
    observer.OnPrinted("text");
    EXPECT_EQ("", observer.OnMessage(Guid(), 20300, "record"));

    EXPECT_EQ(7u, m_published.size());  // and which message is analysed
    EXPECT_EQ(7u, std::set<size_t>(m_published.begin(), m_published.end()).size());
    const RunCounters counters = m_journal.PassCounters();
    EXPECT_EQ(1u, counters.nAnswers);
    EXPECT_EQ(1u, counters.nAnalysed);
    EXPECT_EQ(1u, counters.nCentre);
}
