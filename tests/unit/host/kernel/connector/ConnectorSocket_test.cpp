#include "host/kernel/connector/ConnectorSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tests/support/kernel/FakeKernel.h"
#include "tests/unit/host/kernel/connector/ConnectorBytes.h"

using namespace connector_bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

bool Decode(const std::string& strBytes, ConnectorEvent& event) {
    return DecodeConnector(strBytes.data(), strBytes.size(), event);
}

// What one Receive after the other hears of messages as bytes.
class ConnectorSocketReadTest : public testing::Test {
protected:
    void Tell(const std::vector<FakeKernel::Told>& told) { m_kernel.Tell({{0, told}}, {}); }
    void SetDrops(uint32_t nDrops) { m_kernel.drops = {nDrops}; }
    // Receives after an overrun.
    void Overrun() {
        Tell({{"", ENOBUFS}});
        EXPECT_FALSE(Receive());
    }
    bool Receive() { return m_socket.Receive(m_events); }
    std::vector<uint32_t> Pids() const { return PidsOf(m_events); }

    FakeKernel m_kernel;
    ConnectorSocket m_socket;
    std::vector<ConnectorEvent> m_events;
    std::string m_strError;
};

}  // namespace

TEST(ConnectorSocketTest, CopiesStartsAndEndsOfProcessesAreDecoded) {
    ConnectorEvent event;

    ASSERT_TRUE(Decode(Message({1, 0, 0, 0, 11, 10, 20, 20}), event));
    EXPECT_EQ(LAUNCH_KIND_FORK, event.eKind);
    EXPECT_EQ(20u, event.nPid);
    EXPECT_EQ(10u, event.nParent);
    ASSERT_TRUE(Decode(Message({2, 0, 0, 0, 20, 20, 0, 0}), event));
    EXPECT_EQ(LAUNCH_KIND_EXEC, event.eKind);
    EXPECT_EQ(20u, event.nPid);
    ASSERT_TRUE(Decode(Message({0x80000000, 0, 0, 0, 20, 20, 0, 0}), event));
    EXPECT_EQ(LAUNCH_KIND_EXIT, event.eKind);
    EXPECT_EQ(20u, event.nPid);
}

TEST(ConnectorSocketTest, ARefusedConnectionIsTheNetworkNamespaceAndNoLackOfRights) {
    const std::string strRefusal = ConnectorRefusal(ECONNREFUSED);

    EXPECT_THAT(strRefusal, HasSubstr("serves the initial network namespace only"));
    EXPECT_THAT(strRefusal, Not(HasSubstr("CAP_NET_ADMIN")));
    EXPECT_THAT(ConnectorRefusal(EPERM), HasSubstr("Operation not permitted; it needs root"));
    EXPECT_THAT(ConnectorRefusal(EPROTONOSUPPORT), HasSubstr("and CONFIG_PROC_EVENTS"));
}

TEST(ConnectorSocketTest, ThreadsOtherKindsAndBrokenMessagesAreNone) {
    ConnectorEvent event;

    EXPECT_FALSE(Decode(Message({1, 0, 0, 0, 10, 10, 21, 20}), event));
    EXPECT_FALSE(Decode(Message({0x80000000, 0, 0, 0, 21, 20, 0, 0}), event));
    EXPECT_FALSE(Decode(Message({4, 0, 0, 0, 20, 20, 0, 0}), event));
    EXPECT_FALSE(Decode(Message({2, 0, 0, 0, 20, 20, 0, 0}, 9), event));
    const std::string strWhole = Message({2, 0, 0, 0, 20, 20, 0, 0});
    for (size_t nSize = 0; nSize < strWhole.size(); ++nSize) {
        EXPECT_FALSE(DecodeConnector(strWhole.data(), nSize, event)) << nSize;
    }
}

TEST(ConnectorSocketTest, OfAStartTheProcessCountsWhicheverThreadMadeIt) {
    ConnectorEvent event;

    ASSERT_TRUE(Decode(Message({2, 0, 0, 0, 21, 20, 0, 0}), event));

    EXPECT_EQ(20u, event.nPid);
}

