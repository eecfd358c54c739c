#include "host/account/EventLedger.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/event/EventMessage.h"
#include "tests/support/TestDir.h"

namespace {

ModuleOutcome Outcome(OutcomeKind eEnd, ExpectedKind eKind, const std::string& strName,
                      const std::string& strOperation = "") {
    ModuleOutcome outcome;
    outcome.eEnd = eEnd;
    outcome.eKind = eKind;
    outcome.strName = strName;
    outcome.strOperation = strOperation;
    return outcome;
}

ModuleOutcome OfProgram(OutcomeKind eEnd, ExpectedKind eKind, const std::string& strProgram,
                        const std::string& strOperation = "") {
    ModuleOutcome outcome = Outcome(eEnd, eKind, strProgram, strOperation);
    outcome.bNamesProgram = true;
    return outcome;
}

std::string FileMessage(const std::string& strOperation, const std::string& strPath,
                        const std::string& strProgram = "/bin/actor") {
    return R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":")" + strPath +
           R"(","exe_path":")" + strProgram + R"(","optertion":")" + strOperation + R"("}]})";
}

class EventLedgerTest : public testing::Test {
protected:
    EventLedgerTest() : m_strThere(m_dir.WriteFile("there", "x", 0755)) {}

    // A message of launches, reported.
    std::string Launches(uint64_t nNumber, const std::vector<std::string>& paths) {
        const std::string strBody = event_message::ProcessCreations(paths);
        m_ledger.Report(nNumber, strBody, paths.size());
        return strBody;
    }
    // A message of one file operation, reported and analysed.
    void BeginFile(const std::string& strBody) {
        m_ledger.Report(++m_nNumber, strBody, 1);
        m_ledger.Analyse(strBody);
    }
    std::string Pipe() {
        const std::string strPath = m_dir.Path() + "/pipe";
        EXPECT_EQ(0, mkfifo(strPath.c_str(), 0600));
        return strPath;
    }

    TestDir m_dir;
    const std::string m_strThere;
    uint64_t m_nNumber = 0;
    bool m_bKnownMaker = false;
    EventLedger m_ledger{[this](const std::string&) { return m_bKnownMaker; }};
};

}  // namespace

TEST_F(EventLedgerTest, AnEventWaitsUntilTheModuleBeginsWithItsMessage) {
    const std::string strFirst = Launches(1, {m_strThere, m_strThere});
    Launches(2, {m_strThere});
    m_ledger.Analyse(strFirst);

    const LedgerState state = m_ledger.FinalState();
    EXPECT_EQ(3u, state.nSent);
    EXPECT_EQ(1u, state.nWaiting);
    EXPECT_EQ(1u, state.nWaitingMessages);
    EXPECT_EQ(2u, state.nAnalysed);
    EXPECT_EQ(2u, state.nMissing);
}

TEST_F(EventLedgerTest, EveryLaunchIsOneQuestionThatOneSignEnds) {
    m_ledger.Analyse(Launches(1, {m_strThere, m_strThere}));

    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, m_strThere)).has_value());
    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_LAUNCH, m_strThere)).has_value());
    EXPECT_FALSE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_LAUNCH, m_strThere)).has_value());

    const LedgerState state = m_ledger.FinalState();
    EXPECT_EQ(2u, state.nExpected);
    EXPECT_EQ(1u, state.nQueried);
    EXPECT_EQ(1u, state.nCached);
    EXPECT_EQ(1u, state.nUnmatched);
    EXPECT_EQ(0u, state.nMissing);
}

TEST_F(EventLedgerTest, AProgramThatIsGoneExplainsTheSilence) {
    m_ledger.Analyse(Launches(1, {m_dir.Path() + "/gone", m_dir.Path()}));

    EXPECT_EQ(2u, m_ledger.State().nVanished);
    EXPECT_EQ(2u, m_ledger.FinalState().nVanished);
    EXPECT_EQ(0u, m_ledger.FinalState().nMissing);
}

TEST_F(EventLedgerTest, AProgramThatWasGoneWhenTheModuleLookedIsExplainedAlsoWhenItCameBack) {
    const std::string strLater = m_dir.Path() + "/later";
    m_ledger.Analyse(Launches(1, {strLater}));
    m_dir.WriteFile("later", "x", 0755);

    EXPECT_EQ(1u, m_ledger.FinalState().nVanished);
}

