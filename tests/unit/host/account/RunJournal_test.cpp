#include "host/account/RunJournal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <new>

#include "tests/support/TestDir.h"
#include "tests/support/host/CallingListener.h"
#include "tests/support/host/RunHappenings.h"

using testing::ElementsAre;

namespace {

// The names of what is published.
class NamingListener : public IRunListener {
public:
    void OnEvent(const RunEvent& event, int64_t /*tmWhen*/) override {
        if (const auto* pJudged = std::get_if<ProgramJudged>(&event)) {
            heard.push_back("judged " + pJudged->strSubject + " by " + pJudged->strBy + " " +
                            std::to_string(pJudged->verdict.nLevel) +
                            (pJudged->bCached ? " cached" : ""));
        } else if (const auto* pDropped = std::get_if<EventsDropped>(&event)) {
            heard.push_back("dropped " + std::to_string(pDropped->nEvents) + " of " +
                            std::to_string(pDropped->nTotal));
        } else if (std::holds_alternative<QueryReceived>(event)) {
            heard.push_back("query");
        } else if (std::holds_alternative<RunEnding>(event)) {
            heard.push_back("ending");
        } else if (const auto* pEnded = std::get_if<RunEnded>(&event)) {
            heard.push_back("ended, unexplained " + std::to_string(pEnded->balance.Unexplained()));
        }
    }
    std::vector<std::string> heard;
};

class RunJournalTest : public testing::Test {
protected:
    RunJournalTest() { m_journal.AddListener(m_listener); }

    const TestDir m_dir;
    VerdictService m_service;
    RunJournal m_journal{m_service, {}, true};
    NamingListener m_listener;
};

}  // namespace

TEST_F(RunJournalTest, AProgramIsJudgedAfterItsQueryAndAgainWhereTheModuleKnowsIt) {
    const std::string strProgram = m_dir.WriteFile("program", "x", 0755);
    m_journal.Record(LaunchReported{Started(strProgram, "/bin/shell")});
    m_journal.Record(QueryReceived{LaunchQuery(strProgram), QUERY_ANSWERED, Verdict{70, "", ""}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_CACHED, strProgram, EXPECTED_LAUNCH}});

    EXPECT_THAT(m_listener.heard, ElementsAre("query", "judged " + strProgram + " by /bin/shell 70",
                                              "judged " + strProgram + " by /bin/shell 70 cached"));
}

TEST_F(RunJournalTest, WithoutJudgementsAQueryIsNoMoreThanAQuery) {
    RunJournal journal(m_service, {}, false);
    journal.AddListener(m_listener);
    journal.Record(QueryReceived{LaunchQuery("/bin/a"), QUERY_ANSWERED, Verdict{70, "", ""}});
    journal.Record(ModuleNoted{ModuleRecord{NOTE_CACHED, "/bin/a", EXPECTED_LAUNCH}});

    EXPECT_THAT(m_listener.heard, ElementsAre("query"));
}

TEST_F(RunJournalTest, DroppedEventsAreAnnouncedOnceAndBeforeTheEnd) {
    m_journal.Record(BatchSent{OneLaunch(1, "/bin/a")});
    m_journal.Record(BatchEnded{OneEvent(1), 1});
    m_journal.Progress("delivering");
    m_journal.Progress("delivering");
    m_journal.Record(BatchSent{OneLaunch(2, "/bin/a")});
    m_journal.Record(BatchSent{OneLaunch(3, "/bin/a")});
    RunEnd end;
    end.queueDepth = 0;
    m_journal.End(end);

    EXPECT_THAT(m_listener.heard,
                ElementsAre("dropped 1 of 1", "ending", "dropped 2 of 2", "ended, unexplained 3"));
}

TEST_F(RunJournalTest, QueriesAreCountedByFateLevelAndPackage) {
    const std::string strProgram = m_dir.WriteFile("program", "12345", 0755);

    m_journal.Record(QueryReceived{LaunchQuery(strProgram), QUERY_ANSWERED,
                                   Verdict{10, "packages", "coreutils"}});
    m_journal.Record(
        QueryReceived{LaunchQuery(strProgram), QUERY_KNOWN, Verdict{10, "packages", "coreutils"}});
    m_journal.Record(QueryReceived{LaunchQuery("/gone"), QUERY_NO_KEY, Verdict{}});
    m_journal.Record(QueryReceived{LaunchQuery("/gone"), QUERY_UNREADABLE, Verdict{}});
    m_journal.Record(QueryReceived{LaunchQuery("/gone"), QUERY_NOT_DELIVERED, Verdict{}});

    RunCounters counters = m_journal.PassCounters();
    EXPECT_EQ(5u, counters.nQueries);
    EXPECT_EQ(1u, counters.nAnswers);
    EXPECT_EQ(1u, counters.nKnown);
    EXPECT_EQ(1u, counters.nNoKey);
    EXPECT_EQ(2u, counters.nLost);
    EXPECT_EQ(10u, counters.nHashedBytes);
    EXPECT_EQ(1u, counters.answersByLevel[10]);
    EXPECT_EQ(2u, counters.queriesByLevel[10]);
    EXPECT_EQ(2u, counters.queriesByPackage["coreutils"]);
}