TEST(ConnectorSocketTest, EveryOtherKindIsNone) {
    // An acknowledgement, identities, session, tracing, name, core dump, and what may come.
    for (const uint32_t nKind : {0u, 4u, 0x40u, 0x80u, 0x100u, 0x200u, 0x40000000u, 3u, ~0u}) {
        ConnectorEvent event;
        EXPECT_FALSE(Decode(Message({nKind, 0, 0, 0, 20, 20, 0, 0}), event)) << nKind;
    }
}

TEST(ConnectorSocketTest, AnotherSubjectOfTheSameConnectorIsNone) {
    ConnectorEvent event;

    EXPECT_FALSE(Decode(Message({2, 0, 0, 0, 20, 20, 0, 0}, CN_IDX_PROC, CN_VAL_PROC + 1), event));
    EXPECT_FALSE(DecodeConnector(nullptr, 100, event));
}

TEST(ConnectorSocketTest, TheLengthsThatAMessageClaimsAreNotBelieved) {
    for (const uint32_t nLength : {0u, 1u, 0xffffffffu}) {
        std::string strBytes = Exec(20);
        std::memcpy(&strBytes[0], &nLength, sizeof(nLength));           // of it all
        std::memcpy(&strBytes[HEADS - 4], &nLength, sizeof(uint16_t));  // of the body
        ConnectorEvent event;
        ASSERT_TRUE(Decode(strBytes, event)) << nLength;
        EXPECT_EQ(20u, event.nPid);
        EXPECT_FALSE(Decode(strBytes.substr(0, HEADS + 31), event)) << nLength;
    }
}

TEST(ConnectorSocketTest, WhatANewerKernelAddsBehindIsLeftAlone) {
    ConnectorEvent event;

    ASSERT_TRUE(Decode(Fork(10, 20) + std::string(500, '\xff'), event));

    EXPECT_EQ(20u, event.nPid);
    EXPECT_EQ(10u, event.nParent);
}

TEST_F(ConnectorSocketReadTest, KernelsFrom66OnSendOnlyTheKindsAskedFor) {
    const struct {
        const char* pszRelease;
        bool bCan;
    } CASES[] = {{"4.19.0-27-amd64", false},
                 {"5.99.0", false},
                 {"6.5.13", false},
                 {"6.6.0", true},
                 {"6.10-rc1", true},
                 {"7.0.0", true},
                 {"10.1", true},
                 {"6", false},
                 {"", false},
                 {"next", false}};
    for (const auto& each : CASES) {
        m_kernel.strRelease = each.pszRelease;
        EXPECT_EQ(each.bCan, ConnectorSocket::CanFilter()) << each.pszRelease;
    }
}

TEST_F(ConnectorSocketReadTest, TheRequestNamesTheKindsWhereTheKernelKnowsThem) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::LIVES, m_strError)) << m_strError;
    m_kernel.strRelease = "6.1.0";
    ConnectorSocket old;
    ASSERT_TRUE(old.Open(ConnectorSocket::ALL_KINDS, m_strError)) << m_strError;

    const std::vector<std::string> requests = m_kernel.Requests();
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ(std::string("\1\0\0\0\1\0\0\x80", 8), requests[0].substr(HEADS));
    EXPECT_EQ(std::string("\1\0\0\0", 4), requests[1].substr(HEADS));
    for (const std::string& strRequest : requests) {
        uint32_t nLength = 0;
        std::memcpy(&nLength, strRequest.data(), sizeof(nLength));
        EXPECT_EQ(strRequest.size(), nLength);
        EXPECT_EQ(strRequest.size() - HEADS, static_cast<size_t>(strRequest[HEADS - 4]));
    }
}

TEST_F(ConnectorSocketReadTest, WhicheverStepIsRefusedItsReasonAndRemedyAreSaid) {
    for (int* const pError :
         {&m_kernel.nSocketError, &m_kernel.nBindError, &m_kernel.nSubscribeError}) {
        *pError = EPERM;
        ConnectorSocket socket;
        m_strError.clear();
        EXPECT_FALSE(socket.Open(ConnectorSocket::EXECS, m_strError));
        EXPECT_THAT(m_strError, HasSubstr("refuses: Operation not permitted; it needs root"));
        *pError = 0;
    }
    EXPECT_EQ(0u, m_kernel.OpenFds());
}