TEST_F(EventLedgerTest, AMessageOfAnEarlierRunIsCountedApartAndLeavesNothingUnexplained) {
    const std::string strEarlier = event_message::ProcessCreations({m_strThere, m_strThere});
    m_ledger.SetEarlier(1);
    const std::string strOwn = Launches(1, {m_strThere});
    m_ledger.Analyse(strEarlier);

    LedgerState state = m_ledger.State();
    EXPECT_EQ(0u, state.nEarlierWaiting);
    EXPECT_EQ(2u, state.nEarlierAnalysed);
    EXPECT_EQ(1u, state.nWaiting);
    EXPECT_EQ(2u, state.nExpected);

    m_ledger.Analyse(strOwn);
    EXPECT_EQ(1u, m_ledger.State().nAnalysed);
    EXPECT_EQ(3u, m_ledger.State().nMissing);
}

// The module queues a message once for each of its elements that asks, and looks at each copy.
TEST_F(EventLedgerTest, EveryCopyOfAMessageIsOfThisRun) {
    const std::string strBody = event_message::ProcessCreations({m_strThere, m_strThere});
    m_ledger.Report(1, strBody, 6, 3);
    m_ledger.Report(2, "{}", 4, 2);
    EXPECT_EQ(5u, m_ledger.State().nWaitingMessages);
    for (int i = 0; i < 3; ++i) {
        m_ledger.Analyse(strBody);
    }

    EXPECT_EQ(6u, m_ledger.State().nAnalysed);
    EXPECT_EQ(0u, m_ledger.State().nEarlierAnalysed);
    EXPECT_EQ(4u, m_ledger.State().nWaiting);
    m_ledger.Refuse(2);
    EXPECT_EQ(4u, m_ledger.State().nRefused);
    EXPECT_EQ(0u, m_ledger.State().nWaitingMessages);
}

// A run that was interrupted and is repeated reports the same texts again.
TEST_F(EventLedgerTest, AMessageOfAnEarlierRunWithATextOfThisOneLosesNothing) {
    const std::string strOther = event_message::ProcessCreations({"/bin/other"});
    const std::string strSame = event_message::ProcessCreations({m_strThere});
    m_ledger.SetEarlier(1);
    m_ledger.Report(1, strOther, 1);
    m_ledger.Report(2, strSame, 1);

    m_ledger.Analyse(strSame);
    EXPECT_EQ(1u, m_ledger.State().nEarlierAnalysed);
    m_ledger.Analyse(strOther);
    m_ledger.Analyse(strSame);

    const LedgerState state = m_ledger.State();
    EXPECT_EQ(2u, state.nAnalysed);
    EXPECT_EQ(0u, state.nNotStored);
    EXPECT_EQ(0u, state.nWaiting);
}

TEST_F(EventLedgerTest, EachCopyIsOfTheAnalyserThatItsElementNames) {
    const std::string strBody = R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":")" +
                                m_strThere + R"(","optertion":"write"},)" +
                                R"({"grup":"cloudquery","context":"cloudad","path":")" +
                                m_strThere + R"("}]})";
    m_ledger.Report(1, strBody, 4, 2);

    m_ledger.Analyse(strBody);
    EXPECT_EQ(0u, m_ledger.State().nExpected);  // in no watched place
    m_ledger.Analyse(strBody);

    EXPECT_EQ(2u, m_ledger.State().nExpected);
    EXPECT_EQ(4u, m_ledger.State().nAnalysed);
    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, m_strThere)).has_value());
}

TEST_F(EventLedgerTest, ARefusedMessageDoesNotWait) {
    Launches(1, {m_strThere});
    Launches(2, {m_strThere, m_strThere});
    m_ledger.Refuse(2);
    m_ledger.Refuse(9);

    EXPECT_EQ(2u, m_ledger.State().nRefused);
    EXPECT_EQ(1u, m_ledger.State().nWaiting);
}

TEST_F(EventLedgerTest, OfAllThatWaitOnlyTheRefusedMessageGoes) {
    Launches(1, {m_strThere});
    Launches(2, {m_strThere, m_strThere});
    const std::string strThird = Launches(3, {m_strThere, m_strThere, m_strThere});
    m_ledger.Refuse(2);
    EXPECT_EQ(2u, m_ledger.State().nRefused);
    EXPECT_EQ(4u, m_ledger.State().nWaiting);
    EXPECT_EQ(2u, m_ledger.State().nWaitingMessages);

    m_ledger.Analyse(strThird);
    EXPECT_EQ(3u, m_ledger.State().nAnalysed);
    EXPECT_EQ(1u, m_ledger.State().nNotStored);
}