TEST_F(RunJournalTest, NotesOfTheModuleAreCounted) {
    const std::string strProgram = m_dir.WriteFile("program", "12345", 0755);

    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, "", EXPECTED_NONE}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_CACHED, strProgram, EXPECTED_LAUNCH}});
    m_journal.Record(ModuleNoted{
        ModuleRecord{NOTE_CACHED, strProgram, EXPECTED_FILE}});  // a touched file was not hashed
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_STAT_FAILED, "/a", EXPECTED_LAUNCH}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_UNREADABLE, "/b", EXPECTED_LAUNCH}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_NOT_SENT, "", EXPECTED_NONE}});

    const RunCounters counters = m_journal.PassCounters();
    EXPECT_EQ(1u, counters.nAnalysed);
    EXPECT_EQ(2u, counters.nCached);
    EXPECT_EQ(5u, counters.nHashedBytes);
    EXPECT_EQ(1u, counters.nStatFailed);
    EXPECT_EQ(1u, counters.nUnreadable);
    EXPECT_EQ(1u, counters.nNotSent);
}

TEST_F(RunJournalTest, WhatIsOnItsWayIsUnexplainedOnlyAtTheEnd) {
    LaunchCounters counters;
    counters.nCaptured = 3;
    counters.nReported = 1;
    m_journal.Record(counters);
    const EventBatch batch = OneLaunch(1, m_dir.WriteFile("a", "x", 0755));
    m_journal.Record(BatchSent{batch});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, batch.strBody}});

    EXPECT_EQ(0u, m_journal.CurrentBalance(false).Unexplained());
    EXPECT_EQ(3u, m_journal.CurrentBalance(true).Unexplained());  // two launches and one event
}

TEST_F(RunJournalTest, ACleanRunOfBothKindsLeavesNothingUnexplained) {
    const std::string strProgram = m_dir.WriteFile("a", "x", 0755);
    LaunchCounters launches;
    launches.nCaptured = launches.nReported = 1;
    m_journal.Record(launches);
    FileCounters files;
    files.nCaptured = 3;
    files.nUnwatched = 1;
    files.nReported = 2;
    m_journal.Record(files);
    const EventBatch batch = OneLaunch(1, strProgram);
    m_journal.Record(BatchSent{batch});
    EventBatch interesting = OneEvent(2);
    interesting.strBody = FileMessage("remove", "/etc/cron.d/x", strProgram);
    m_journal.Record(BatchSent{interesting});
    EventBatch boring = OneEvent(3);
    boring.strBody = FileMessage("write", "/tmp/x", strProgram);
    m_journal.Record(BatchSent{boring});

    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, batch.strBody}});
    m_journal.Record(
        QueryReceived{LaunchQuery(strProgram), QUERY_ANSWERED, Verdict{10, "packages", "x"}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, interesting.strBody}});
    EXPECT_EQ(3u, m_journal.CurrentBalance(true).Delivered());
    EXPECT_EQ(1u, m_journal.CurrentBalance(true).Unexplained());
    m_journal.Record(
        ModuleNoted{ModuleRecord{NOTE_CACHED, "/etc/cron.d/x", EXPECTED_FILE, "remove"}});
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, boring.strBody}});

    EXPECT_EQ(0u, m_journal.CurrentBalance(true).Unexplained());
    EXPECT_EQ(1u, m_journal.CurrentBalance(true).events.nIgnored);
}

TEST_F(RunJournalTest, AFileOperationThatWasNeverDeliveredIsUnexplained) {
    FileCounters files;
    files.nCaptured = files.nReported = 1;
    m_journal.Record(files);

    EXPECT_EQ(1u, m_journal.CurrentBalance(false).Unexplained());
}

TEST_F(RunJournalTest, NumbersThatDoNotAddUpAreUnexplained) {
    LaunchCounters counters;
    counters.nCaptured = 1;
    counters.nReported = 2;
    m_journal.Record(counters);

    EXPECT_EQ(3u,
              m_journal.CurrentBalance(false).Unexplained());  // one reported twice, two not sent
}