TEST_F(ConnectorSocketReadTest, EventsAreAppendedInTheirOrderAndOtherMessagesLeftOut) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    m_events.push_back({LAUNCH_KIND_EXEC, 1, 0});
    Tell({{Fork(10, 20)},
          {""},
          {Exec(20).substr(0, HEADS + 31)},
          {Message({4, 0, 0, 0, 20, 20, 0, 0})},
          {Exec(20)},
          {Exit(20) + std::string(500, 'x')}});

    EXPECT_FALSE(Receive());

    EXPECT_THAT(Pids(), ElementsAre(1, 20, 20, 20));
    EXPECT_EQ(LAUNCH_KIND_FORK, m_events[1].eKind);
    EXPECT_EQ(LAUNCH_KIND_EXEC, m_events[2].eKind);
    EXPECT_EQ(LAUNCH_KIND_EXIT, m_events[3].eKind);
    EXPECT_EQ(0u, m_socket.Dropped());
}

TEST_F(ConnectorSocketReadTest, OneCallTakesSomeHundredsAndSaysThatMoreMayWait) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    std::vector<FakeKernel::Told> told;
    for (uint32_t i = 0; i < 600; ++i) {
        told.push_back({Exec(i)});
    }
    Tell(told);

    EXPECT_TRUE(Receive());
    EXPECT_EQ(512u, m_events.size());
    EXPECT_FALSE(Receive());
    ASSERT_EQ(600u, m_events.size());
    EXPECT_EQ(599u, m_events.back().nPid);
}

TEST_F(ConnectorSocketReadTest, AnOverrunIsCountedAsTheKernelCountsItOnceTheBufferIsEmpty) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    SetDrops(7);
    Tell({{Exec(1)}, {"", ENOBUFS}, {Exec(2)}});
    EXPECT_FALSE(Receive());
    EXPECT_THAT(Pids(), ElementsAre(1, 2));
    EXPECT_EQ(7u, m_socket.Dropped());

    SetDrops(9);
    EXPECT_FALSE(Receive());
    EXPECT_EQ(7u, m_socket.Dropped());  // not looked up without another overrun
    Tell({{"", ENOBUFS}, {"", ENOBUFS}, {Exec(3)}});
    EXPECT_FALSE(Receive());
    EXPECT_EQ(9u, m_socket.Dropped());  // a sum since the beginning
}

TEST_F(ConnectorSocketReadTest, ACounterThatBeginsAnewGoesOn) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    SetDrops(0xFFFFFFFE);
    Overrun();

    SetDrops(3);
    Overrun();

    EXPECT_EQ(0x100000003u, m_socket.Dropped());
}

TEST_F(ConnectorSocketReadTest, AnOverrunWithoutACounterIsOneAtLeast) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    SetDrops(7);
    Overrun();

    m_kernel.drops.clear();
    Overrun();
    EXPECT_EQ(8u, m_socket.Dropped());
    SetDrops(9);
    Overrun();
    EXPECT_EQ(10u, m_socket.Dropped());
}

TEST_F(ConnectorSocketReadTest, WithoutAnOverrunTheCounterIsNotAsked) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    SetDrops(7);
    Tell({{Exec(1)}});

    EXPECT_FALSE(Receive());

    EXPECT_EQ(0u, m_socket.Dropped());
}

TEST_F(ConnectorSocketReadTest, GapsInTheSequenceAreNoLossAsEachProcessorHasItsOwn) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    SetDrops(7);
    std::string strFirst = Exec(1), strThird = Exec(3);
    const uint32_t FIRST = 1, THIRD = 4000;
    std::memcpy(&strFirst[sizeof(nlmsghdr) + 8], &FIRST, sizeof(FIRST));
    std::memcpy(&strThird[sizeof(nlmsghdr) + 8], &THIRD, sizeof(THIRD));
    Tell({{strFirst}, {strThird}, {strFirst}});

    EXPECT_FALSE(Receive());

    EXPECT_THAT(Pids(), ElementsAre(1, 3, 1));
    EXPECT_EQ(0u, m_socket.Dropped());
}

TEST_F(ConnectorSocketReadTest, AnotherErrorEndsTheCallAndIsNoLoss) {
    ASSERT_TRUE(m_socket.Open(ConnectorSocket::ALL_KINDS, m_strError));
    Tell({{"", EINTR}, {Exec(1)}});

    EXPECT_FALSE(Receive());
    EXPECT_THAT(m_events, IsEmpty());
    EXPECT_FALSE(Receive());
    EXPECT_THAT(Pids(), ElementsAre(1));
}