TEST_F(EventLedgerTest, AMessageThatIsPassedOverWasNotStored) {
    Launches(1, {m_strThere, m_strThere});
    const std::string strSecond = Launches(2, {m_strThere});
    m_ledger.Analyse(strSecond);

    EXPECT_EQ(2u, m_ledger.State().nNotStored);
    EXPECT_EQ(1u, m_ledger.State().nAnalysed);
    EXPECT_EQ(0u, m_ledger.State().nWaiting);
}

TEST_F(EventLedgerTest, AMessageThatIsNotInTheQueueAtTheEndWasNotStored) {
    m_ledger.SetEarlier(2);
    Launches(1, {m_strThere});
    Launches(2, {m_strThere, m_strThere});
    m_ledger.End(3);  // the two earlier ones, and one of ours

    EXPECT_EQ(2u, m_ledger.State().nNotStored);
    EXPECT_EQ(1u, m_ledger.State().nWaiting);
}

TEST_F(EventLedgerTest, ANameThatIsNotUtf8IsQueriedUnderItsReplacement) {
    m_ledger.Analyse(Launches(1, {"/bin/a\xff\xfez"}));
    const auto expected = m_ledger.Match(
        Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, "/bin/a\xef\xbf\xbd\xef\xbf\xbdz"));

    ASSERT_TRUE(expected.has_value());
    EXPECT_EQ("/bin/a\xff\xfez", expected->expected.strFile);
}

TEST_F(EventLedgerTest, NamesThatDifferOutsideAsciiAreTwo) {
    m_ledger.Analyse(Launches(1, {"/bin/a\xc3\xa9"}));
    m_ledger.Analyse(Launches(2, {"/bin/a\xc3\xa8"}));
    const auto second = m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, "/bin/a\xc3\xa8"));

    ASSERT_TRUE(second.has_value());
    EXPECT_EQ("/bin/a\xc3\xa8", second->expected.strFile);
    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, "/bin/a\xc3\xa9")));
}

// A program that went away while it was analysed leaves its expected query open; another one whose
// name reads the same in its query must not be taken for it.
TEST_F(EventLedgerTest, OfNamesWithOneReplacementTheOneThatIsThereIsMeant) {
    const std::string strThere = m_dir.WriteFile("a\xfe", "x", 0755);
    m_ledger.Analyse(Launches(1, {m_dir.Path() + "/a\xff"}));
    m_ledger.Analyse(Launches(2, {strThere}));
    const auto queried =
        m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, m_dir.Path() + "/a\xef\xbf\xbd"));
    ASSERT_TRUE(queried.has_value());
    EXPECT_EQ(strThere, queried->expected.strFile);

    // A log record has the very bytes.
    const std::string strSecond = m_dir.WriteFile("a\xfc", "x", 0755);
    m_ledger.Analyse(Launches(3, {strThere, strSecond}));
    const auto second = m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_LAUNCH, strSecond));
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(strSecond, second->expected.strFile);
    const auto logged =
        m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_LAUNCH, m_dir.Path() + "/a\xff"));
    ASSERT_TRUE(logged.has_value());
    EXPECT_EQ(m_dir.Path() + "/a\xff", logged->expected.strFile);
}

// The maker is asked for again when a pipe's query has not come for long: whoever reads a large
// program for the answer must not hold the books.
TEST_F(EventLedgerTest, AnOldPipesMakerIsAskedForWithoutALock) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    int nAsked = 0;
    EventLedger* pLedger = nullptr;
    EventLedger ledger([&](const std::string&) {
        (void)pLedger->State();  // waits for ever under the lock
        return ++nAsked == 2;
    });
    pLedger = &ledger;
    const auto begun = EventLedger::Clock::now();
    ledger.Analyse(FileMessage("create", strPipe), begun);
    EXPECT_EQ(1u, ledger.State().nMissing);
    ledger.Analyse("{}", begun + EventLedger::LONGEST_OPEN + std::chrono::seconds(1));

    EXPECT_EQ(2, nAsked);
    EXPECT_EQ(0u, ledger.State().nMissing);
    EXPECT_EQ(1u, ledger.State().nKnownMaker);
}