TEST_F(RunJournalTest, AMessageThatIsNotInTheQueueAtTheEndWasNotStored) {
    LaunchCounters counters;
    counters.nCaptured = counters.nReported = 1;
    m_journal.Record(counters);
    m_journal.Record(BatchSent{OneLaunch(1, "/bin/a")});
    RunEnd end;
    end.queueDepth = 0;

    m_journal.End(end);

    EXPECT_EQ(1u, m_journal.CurrentBalance(true).events.nNotStored);
    EXPECT_EQ(0u, m_journal.CurrentBalance(true).Unexplained());
}

TEST_F(RunJournalTest, ARefusedMessageIsExplained) {
    LaunchCounters counters;
    counters.nCaptured = counters.nReported = 1;
    m_journal.Record(counters);
    m_journal.Record(BatchSent{OneLaunch(1, "/bin/a")});
    m_journal.Record(BatchEnded{OneEvent(1), 1});

    EXPECT_EQ(1u, m_journal.CurrentBalance(true).events.nRefused);
    EXPECT_EQ(0u, m_journal.CurrentBalance(true).Unexplained());
}

TEST_F(RunJournalTest, WithoutSensorsWhatWasReportedIsTheInput) {
    RunJournal journal(m_service, {}, false);
    const std::string strProgram = m_dir.WriteFile("a", "x", 0755);
    const EventBatch batch = OneLaunch(1, strProgram);
    journal.Record(BatchTaken{batch, 1});
    EXPECT_EQ(1u, journal.CurrentBalance(false).nUnsent);
    EXPECT_EQ(0u, journal.CurrentBalance(false).Delivered());
    journal.Record(BatchSent{batch});
    EXPECT_EQ(0u, journal.CurrentBalance(false).nUnsent);
    journal.Record(BatchEnded{batch, 0});
    EXPECT_EQ(1u, journal.CurrentBalance(false).input);
    EXPECT_EQ(1u, journal.CurrentBalance(false).Reported());

    journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, batch.strBody}});
    EXPECT_EQ(1u, journal.CurrentBalance(true).Unexplained());
    journal.Record(QueryReceived{LaunchQuery(strProgram), QUERY_ANSWERED, Verdict()});

    EXPECT_EQ(0u, journal.CurrentBalance(true).Unexplained());
    EXPECT_EQ(std::nullopt, m_journal.CurrentBalance(true).input);
}

TEST_F(RunJournalTest, WhatTheDeliveryTookAndForgotIsUnexplainedAtTheEnd) {
    RunJournal journal(m_service, {}, false);
    journal.Record(BatchTaken{OneEvent(1), 1});
    EXPECT_EQ(0u, journal.CurrentBalance(false).Unexplained());  // it waits for room
    EXPECT_EQ(1u, journal.CurrentBalance(true).Unexplained());
    journal.Record(BatchUnsent{OneEvent(1)});
    EXPECT_EQ(1u, journal.CurrentBalance(true).nUnsent);
    EXPECT_EQ(0u, journal.CurrentBalance(true).Unexplained());
}

TEST_F(RunJournalTest, OfAWatchABatchMayBeInHandAndNoMore) {
    RunJournal journal(m_service, {}, true, 2);
    FileCounters files;
    files.nCaptured = files.nReported = 2;
    journal.Record(files);
    EXPECT_EQ(0u, journal.CurrentBalance(false).Unexplained());
    files.nCaptured = files.nReported = 3;
    journal.Record(files);
    EXPECT_EQ(3u, journal.CurrentBalance(false).Unexplained());
}

// The source's own count is another one than that of what was taken from it.
TEST_F(RunJournalTest, WhatASourceHandedOutAndNobodyTookIsUnexplained) {
    RunJournal journal(m_service, {}, false);
    journal.BeginPass({1, 2, "batch", "walk"});
    journal.Record(BatchTaken{OneEvent(1), 1});
    journal.Record(BatchUnsent{OneEvent(1)});
    journal.EndPass(false);
    EXPECT_EQ(0u, journal.CurrentBalance(true).Unexplained());
    journal.BeginPass({2, 2, "batch", "walk"});
    journal.Record(BatchTaken{OneEvent(2), 3});

    journal.Record(BatchUnsent{OneEvent(2)});

    EXPECT_EQ(4u, journal.CurrentBalance(true).input);
    EXPECT_EQ(2u, journal.CurrentBalance(true).nUnsent);
    EXPECT_EQ(2u, journal.CurrentBalance(true).Unexplained());
}

