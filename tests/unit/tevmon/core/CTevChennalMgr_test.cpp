#include "tevmon/core/CTevChennalMgr.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "tests/support/Event.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManagerContract.h"
#include "tests/support/ShortWaits.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/trace/OtherConnection.h"
#include "tests/support/trace/SqlTrace.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

namespace {

// The manager with an analyser of the test's.
class Channel : public CTevChennalMgr {
public:
    using Analyser = std::function<bool(const ChennalRecord&)>;

    Channel() = default;
    ~Channel() override { Exit(); }

    using CTevChennalMgr::SetRunning;

    // Null for the module's own.
    void SetAnalyser(Analyser analyser) {
        const std::lock_guard<std::mutex> lock(m_handledMutex);
        m_analyser = std::move(analyser);
    }
    Texts Handled() const {
        const std::lock_guard<std::mutex> lock(m_handledMutex);
        return m_handled;
    }
    // One drain cycle on this thread.
    void DrainOnce() {
        SetRunning(true);
        Drain();
        SetRunning(false);
    }
    using CTevChennalMgr::Drain;

protected:
    bool DisathMsg(const ChennalRecord& record) override {
        Analyser analyser;
        {
            const std::lock_guard<std::mutex> lock(m_handledMutex);
            m_handled.push_back(record.detail);
            analyser = m_analyser;
        }
        return analyser ? analyser(record) : CTevChennalMgr::DisathMsg(record);
    }

private:
    mutable std::mutex m_handledMutex;  // guards what follows
    Analyser m_analyser = [](const ChennalRecord&) { return true; };
    Texts m_handled;
};

class CTevChennalMgrTest : public testing::Test {
protected:
    // The store is the process's: in a program that runs several tests it moves along.
    CTevChennalMgrTest() { EXPECT_TRUE(CTevChennalDB::Instance()->Open()); }

    Texts Stored() {
        return OtherConnection(m_strFile).Rows("select mid from msgchennal order by id");
    }
    size_t Queued() { return static_cast<size_t>(CTevChennalDB::Instance()->Count()); }
    void Push(const Texts& details) {
        for (const std::string& strDetail : details) {
            ASSERT_TRUE(m_channel.PushMsg(strDetail, 5));
        }
    }

    TestDir m_dir;
    std::string m_strFile = m_dir.Database("tevchennaldb.db");
    Channel m_channel;
};

}  // namespace

TEST_F(CTevChennalMgrTest, PushMsgWithAnEmptyDetailOrMid0ReturnsFalseAndStoresNothing) {
    const SqlTrace trace;

    EXPECT_FALSE(m_channel.PushMsg("", 5));
    EXPECT_FALSE(m_channel.PushMsg("x", 0));
    EXPECT_FALSE(m_channel.PushMsg("", 0));

    EXPECT_EQ(Texts{}, trace.Statements());
    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, PushMsgStoresTheMessageWithItsIdAndTheTimeOfThePush) {
    const FakeClock clock(1700000123);
    const SqlTrace trace;

    EXPECT_TRUE(m_channel.PushMsg("abc", 6));

    EXPECT_EQ((Texts{"begin transaction",
                     "insert into msgchennal(createtime,detail,mid) "
                     "values('1700000123','YWJj',6)",
                     "commit transaction"}),
              trace.Statements());
}

TEST_F(CTevChennalMgrTest, PushMsgTakesANegativeMid) {
    EXPECT_TRUE(m_channel.PushMsg("x", -1));

    EXPECT_EQ(Texts{"-1"}, Stored());
}

TEST_F(CTevChennalMgrTest, ADatabaseLockedByAnotherMakesPushMsgTry5TimesAndStillReturnTrue) {
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    bool bPushed = false;

    const Texts lines = PrintedBy([&] { bPushed = m_channel.PushMsg("lost", 5); });

    EXPECT_TRUE(bPushed);
    EXPECT_EQ(Texts(5, "database is locked"), lines);
    ASSERT_TRUE(other.Release());
    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, ACommitThatAnothersReadLockRefusesIsTried5TimesToo) {
    OtherConnection reader(m_strFile);
    ASSERT_TRUE(reader.LockRead());
    bool bPushed = false;

    const Texts lines = PrintedBy([&] { bPushed = m_channel.PushMsg("lost", 5); });

    EXPECT_TRUE(bPushed);
    EXPECT_EQ(Texts(5, "database is locked"), lines);
    ASSERT_TRUE(reader.Release());
    EXPECT_EQ(Texts{}, Stored());
    EXPECT_TRUE(m_channel.PushMsg("kept", 5));
    EXPECT_EQ(Texts{"5"}, Stored());
}