TEST_F(EventLedgerTest, WhileAMessageIsBeingExaminedItsEventsAreWaiting) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));
    LedgerState during;
    EventLedger* pLedger = nullptr;
    EventLedger ledger([&](const std::string&) {
        during = pLedger->State();
        return false;
    });
    pLedger = &ledger;
    const std::string strBody = FileMessage("create", strPipe);
    ledger.Report(1, strBody, 1);
    ledger.Analyse(strBody);

    EXPECT_EQ(1u, during.nWaiting);
    EXPECT_EQ(1u, during.nWaitingMessages);
    EXPECT_EQ(0u, during.nAnalysed);
    EXPECT_EQ(0u, ledger.State().nWaiting);
    EXPECT_EQ(0u, ledger.State().nWaitingMessages);
    EXPECT_EQ(1u, ledger.State().nAnalysed);
}

TEST_F(EventLedgerTest, AFileOperationOutsideTheWatchedPlacesIsIgnored) {
    BeginFile(FileMessage("write", "/tmp/x"));
    BeginFile(FileMessage("create", m_strThere));
    BeginFile(FileMessage("create", m_dir.Path() + "/gone"));
    // The last one is gone when the module looks whether it is a pipe, and it says so.
    EXPECT_FALSE(
        m_ledger.Match(Outcome(OUTCOME_STAT_FAILED, EXPECTED_PIPE, m_dir.Path() + "/gone")));

    const LedgerState state = m_ledger.FinalState();
    EXPECT_EQ(3u, state.nIgnored);
    EXPECT_EQ(0u, state.nExpected);
    EXPECT_EQ(1u, state.nUnmatched);
}

TEST_F(EventLedgerTest, ASignNamesTheProgramOrTheFileOfAFileOperation) {
    BeginFile(FileMessage("write", "/etc/cron.d/a"));
    BeginFile(FileMessage("rename", "/etc/cron.d/a"));
    BeginFile(FileMessage("create", "/etc/systemd/system/x.service"));

    EXPECT_FALSE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_FILE, "/etc/cron.d/a", "remove")));
    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_FILE, "/etc/cron.d/a", "rename")));
    const auto write =
        m_ledger.Match(OfProgram(OUTCOME_UNREADABLE, EXPECTED_FILE, "/bin/actor", "write"));
    const auto unit = m_ledger.Match(OfProgram(OUTCOME_QUERIED, EXPECTED_UNIT, "/bin/actor"));

    ASSERT_TRUE(write && unit);
    EXPECT_EQ("/etc/cron.d/a", write->expected.strFile);
    EXPECT_EQ("/etc/systemd/system/x.service", unit->expected.strFile);
    EXPECT_EQ(0u, m_ledger.FinalState().nMissing);
    EXPECT_EQ(1u, m_ledger.FinalState().nUnreadable);
}

TEST_F(EventLedgerTest, AFileOperationThatIsNeitherQueriedNorSkippedIsMissing) {
    BeginFile(FileMessage("remove", "/etc/cron.d/gone"));

    EXPECT_EQ(1u, m_ledger.FinalState().nMissing);
}

TEST_F(EventLedgerTest, APipeOfAProgramWithAGoodVerdictIsSkippedWithoutASign) {
    const std::string strPipe = Pipe();
    m_bKnownMaker = true;
    BeginFile(FileMessage("create", strPipe));
    EXPECT_EQ(1u, m_ledger.State().nKnownMaker);

    m_bKnownMaker = false;
    BeginFile(FileMessage("create", strPipe, "/bin/other"));
    EXPECT_EQ(1u, m_ledger.State().nKnownMaker);
    EXPECT_EQ(1u, m_ledger.State().nMissing);
    EXPECT_TRUE(m_ledger.Match(OfProgram(OUTCOME_QUERIED, EXPECTED_PIPE, "/bin/other")));
    EXPECT_EQ(0u, m_ledger.FinalState().nMissing);
}

TEST_F(EventLedgerTest, WhereNoVerdictIsKnownAPipesQueryIsAwaited) {
    EventLedger ledger;
    ledger.Analyse(FileMessage("create", Pipe()));

    EXPECT_EQ(1u, ledger.State().nMissing);
    EXPECT_EQ(1u, ledger.FinalState().nMissing);
}

TEST_F(EventLedgerTest, APipeThatBecameAFileIsExplained) {
    const std::string strPipe = Pipe();
    BeginFile(FileMessage("create", strPipe));
    EXPECT_EQ(0, unlink(strPipe.c_str()));
    m_dir.WriteFile("pipe", "x", 0600);

    EXPECT_EQ(1u, m_ledger.State().nMissing);
    EXPECT_EQ(1u, m_ledger.FinalState().nVanished);
}

