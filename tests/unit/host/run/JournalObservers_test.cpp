#include "host/run/JournalObservers.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/support/host/RunHappenings.h"

namespace {

class IndexListener : public IRunListener {
public:
    void OnEvent(const RunEvent& event, int64_t /*tmWhen*/) override {
        heard.push_back(event.index());
    }
    std::vector<size_t> heard;
};

class JournalObserversTest : public testing::Test {
protected:
    JournalObserversTest() { m_journal.AddListener(m_listener); }

    VerdictService m_service;
    RunJournal m_journal{m_service, {}, false};
    IndexListener m_listener;
};

}  // namespace

TEST_F(JournalObserversTest, EverythingThatASensorReportsIsAnEventOfItsOwn) {
    SensorObserver observer(m_journal);
    observer.OnLaunch(Started("/bin/a", "/bin/b"));
    observer.OnUnresolved(LaunchEvent());
    observer.OnLost(1, 2);
    observer.OnCounters(LaunchCounters());
    observer.OnOperation(FileOperation());
    observer.OnOverflow(1, 2);
    observer.OnFileCounters(FileCounters());
    observer.OnNotice("text");
    observer.OnBatch(OneEvent(1), {});  // recorded where they are delivered
    observer.OnOperations(OneEvent(1), {});

    EXPECT_EQ(8u, m_listener.heard.size());
    EXPECT_EQ(8u, std::set<size_t>(m_listener.heard.begin(), m_listener.heard.end()).size());
}

TEST_F(JournalObserversTest, WhatTheModuleSaysAndSendsIsCounted) {
    ModuleObserver observer(m_journal);
    observer.OnQuery(LaunchQuery("/bin/a"), QUERY_ANSWERED, Verdict());
    observer.OnModuleNote({NOTE_ANALYSED, "{}"});
    EXPECT_EQ("", observer.OnMessage(Guid(), 20300, "record"));

    EXPECT_EQ(3u, m_listener.heard.size());
    const RunCounters counters = m_journal.PassCounters();
    EXPECT_EQ(1u, counters.nAnswers);
    EXPECT_EQ(1u, counters.nAnalysed);
    EXPECT_EQ(1u, counters.nCentre);
}