TEST_F(CTevChennalMgrTest, ALockGivenBackBeforeTheFifthAttemptLetsThePushThrough) {
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    int nAttempts = 0;
    const SqlTrace trace([&](const std::string& strStatement) {
        if (strStatement == "begin transaction" && ++nAttempts == 5) {
            (void)other.Release();
        }
    });

    const Texts lines = PrintedBy([&] { (void)m_channel.PushMsg("kept", 5); });

    EXPECT_EQ(Texts(4, "database is locked"), lines);
    EXPECT_EQ(Texts{"5"}, Stored());
}

TEST_F(CTevChennalMgrTest, AnErrorOtherThanBusyIsNotTriedAgainAndPushMsgStillReturnsTrue) {
    ASSERT_EQ(0, OtherConnection(m_strFile).Exec("drop table msgchennal"));
    bool bPushed = false;

    const Texts lines = PrintedBy([&] { bPushed = m_channel.PushMsg("lost", 5); });

    EXPECT_TRUE(bPushed);
    EXPECT_EQ(Texts{"no such table: msgchennal"}, lines);
}

TEST_F(CTevChennalMgrTest, AStoreThatDidNotOpenLosesTheMessageInOneLineAndPushMsgReturnsTrue) {
    fs::remove_all(m_dir.Path() + "/data");
    bool bPushed = false;

    const Texts lines = PrintedBy([&] {
        (void)CTevChennalDB::Instance()->Open();
        bPushed = m_channel.PushMsg("lost", 5);
    });

    EXPECT_TRUE(bPushed);
    EXPECT_EQ((Texts{"unable to open database file", "the database is not open"}), lines);
}

TEST_F(CTevChennalMgrTest, OneDrainCycleHandlesThreeMessagesInOrderOfInsertion) {
    Push({"one", "two", "three"});

    m_channel.DrainOnce();

    EXPECT_EQ((Texts{"one", "two", "three"}), m_channel.Handled());
    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, EveryMessageIsFetchedAloneAndRemovedBeforeTheNext) {
    Push({"one", "two"});
    const SqlTrace trace;

    m_channel.DrainOnce();

    EXPECT_EQ((Texts{"select * from msgchennal limit 0,1", "begin transaction",
                     "delete from msgchennal where id = 1", "commit transaction",
                     "select * from msgchennal limit 0,1", "begin transaction",
                     "delete from msgchennal where id = 2", "commit transaction",
                     "select * from msgchennal limit 0,1"}),
              trace.Statements());
}

TEST_F(CTevChennalMgrTest, AMessagePushedDuringTheCycleIsHandledInIt) {
    Push({"one"});
    m_channel.SetAnalyser([&](const ChennalRecord& record) {
        return record.detail != "one" || m_channel.PushMsg("two", 5);
    });

    m_channel.DrainOnce();

    EXPECT_EQ((Texts{"one", "two"}), m_channel.Handled());
}

TEST_F(CTevChennalMgrTest, AnAnalyserThatRejectsTheFirstLeavesAllThreeUntilItAccepts) {
    Push({"one", "two", "three"});
    m_channel.SetAnalyser([](const ChennalRecord&) { return false; });
    m_channel.DrainOnce();
    m_channel.DrainOnce();
    EXPECT_EQ((Texts{"one", "one"}), m_channel.Handled());
    EXPECT_EQ((Texts{"5", "5", "5"}), Stored());

    m_channel.SetAnalyser([](const ChennalRecord&) { return true; });
    m_channel.DrainOnce();

    EXPECT_EQ((Texts{"one", "one", "one", "two", "three"}), m_channel.Handled());
    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, AnExceptionInAnAnalyserCountsAsAccepted) {
    Push({"one", "two"});
    m_channel.SetAnalyser([](const ChennalRecord& record) -> bool {
        if (record.detail == "one") {
            throw std::runtime_error("broken");
        }
        throw 7;
    });

    m_channel.DrainOnce();

    EXPECT_EQ((Texts{"one", "two"}), m_channel.Handled());
    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, WithoutTheRunningFlagADrainTouchesNothing) {
    Push({"one"});
    const SqlTrace trace;

    m_channel.Drain();

    EXPECT_EQ(Texts{}, m_channel.Handled());
    EXPECT_EQ(Texts{}, trace.Statements());
}