TEST_F(EventLedgerTest, WhatHadNoQueryForLongStaysAsItIs) {
    const EventLedger::Clock::time_point begun;
    m_ledger.Analyse(Launches(1, {m_strThere, m_dir.Path() + "/gone"}), begun);
    m_ledger.Analyse("{}", begun + EventLedger::LONGEST_OPEN + std::chrono::seconds(1));

    EXPECT_FALSE(m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, m_strThere)));
    EXPECT_EQ(1u, m_ledger.State().nVanished);
    EXPECT_EQ(1u, m_ledger.State().nMissing);
}

TEST_F(EventLedgerTest, AQueryIsAwaitedForTwoMinutesAndThenItsFileIsLookedAtOnceMore) {
    const EventLedger::Clock::time_point begun;
    const std::string strLater = m_dir.WriteFile("later", "x", 0755);
    m_ledger.Analyse(Launches(1, {m_strThere, strLater}), begun);
    m_ledger.Analyse("{}", begun + std::chrono::seconds(120));
    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, m_strThere)));

    EXPECT_EQ(0, unlink(strLater.c_str()));
    m_ledger.Analyse("{}", begun + std::chrono::milliseconds(120001));
    m_dir.WriteFile("later", "x", 0755);

    EXPECT_EQ(1u, m_ledger.FinalState().nVanished);
    EXPECT_EQ(0u, m_ledger.FinalState().nMissing);
}

TEST_F(EventLedgerTest, OfTooManyExpectedQueriesTheOldestCountAsTheyStand) {
    std::vector<std::string> paths(EventLedger::MOST_EXPECTED, "/gone/b");
    paths.insert(paths.begin(), "/gone/a");
    m_ledger.Analyse(Launches(1, paths));

    EXPECT_FALSE(m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, "/gone/a")));
    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_QUERIED, EXPECTED_LAUNCH, "/gone/b")));
    EXPECT_EQ(100000u, m_ledger.State().nVanished);
    EXPECT_EQ(1u, m_ledger.State().nQueried);
}

TEST_F(EventLedgerTest, ANameThatGoesOnAfterAByteOfZeroNamesNoFile) {
    m_ledger.Analyse(Launches(1, {m_strThere + std::string("\0x", 2)}));
    BeginFile(FileMessage("create", Pipe() + "\\u0000x"));

    EXPECT_EQ(1u, m_ledger.State().nVanished);
    EXPECT_EQ(1u, m_ledger.State().nIgnored);
}

TEST_F(EventLedgerTest, AnOutcomeIsOfItsOwnKindOnly) {
    const std::string strUnit = "/etc/systemd/system/x.service";
    BeginFile(FileMessage("create", strUnit));

    EXPECT_FALSE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_LAUNCH, strUnit)));
    EXPECT_FALSE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_PIPE, strUnit)));
    EXPECT_FALSE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_FILE, strUnit)));
    EXPECT_FALSE(m_ledger.Match(OfProgram(OUTCOME_CACHED, EXPECTED_UNIT, strUnit)));
    EXPECT_TRUE(m_ledger.Match(Outcome(OUTCOME_CACHED, EXPECTED_UNIT, strUnit)));
    EXPECT_EQ(4u, m_ledger.State().nUnmatched);
}

// 12,000 programs that are gone, with names of 4 KiB, would be held for two minutes.
TEST_F(EventLedgerTest, LongNamesOfWhatIsNeverQueriedAreNotHeldAll) {
    for (int i = 0; i < 120; ++i) {
        std::vector<std::string> paths(100, m_dir.Path() + "/" + std::string(4000, 'g'));
        m_ledger.Analyse(Launches(static_cast<uint64_t>(i), paths));
    }

    EXPECT_EQ(12000u, m_ledger.State().nVanished);
    for (int i = 0; i < 12000; ++i) {
        (void)m_ledger.Match(
            Outcome(OUTCOME_CACHED, EXPECTED_LAUNCH, m_dir.Path() + "/" + std::string(4000, 'g')));
    }
    EXPECT_GT(m_ledger.State().nCached, 5000u);
    EXPECT_LT(m_ledger.State().nCached, 9000u);
    EXPECT_EQ(12000u, m_ledger.State().nCached + m_ledger.State().nVanished);
}
