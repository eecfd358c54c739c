#include "host/LaunchLedger.h"

#include <gtest/gtest.h>

#include "tests/support/TestDir.h"

namespace {

class LaunchLedgerTest : public testing::Test {
protected:
    LaunchLedgerTest() : m_strThere(m_dir.WriteFile("there", "x", 0755)) {}

    TestDir m_dir;
    const std::string m_strThere;
    LaunchLedger m_ledger;
};

}  // namespace

TEST_F(LaunchLedgerTest, AnEventWaitsUntilTheModuleBeginsWithItsMessage) {
    m_ledger.Send(1, {m_strThere, m_strThere});
    m_ledger.Send(2, {m_strThere});
    m_ledger.Begin();

    const LedgerState state = m_ledger.State();
    EXPECT_EQ(3u, state.nSent);
    EXPECT_EQ(1u, state.nWaiting);
    EXPECT_EQ(1u, state.nWaitingMessages);
    EXPECT_EQ(2u, state.nSilent);
}

TEST_F(LaunchLedgerTest, WhatIsHeardOfIsExplained) {
    m_ledger.Send(1, {m_strThere, m_strThere});
    m_ledger.Begin();
    m_ledger.Hear(m_strThere);
    EXPECT_EQ(1u, m_ledger.State().nSilent);
    m_ledger.Hear(m_strThere);
    m_ledger.Hear(m_strThere);  // an event of an earlier run

    EXPECT_EQ(2u, m_ledger.State().nHeard);
    EXPECT_EQ(0u, m_ledger.State().nSilent);
}

TEST_F(LaunchLedgerTest, AFileThatIsGoneExplainsTheSilence) {
    m_ledger.Send(1, {m_dir.Path() + "/gone", m_dir.Path()});
    m_ledger.Begin();

    EXPECT_EQ(2u, m_ledger.State().nGone);
    EXPECT_EQ(0u, m_ledger.State().nSilent);
}

TEST_F(LaunchLedgerTest, MessagesOfEarlierRunsComeFirst) {
    m_ledger.SetEarlier(1);
    m_ledger.Send(1, {m_strThere});
    m_ledger.Begin();
    EXPECT_EQ(1u, m_ledger.State().nWaiting);
    m_ledger.Begin();
    EXPECT_EQ(0u, m_ledger.State().nWaiting);
    m_ledger.Begin();  // nothing of ours is left
}

TEST_F(LaunchLedgerTest, ARefusedMessageDoesNotWait) {
    m_ledger.Send(1, {m_strThere});
    m_ledger.Send(2, {m_strThere, m_strThere});
    m_ledger.Refuse(2);
    m_ledger.Refuse(9);

    EXPECT_EQ(2u, m_ledger.State().nRefused);
    EXPECT_EQ(1u, m_ledger.State().nWaiting);
}

TEST_F(LaunchLedgerTest, AMessageThatWasNotStoredIsUnexplained) {
    m_ledger.Send(1, {m_strThere});
    m_ledger.Send(2, {m_strThere, m_strThere});
    m_ledger.Miss(1);
    EXPECT_EQ(2u, m_ledger.State().nSilent);
    m_ledger.Miss(7);
    EXPECT_EQ(3u, m_ledger.State().nSilent);
    EXPECT_EQ(0u, m_ledger.State().nWaiting);
}

TEST_F(LaunchLedgerTest, ANameThatIsNotUtf8IsHeardOfUnderItsReplacement) {
    m_ledger.Send(1, {"/bin/a\xff\xfez"});
    m_ledger.Begin();
    m_ledger.Hear("/bin/a\xef\xbf\xbd\xef\xbf\xbdz");

    EXPECT_EQ(1u, m_ledger.State().nHeard);
}

TEST_F(LaunchLedgerTest, WhatIsHeldIsBounded) {
    const std::vector<std::string> paths(LaunchLedger::MOST_PATHS, m_strThere);
    m_ledger.Send(1, paths);
    m_ledger.Send(2, {m_strThere});

    LedgerState state = m_ledger.State();
    EXPECT_EQ(200000u, state.nSilent);
    EXPECT_EQ(1u, state.nWaiting);
    m_ledger.Begin();  // with the message that is not held any more
    EXPECT_EQ(1u, m_ledger.State().nWaiting);
    m_ledger.Begin();
    m_ledger.Hear(m_strThere);
    EXPECT_EQ(1u, m_ledger.State().nHeard);
}