TEST_F(CTevChennalMgrTest, ADatabaseLockedByAnotherIsFetchedFrom5TimesAndEndsTheCycle) {
    Push({"one"});
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());

    const Texts lines = PrintedBy([&] { m_channel.DrainOnce(); });

    EXPECT_EQ(Texts(5, "database is locked"), lines);
    EXPECT_EQ(Texts{}, m_channel.Handled());
}

TEST_F(CTevChennalMgrTest, AWriteLockTakenDuringAnalysisEndsTheCycleAfter5RemovalsTried) {
    Push({"one", "two"});
    OtherConnection other(m_strFile);
    m_channel.SetAnalyser([&](const ChennalRecord&) { return other.LockWrite(); });

    const Texts lines = PrintedBy([&] { m_channel.DrainOnce(); });

    EXPECT_EQ(Texts(5, "database is locked"), lines);
    EXPECT_EQ(Texts{"one"}, m_channel.Handled());
    ASSERT_TRUE(other.Release());
    m_channel.SetAnalyser([](const ChennalRecord&) { return true; });
    m_channel.DrainOnce();
    EXPECT_EQ((Texts{"one", "one", "two"}), m_channel.Handled());
    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, AWriteLockGivenBackBetweenRemovalsLetsTheCycleGoOn) {
    Push({"one", "two"});
    OtherConnection other(m_strFile);
    int nRemovals = 0;
    const SqlTrace trace([&](const std::string& strStatement) {
        if (strStatement == "delete from msgchennal where id = 1" && ++nRemovals == 5) {
            (void)other.Release();
        }
    });
    m_channel.SetAnalyser(
        [&](const ChennalRecord& record) { return record.detail != "one" || other.LockWrite(); });

    const Texts lines = PrintedBy([&] { m_channel.DrainOnce(); });

    EXPECT_EQ(Texts(4, "database is locked"), lines);
    EXPECT_EQ((Texts{"one", "two"}), m_channel.Handled());
}

TEST_F(CTevChennalMgrTest, AHeadWhoseIdIsPast32BitsIsHandledOncePerCycleAndStays) {
    ASSERT_EQ(
        0, OtherConnection(m_strFile).Exec("insert into msgchennal values(2147483648,'1','YQ==',5),"
                                           "(2147483649,'1','Yg==',5)"));

    m_channel.DrainOnce();
    m_channel.DrainOnce();

    EXPECT_EQ((Texts{"a", "a"}), m_channel.Handled());
    EXPECT_EQ((Texts{"5", "5"}), Stored());
}

TEST_F(CTevChennalMgrTest, AMessageOfAnUnknownMidIsStoredAndDeletedWithoutAnAnalyser) {
    m_channel.SetAnalyser(nullptr);
    ASSERT_TRUE(m_channel.PushMsg("no analyser would take this text", 7));
    ASSERT_EQ(Texts{"7"}, Stored());

    m_channel.DrainOnce();

    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, MessagesOf5And6GoToAnalysersWhoseRefusalKeepsThem) {
    m_channel.SetAnalyser(nullptr);
    for (const int nMid : {5, 6}) {
        ASSERT_TRUE(CTevChennalDB::Instance()->Clear());
        ASSERT_TRUE(m_channel.PushMsg("neither takes this text", nMid));

        m_channel.DrainOnce();

        EXPECT_EQ(Texts{std::to_string(nMid)}, Stored());
    }
}

TEST_F(CTevChennalMgrTest, MessagesOf5And6ThatTheirAnalysersTakeAreRemoved) {
    m_channel.SetAnalyser(nullptr);
    ASSERT_TRUE(m_channel.PushMsg(R"({"param":[]})", 5));
    ASSERT_TRUE(m_channel.PushMsg(R"({"param":[]})", 6));

    m_channel.DrainOnce();

    EXPECT_EQ(Texts{}, Stored());
}