TEST_F(RunJournalTest, WhatAListenerHasNoMemoryForIsInTheBooksAllTheSame) {
    RunJournal journal(m_service, {}, false);
    CallingListener listener([](const RunEvent&) { throw std::bad_alloc(); });
    const std::string strProgram = m_dir.WriteFile("a", "x", 0755);
    const EventBatch batch = OneLaunch(1, strProgram);
    journal.Record(BatchTaken{batch, 1});
    journal.Record(BatchSent{batch});
    journal.AddListener(listener);

    EXPECT_THROW(journal.Record(ModuleNoted{ModuleRecord{NOTE_ANALYSED, batch.strBody}}),
                 std::bad_alloc);
    EXPECT_THROW(journal.Record(QueryReceived{LaunchQuery(strProgram), QUERY_ANSWERED, Verdict()}),
                 std::bad_alloc);

    EXPECT_EQ(1u, journal.CurrentBalance(true).events.nQueried);
    EXPECT_EQ(0u, journal.CurrentBalance(true).Unexplained());
}

TEST_F(RunJournalTest, WithAQueueThatCannotBeReadNothingIsCalledUnstored) {
    m_journal.Begin("module", 2);
    m_journal.Record(BatchSent{OneLaunch(1, "/bin/a")});
    m_journal.End(RunEnd());

    const LedgerState events = m_journal.CurrentBalance(true).events;
    EXPECT_EQ(1u, events.nWaiting);
    EXPECT_EQ(0u, events.nNotStored);
    EXPECT_EQ(2u, events.nEarlierWaiting);
}

TEST_F(RunJournalTest, EachSkipEndsItsExpectedQueryInItsOwnWay) {
    const std::string strProgram = m_dir.WriteFile("a", "x", 0755);
    m_journal.Record(ModuleNoted{ModuleRecord{
        NOTE_ANALYSED, event_message::ProcessCreations(std::vector<std::string>(7, strProgram))}});
    for (const ModuleNote eNote : {NOTE_CACHED, NOTE_UNREADABLE, NOTE_UNREADABLE, NOTE_STAT_FAILED,
                                   NOTE_STAT_FAILED, NOTE_STAT_FAILED}) {
        m_journal.Record(ModuleNoted{ModuleRecord{eNote, strProgram, EXPECTED_LAUNCH}});
    }
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_NOT_SENT, ""}});  // which one, nobody knows

    const LedgerState events = m_journal.CurrentBalance(false).events;
    EXPECT_EQ(1u, events.nCached);
    EXPECT_EQ(2u, events.nUnreadable);
    EXPECT_EQ(3u, events.nStatFailed);
    EXPECT_EQ(1u, events.nMissing);
    EXPECT_EQ(0u, events.nUnmatched);
}

// A name may lead anywhere by the time that its query comes.
TEST_F(RunJournalTest, OnlyARegularFilesSizeIsHashed) {
    CloudQuery query = LaunchQuery(m_dir.WriteFile("program", "123", 0755));
    query.strFunc = "cloudfs";
    m_journal.Record(QueryReceived{query, QUERY_ANSWERED, Verdict()});
    query.strFunc = "cloudfd";  // of a changed file no program is hashed
    m_journal.Record(QueryReceived{query, QUERY_ANSWERED, Verdict()});
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    for (const std::string& strPath :
         {m_dir.Path(), strPipe, m_dir.Path() + "/gone", std::string("/dev/zero")}) {
        m_journal.Record(QueryReceived{LaunchQuery(strPath), QUERY_ANSWERED, Verdict()});
    }

    EXPECT_EQ(3u, m_journal.PassCounters().nHashedBytes);
}

TEST_F(RunJournalTest, TheModulesWorkBeginsWithItsFirstRecordAndNotWithAQuery) {
    m_journal.Record(QueryReceived{LaunchQuery("/bin/a"), QUERY_ANSWERED, Verdict()});
    EXPECT_FALSE(m_journal.PassCounters().firstWork);
    EXPECT_TRUE(m_journal.PassCounters().lastWork);

    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_NOT_SENT, ""}});
    const auto first = m_journal.PassCounters().firstWork;
    m_journal.Record(ModuleNoted{ModuleRecord{NOTE_NOT_SENT, ""}});

    EXPECT_TRUE(first);
    EXPECT_EQ(first, m_journal.PassCounters().firstWork);
    EXPECT_LE(*first, *m_journal.PassCounters().lastWork);
}