TEST_F(CTevChennalMgrTest, EveryDispatchIsLoggedWithTheDetail) {
    m_channel.SetAnalyser(nullptr);
    ASSERT_TRUE(m_channel.PushMsg("100%s%n", 7));
    LogCapture log;

    m_channel.DrainOnce();

    const auto records = log.Find("handler===> 100%s%n\n");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(2, records[0].nLevel);
    EXPECT_EQ("tevmon/core/CTevChennalMgr", records[0].strSource);
    EXPECT_EQ("DisathMsg", records[0].strFunction);
    EXPECT_EQ("handler===> %s\n", records[0].strFormat);
}

TEST_F(CTevChennalMgrTest, TheThreadIsNamedAndWaits5000MillisecondsBeforeTheFirstDrain) {
    Push({"one"});
    size_t nHandledAtFirstWait = 99;
    Event waited;
    Event handled;
    m_channel.SetAnalyser([&](const ChennalRecord&) {
        handled.Set();
        return true;
    });
    const ShortWaits waits([&] {
        if (!waited.IsSet()) {
            nHandledAtFirstWait = m_channel.Handled().size();
            waited.Set();
        }
    });

    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    ASSERT_TRUE(handled.Wait());
    m_channel.Exit();

    EXPECT_EQ(0u, nHandledAtFirstWait);
    ASSERT_FALSE(waits.All().empty());
    EXPECT_EQ(5000u, waits.All()[0].nMilliseconds);
    EXPECT_EQ("TevChennalMgr", waits.All()[0].strThread);
}

TEST_F(CTevChennalMgrTest, StartAndExitAreLogged) {
    const ShortWaits waits;
    LogCapture log;

    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    ASSERT_TRUE(log.WaitFor("[CTevChennalMgr]: CTevChennalMgr start.\n"));
    m_channel.Exit();

    const auto started = log.Find("[CTevChennalMgr]: CTevChennalMgr start.\n");
    const auto exited = log.Find("[CTevChennalMgr]: CTevChennalMgr exit.\n");
    ASSERT_EQ(1u, started.size());
    ASSERT_EQ(1u, exited.size());
    EXPECT_EQ(2, started[0].nLevel);
    EXPECT_EQ("run", started[0].strFunction);
    EXPECT_EQ("tevmon/core/CTevChennalMgr", started[0].strSource);
    EXPECT_EQ(2, exited[0].nLevel);
    EXPECT_EQ("Exit", exited[0].strFunction);
}

TEST_F(CTevChennalMgrTest, AStartThatFailsIsLoggedAndReportedAsFalse) {
    LogCapture log;
    const ShortWaits waits;
    Push({"one"});
    bool bStarted = true;
    Event tried;
    // A thread that was asked to end cannot start its own successor.
    m_channel.SetAnalyser([&](const ChennalRecord&) {
        (void)m_channel.stop();
        bStarted = m_channel.Start(CThread::PriorityNormal);
        tried.Set();
        return true;
    });

    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    ASSERT_TRUE(tried.Wait());
    m_channel.Exit();

    EXPECT_FALSE(bStarted);
    const auto records = log.Find("[CTevChennalMgr]: CThread::start faild.\n");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(4, records[0].nLevel);
    EXPECT_EQ("Start", records[0].strFunction);
}

TEST_F(CTevChennalMgrTest, ExitDuringAnAnalysisLetsItFinishRemovesItsMessageAndEndsTheLoop) {
    const ShortWaits waits;
    Push({"one", "two"});
    Event analysing;
    Event goOn;
    m_channel.SetAnalyser([&](const ChennalRecord&) {
        analysing.Set();
        return goOn.Wait();
    });
    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    ASSERT_TRUE(analysing.Wait());

    std::thread control([&] { m_channel.Exit(); });
    EXPECT_TRUE(Eventually([&] { return m_channel.isStoped(); }));
    EXPECT_EQ(2u, Queued());
    goOn.Set();
    control.join();

    EXPECT_EQ(Texts{"one"}, m_channel.Handled());
    EXPECT_EQ(1u, Queued());
}

TEST_F(CTevChennalMgrTest, ExitDuringAnAnalysisThatRefusesKeepsItsMessage) {
    const ShortWaits waits;
    Push({"one"});
    Event analysing;
    Event goOn;
    m_channel.SetAnalyser([&](const ChennalRecord&) {
        analysing.Set();
        (void)goOn.Wait();
        return false;
    });
    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    ASSERT_TRUE(analysing.Wait());

    std::thread control([&] { m_channel.Exit(); });
    EXPECT_TRUE(Eventually([&] { return m_channel.isStoped(); }));
    goOn.Set();
    control.join();

    EXPECT_EQ(Texts{"one"}, m_channel.Handled());
    EXPECT_EQ(1u, Queued());
}

TEST_F(CTevChennalMgrTest, MessagesStillStoredAtExitAreHandledAfterTheNextStart) {
    Push({"one", "two"});
    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));  // and waits five seconds
    m_channel.Exit();
    EXPECT_EQ(Texts{}, m_channel.Handled());
    EXPECT_EQ(2u, Queued());

    const ShortWaits waits;
    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    EXPECT_TRUE(Eventually([&] { return Queued() == 0; }));
    m_channel.Exit();

    EXPECT_EQ((Texts{"one", "two"}), m_channel.Handled());
}

TEST_F(CTevChennalMgrTest, StartAndExitInEveryOrderOfSixEndWithoutAThread) {
    StartAndExitInEveryOrder(m_channel);
}

TEST_F(CTevChennalMgrTest, ItsVirtualOperationsStandInTheThreadInterfacesSlotOrder) {
    SlotNames<CTevChennalMgr> names;

    EXPECT_EQ(
        (Texts{"start", "stop", "pause", "recovery", "doPauseOrQuit", "pausedWaitCallback", "run"}),
        names.FromSlot2To8());
}

TEST_F(CTevChennalMgrTest, AStartDirectlyFollowedByAnExitEndsTheThread) {
    // Sometimes the flag is cleared before the thread body sets it.
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
        m_channel.Exit();
    }

    EXPECT_FALSE(m_channel.isJoinable());
}

TEST_F(CTevChennalMgrTest, ExitOnTheThreadItselfEndsTheLoopWithoutHanging) {
    const ShortWaits waits;
    Push({"one", "two"});
    Event exited;
    m_channel.SetAnalyser([&](const ChennalRecord&) {
        m_channel.Exit();
        exited.Set();
        return true;
    });

    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    ASSERT_TRUE(exited.Wait());
    m_channel.Exit();

    EXPECT_EQ(Texts{"one"}, m_channel.Handled());
    EXPECT_EQ(1u, Queued());
}

TEST_F(CTevChennalMgrTest, WithoutAThreadPushedMessagesAccumulate) {
    Push({"one", "two", "three"});

    EXPECT_EQ(3u, Queued());
    EXPECT_EQ(Texts{}, m_channel.Handled());
}

TEST_F(CTevChennalMgrTest, PushesFromSeveralThreadsWhileTheChannelDrainsAreEachHandledOnce) {
    const ShortWaits waits;
    ASSERT_TRUE(m_channel.Start(CThread::PriorityNormal));
    std::vector<std::thread> transports;
    for (int nThread = 0; nThread < 4; ++nThread) {
        transports.emplace_back([this, nThread] {
            for (int i = 0; i < 25; ++i) {
                EXPECT_TRUE(m_channel.PushMsg(std::to_string(nThread * 25 + i), 5));
            }
        });
    }

    for (std::thread& thread : transports) {
        thread.join();
    }
    EXPECT_TRUE(Eventually([&] { return m_channel.Handled().size() >= 100; }));
    m_channel.Exit();

    std::multiset<int> handled;
    for (const std::string& strDetail : m_channel.Handled()) {
        handled.insert(std::stoi(strDetail));
    }
    std::multiset<int> expected;
    for (int i = 0; i < 100; ++i) {
        expected.insert(i);
    }
    EXPECT_EQ(expected, handled);
    EXPECT_EQ(0u, Queued());
}

// A process of its own for this test, as ctest gives it, so that nothing has opened the store yet.
TEST(CTevChennalMgrFreshTest, TheStoreIsOpenedByTheFirstDrainAndNotByTheStart) {
    const TestDir dir;
    const std::string strFile = dir.Database("tevchennaldb.db");
    bool bThereAtFirstWait = true;
    Event waited;
    const ShortWaits waits([&] {
        if (!waited.IsSet()) {
            bThereAtFirstWait = fs::exists(strFile);
            waited.Set();
        }
    });
    Channel channel;

    ASSERT_TRUE(channel.Start(CThread::PriorityNormal));
    EXPECT_TRUE(Eventually([&] { return fs::exists(strFile); }));
    channel.Exit();

    EXPECT_FALSE(bThereAtFirstWait);
}
