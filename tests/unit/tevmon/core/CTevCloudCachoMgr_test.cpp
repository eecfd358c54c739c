#include "tevmon/core/CTevCloudCachoMgr.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/Event.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManagerContract.h"
#include "tests/support/ShortWaits.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/WaitsForLock.h"
#include "tests/support/trace/OtherConnection.h"
#include "tests/support/trace/SqlTrace.h"

using Texts = std::vector<std::string>;

namespace {

constexpr int64_t NOW = 1700000000;
constexpr char SOURCE[] = "tevmon/core/CTevCloudCachoMgr";
constexpr char ALL_ROWS[] =
    "select vkey,level,tmcreate,tminternal,detail,mid from cachotable order by rowid";

class Cache : public CTevCloudCachoMgr {
public:
    Cache() = default;
    ~Cache() override { Exit(); }

    using CTevCloudCachoMgr::SetRunning;

    // One expiry scan on this thread.
    void ScanOnce() {
        SetRunning(true);
        CheckRecords();
        SetRunning(false);
    }
    void ScanWithoutTheFlag() { CheckRecords(); }
};

class CTevCloudCachoMgrTest : public testing::Test {
protected:
    Texts Rows(const std::string& strQuery = ALL_ROWS) {
        return OtherConnection(m_strFile).Rows(strQuery);
    }
    Texts Keys() { return Rows("select vkey from cachotable order by rowid"); }
    // Rows "key0" and so on, recorded at NOW for 1200 seconds.
    void RecordNumbered(int nRows) {
        for (int i = 0; i < nRows; ++i) {
            ASSERT_TRUE(m_cache.Record("key" + std::to_string(i), 40, -1, 5, ""));
        }
    }

    TestDir m_dir;
    FakeClock m_clock{NOW};
    std::string m_strFile = m_dir.Database("tevcloudcacho.db");
    Cache m_cache;
};

struct LevelCase {
    int32_t nLevel;
    int64_t nLifetime;  // 0 for a level that is not recorded
};

class CTevCloudCachoMgrLevelTest : public CTevCloudCachoMgrTest,
                                   public testing::WithParamInterface<LevelCase> {};

}  // namespace

TEST_P(CTevCloudCachoMgrLevelTest, ADefaultValidityIsTheLevels) {
    const int32_t nLevel = GetParam().nLevel;
    const int64_t nLifetime = GetParam().nLifetime;
    Texts expected;
    if (nLifetime != 0) {
        expected = {"K|" + std::to_string(nLevel) + "|1700000000|" + std::to_string(nLifetime) +
                    "||5"};
    }

    EXPECT_EQ(nLifetime != 0, m_cache.Record("K", nLevel, -1, 5, ""));

    EXPECT_EQ(expected, Rows());
}

INSTANTIATE_TEST_SUITE_P(Levels, CTevCloudCachoMgrLevelTest,
                         testing::Values(LevelCase{10, 1296000}, LevelCase{20, 1296000},
                                         LevelCase{70, 1296000}, LevelCase{30, 1200},
                                         LevelCase{40, 1200}, LevelCase{50, 1200}, LevelCase{0, 0},
                                         LevelCase{60, 0}, LevelCase{80, 0}, LevelCase{-1, 0},
                                         LevelCase{41, 0}, LevelCase{INT32_MAX, 0},
                                         LevelCase{INT32_MIN, 0}));

TEST_F(CTevCloudCachoMgrTest, Level30WithTheDefaultValidityStores1200AndLevel60StoresNothing) {
    EXPECT_TRUE(m_cache.Record("a", 30, -1, 5, ""));
    EXPECT_FALSE(m_cache.Record("b", 60, -1, 5, ""));

    EXPECT_EQ(Texts{"a|30|1700000000|1200||5"}, Rows());
}

TEST_F(CTevCloudCachoMgrTest, AValidityOf0OrLessRecordsNothingWithoutAStatement) {
    const SqlTrace trace;

    EXPECT_FALSE(m_cache.Record("K", 40, 0, 5, ""));
    EXPECT_FALSE(m_cache.Record("K", 40, -2, 5, ""));
    EXPECT_FALSE(m_cache.Record("K", 40, INT64_MIN, 5, ""));
    EXPECT_FALSE(m_cache.Record("K", 60, -1, 5, ""));

    EXPECT_EQ(Texts{}, trace.Statements());
}

TEST_F(CTevCloudCachoMgrTest, AGivenValidityIsTakenAlsoForALevelThatHasNone) {
    EXPECT_TRUE(m_cache.Record("a", 60, 7, 5, "why"));
    EXPECT_TRUE(m_cache.Record("b", 20, INT64_MAX, 6, ""));

    EXPECT_EQ((Texts{"a|60|1700000000|7|d2h5|5", "b|20|1700000000|9223372036854775807||6"}),
              Rows());
}

TEST_F(CTevCloudCachoMgrTest, ANewKeyIsLookedUpThenInserted) {
    const SqlTrace trace;

    EXPECT_TRUE(m_cache.Record("K", 40, -1, 5, "abc"));

    EXPECT_EQ((Texts{"begin transaction", "select * from cachotable  where vkey = 'K'",
                     "commit transaction", "begin transaction",
                     "insert into cachotable(vkey,level,tmcreate,tminternal,detail,mid) "
                     "values('K',40,1700000000,1200,'YWJj',5)",
                     "commit transaction"}),
              trace.Statements());
}

TEST_F(CTevCloudCachoMgrTest, ANewAndAKnownKeyAreLoggedBeforeTheyAreWritten) {
    LogCapture log;

    (void)PrintedBy([&] {
        (void)m_cache.Record("K%s", 40, -1, 5, "why");
        (void)m_cache.Record("K%s", 20, -1, 6, "");
    });

    const auto isNew = log.Find(
        "[CTevCloudCachoMgr]: Record (new) key = K%s, nLevel = 40, tmCacho = 1200, eMid = 5, "
        "strDetail = why");
    const auto exist = log.Find(
        "[CTevCloudCachoMgr]: Record (exist) key = K%s, nLevel = 20, tmCacho = 1296000, eMid = 6, "
        "strDetail = ");
    ASSERT_EQ(1u, isNew.size());
    ASSERT_EQ(1u, exist.size());
    EXPECT_EQ(2, isNew[0].nLevel);
    EXPECT_EQ(SOURCE, isNew[0].strSource);
    EXPECT_EQ("Record", isNew[0].strFunction);
    EXPECT_EQ(
        "[CTevCloudCachoMgr]: Record (new) key = %s, nLevel = %d, tmCacho = %d, eMid = %d, "
        "strDetail = %s",
        isNew[0].strFormat);
    EXPECT_EQ(
        "[CTevCloudCachoMgr]: Record (exist) key = %s, nLevel = %d, tmCacho = %d, eMid = %d, "
        "strDetail = %s",
        exist[0].strFormat);
}

TEST_F(CTevCloudCachoMgrTest, RecordOfAnExistingKeyReturnsFalsePrints300LinesAndChangesNothing) {
    ASSERT_TRUE(m_cache.Record("K", 40, -1, 5, ""));
    m_clock.Advance(100);
    bool bRecorded = true;

    const Texts lines = PrintedBy([&] { bRecorded = m_cache.Record("K", 70, -1, 6, "other"); });

    EXPECT_FALSE(bRecorded);
    EXPECT_EQ(Texts(300, "near \")\": syntax error"), lines);
    EXPECT_EQ(Texts{"K|40|1700000000|1200||5"}, Rows());
}

TEST_F(CTevCloudCachoMgrTest, AnExpiredEntryIsStillAKnownKeyUntilTheScanDeletesIt) {
    ASSERT_TRUE(m_cache.Record("K", 40, -1, 5, ""));
    m_clock.Advance(5000);
    bool bRecorded = true;
    (void)PrintedBy([&] { bRecorded = m_cache.Record("K", 70, -1, 6, ""); });
    EXPECT_FALSE(bRecorded);

    m_cache.ScanOnce();

    EXPECT_TRUE(m_cache.Record("K", 70, -1, 6, ""));
    EXPECT_EQ(Texts{"K|70|1700005000|1296000||6"}, Rows());
}

TEST_F(CTevCloudCachoMgrTest, AnEmptyKeyIsRecordedLikeAnyOtherAndNeverGiven) {
    CachoRecord entry;

    EXPECT_TRUE(m_cache.Record("", 40, -1, 5, ""));

    EXPECT_EQ(Texts{"|40|1700000000|1200||5"}, Rows());
    EXPECT_FALSE(m_cache.GetRecord("", entry));
}

TEST_F(CTevCloudCachoMgrTest, GetRecordWithAnEmptyKeyReturnsFalseWithoutTouchingTheDatabase) {
    CachoRecord entry;
    const SqlTrace trace;

    EXPECT_FALSE(m_cache.GetRecord("", entry));

    EXPECT_EQ(Texts{}, trace.Statements());
}

TEST_F(CTevCloudCachoMgrTest, GetRecordCopiesTheEntryOutAlsoWhenItHasExpired) {
    ASSERT_TRUE(m_cache.Record("K", 40, -1, 5, "why"));
    m_clock.Advance(5000);
    CachoRecord entry;

    EXPECT_TRUE(m_cache.GetRecord("K", entry));

    EXPECT_EQ("K", entry.key);
    EXPECT_EQ(40, entry.nLevel);
    EXPECT_EQ(NOW, entry.nTmCreate);
    EXPECT_EQ(1200, entry.nTmInterval);
    EXPECT_EQ(5, entry.eMid);
    EXPECT_EQ("why", entry.strDetail);
}

TEST_F(CTevCloudCachoMgrTest, GetRecordOfAnUnknownKeyAsksOnceAndLeavesTheEntry) {
    CachoRecord entry;
    entry.key = "before";
    const SqlTrace trace;

    EXPECT_FALSE(m_cache.GetRecord("K", entry));

    EXPECT_EQ(1u, trace.Count("select * from cachotable  where vkey = 'K'"));
    EXPECT_EQ("before", entry.key);
}

TEST_F(CTevCloudCachoMgrTest, ALockedDatabaseMakesGetRecordTry300TimesAndAnswerFalse) {
    ASSERT_TRUE(m_cache.Record("K", 40, -1, 5, ""));
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    CachoRecord entry;
    bool bFound = true;

    const Texts lines = PrintedBy([&] { bFound = m_cache.GetRecord("K", entry); });

    EXPECT_FALSE(bFound);
    EXPECT_EQ(Texts(300, "database is locked"), lines);
}

TEST_F(CTevCloudCachoMgrTest, ALockGivenBackBeforeThe300thLookupLetsItThrough) {
    ASSERT_TRUE(m_cache.Record("K", 40, -1, 5, ""));
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());
    int nAttempts = 0;
    const SqlTrace trace([&](const std::string& strStatement) {
        if (strStatement == "begin transaction" && ++nAttempts == 300) {
            (void)other.Release();
        }
    });
    CachoRecord entry;
    bool bFound = false;

    const Texts lines = PrintedBy([&] { bFound = m_cache.GetRecord("K", entry); });

    EXPECT_TRUE(bFound);
    EXPECT_EQ(299u, lines.size());
}

TEST_F(CTevCloudCachoMgrTest, ALockedDatabaseMakesRecordTry300InsertsAndAnswerTrue) {
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockWrite());  // lookups work
    bool bRecorded = false;

    const Texts lines = PrintedBy([&] { bRecorded = m_cache.Record("K", 40, -1, 5, ""); });

    EXPECT_TRUE(bRecorded);
    EXPECT_EQ(Texts(300, "database is locked"), lines);
    ASSERT_TRUE(other.Release());
    EXPECT_EQ(Texts{}, Rows());
}

TEST_F(CTevCloudCachoMgrTest, AKeyWhoseLookupFailsTakesTheNewRoadOnce) {
    bool bRecorded = false;

    // The quote ends the text in the statement too early: an error other than busy.
    const Texts lines = PrintedBy([&] { bRecorded = m_cache.Record("it's", 40, -1, 5, ""); });

    EXPECT_TRUE(bRecorded);
    EXPECT_EQ(301u, lines.size());
    EXPECT_EQ(Texts{}, Rows());
}

TEST_F(CTevCloudCachoMgrTest, AStoreThatDidNotOpenAnswersFalseAfter300LookupsAndRecordsTrue) {
    const TestDir dir(false);
    bool bFound = true;
    bool bRecorded = false;
    Texts lookupLines;
    Texts recordLines;

    const Texts openLines = PrintedBy([&] {
        Cache cache;
        CachoRecord entry;
        lookupLines = PrintedBy([&] { bFound = cache.GetRecord("K", entry); });
        recordLines = PrintedBy([&] { bRecorded = cache.Record("K", 40, -1, 5, ""); });
    });

    EXPECT_EQ(Texts{"unable to open database file"}, openLines);
    EXPECT_FALSE(bFound);
    EXPECT_EQ(Texts(300, "the database is not open"), lookupLines);
    EXPECT_TRUE(bRecorded);
    EXPECT_EQ(Texts(301, "the database is not open"), recordLines);
}

TEST_F(CTevCloudCachoMgrTest, EntriesSurviveARestart) {
    ASSERT_TRUE(m_cache.Record("K", 40, -1, 5, ""));
    Cache next;
    CachoRecord entry;

    EXPECT_TRUE(next.GetRecord("K", entry));
}

TEST_F(CTevCloudCachoMgrTest, TheScanKeepsAnEntryAtTPlus1200AndDeletesItAtTPlus1201) {
    ASSERT_TRUE(m_cache.Record("K", 40, -1, 5, ""));

    m_clock.Set(NOW + 1200);
    m_cache.ScanOnce();
    EXPECT_EQ(Texts{"K"}, Keys());

    m_clock.Set(NOW + 1201);
    m_cache.ScanOnce();
    EXPECT_EQ(Texts{}, Keys());
}

TEST_F(CTevCloudCachoMgrTest, TheScanDeletesOnlyWhatHasExpiredAndLogsIt) {
    ASSERT_TRUE(m_cache.Record("short", 40, 10, 5, ""));
    ASSERT_TRUE(m_cache.Record("long", 40, 100, 5, ""));
    m_clock.Advance(11);
    LogCapture log;
    const SqlTrace trace;

    m_cache.ScanOnce();

    EXPECT_EQ(Texts{"long"}, Keys());
    EXPECT_EQ(
        (Texts{"begin transaction", "select * from cachotable limit 0,10", "commit transaction",
               "begin transaction", "delete from cachotable where vkey = 'short'",
               "commit transaction", "begin transaction", "select * from cachotable limit 2,10",
               "commit transaction"}),
        trace.Statements());
    const auto records = log.Find(
        "[CTevCloudCachoMgr]: short(key) time expire and delete. [nTmCreate = 1700000000, "
        "nTmInterval = 10 ]");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(1u, log.All().size());
    EXPECT_EQ(2, records[0].nLevel);
    EXPECT_EQ(SOURCE, records[0].strSource);
    EXPECT_EQ("CheckRecords", records[0].strFunction);
    EXPECT_EQ(
        "[CTevCloudCachoMgr]: %s(key) time expire and delete. [nTmCreate = %ld, nTmInterval = %ld "
        "]",
        records[0].strFormat);
}

TEST_F(CTevCloudCachoMgrTest, TheScanPassesRowsOverAfterDeletionsAndALaterOneTakesThem) {
    RecordNumbered(25);
    m_clock.Advance(1201);

    m_cache.ScanOnce();
    EXPECT_EQ((Texts{"key10", "key11", "key12", "key13", "key14", "key15", "key16", "key17",
                     "key18", "key19"}),
              Keys());
    m_cache.ScanOnce();

    EXPECT_EQ(Texts{}, Keys());
}

TEST_F(CTevCloudCachoMgrTest, TheClockIsReadForEveryEntry) {
    RecordNumbered(3);
    m_clock.Advance(1200);
    // A second passes while the first entry is being read.
    ASSERT_EQ(0, OtherConnection(m_strFile).Exec("update cachotable set tmcreate = 1 where "
                                                 "vkey = 'key0'"));
    const SqlTrace trace([&](const std::string& strStatement) {
        if (strStatement == "delete from cachotable where vkey = 'key0'") {
            m_clock.Advance(1);
        }
    });

    m_cache.ScanOnce();

    EXPECT_EQ(Texts{}, Keys());
}

TEST_F(CTevCloudCachoMgrTest, TimesAtTheEndsOfTheirRangeNeitherExpireNorCrashTheScan) {
    ASSERT_TRUE(m_cache.Record("K", 40, INT64_MAX, 5, ""));

    m_cache.ScanOnce();

    EXPECT_EQ(Texts{"K"}, Keys());
}

TEST_F(CTevCloudCachoMgrTest, WithoutTheRunningFlagAScanTouchesNothing) {
    RecordNumbered(1);
    m_clock.Advance(5000);
    const SqlTrace trace;

    m_cache.ScanWithoutTheFlag();

    EXPECT_EQ(Texts{}, trace.Statements());
}

TEST_F(CTevCloudCachoMgrTest, ADeletionThatFindsTheDatabaseBusyIsTriedOnce) {
    RecordNumbered(2);
    m_clock.Advance(1201);
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockWrite());

    const Texts lines = PrintedBy([&] { m_cache.ScanOnce(); });

    EXPECT_EQ(Texts(2, "database is locked"), lines);
    EXPECT_EQ(2u, Keys().size());
}

TEST_F(CTevCloudCachoMgrTest, APageThatCannotBeReadEndsTheScanAndGivesTheStoreBack) {
    RecordNumbered(1);
    OtherConnection other(m_strFile);
    ASSERT_TRUE(other.LockAll());

    const Texts lines = PrintedBy([&] { m_cache.ScanOnce(); });

    EXPECT_EQ(Texts{"database is locked"}, lines);
    ASSERT_TRUE(other.Release());
    CachoRecord entry;
    EXPECT_TRUE(m_cache.GetRecord("key0", entry));  // would stand still if the mutex were held
}

TEST_F(CTevCloudCachoMgrTest, ALookupWaitsUntilAWholeScanHasEnded) {
    RecordNumbered(12);
    m_clock.Advance(1201);
    std::atomic<pid_t> nThread{0};
    std::atomic<bool> bEnded{false};
    bool bWaited = false;
    std::thread channel;
    const SqlTrace trace([&](const std::string& strStatement) {
        if (strStatement != "delete from cachotable where vkey = 'key0'") {
            return;
        }
        channel = std::thread([&] {
            nThread = gettid();
            CachoRecord entry;
            (void)m_cache.GetRecord("key11", entry);
            bEnded = true;
        });
        bWaited =
            Eventually([&] { return bEnded || (nThread != 0 && ThreadState(nThread) == "S"); }) &&
            !bEnded;
    });

    m_cache.ScanOnce();
    channel.join();

    EXPECT_TRUE(bWaited);
    EXPECT_EQ("commit transaction", trace.Statements().back());
    EXPECT_EQ("select * from cachotable  where vkey = 'key11'",
              trace.Statements()[trace.Statements().size() - 2]);
}

TEST_F(CTevCloudCachoMgrTest, TheScanLeavesItsPagesWhenAStopIsRequested) {
    RecordNumbered(25);
    m_clock.Advance(1201);
    Event stopped;
    const SqlTrace trace([&](const std::string& strStatement) {
        if (strStatement == "delete from cachotable where vkey = 'key3'") {
            (void)m_cache.stop();  // on the thread itself: requested only
            stopped.Set();
        }
    });
    const ShortWaits waits;

    ASSERT_TRUE(m_cache.Start(CThread::PriorityNormal));
    ASSERT_TRUE(stopped.Wait());
    m_cache.Exit();

    EXPECT_EQ(15u, Keys().size());
}

TEST_F(CTevCloudCachoMgrTest, TheThreadIsNamedAsFarAsTheKernelTakesItAndWaitsBeforeTheScan) {
    RecordNumbered(1);
    m_clock.Advance(1201);
    size_t nRowsAtFirstWait = 99;
    Event waited;
    const ShortWaits waits([&] {
        if (!waited.IsSet()) {
            nRowsAtFirstWait = Keys().size();
            waited.Set();
        }
    });

    ASSERT_TRUE(m_cache.Start(CThread::PriorityNormal));
    EXPECT_TRUE(Eventually([&] { return Keys().empty(); }));
    m_cache.Exit();

    EXPECT_EQ(1u, nRowsAtFirstWait);
    ASSERT_FALSE(waits.All().empty());
    EXPECT_EQ(300000u, waits.All()[0].nMilliseconds);
    EXPECT_EQ("CTevCloudCachoM", waits.All()[0].strThread);
}

TEST_F(CTevCloudCachoMgrTest, StartAndExitAreLogged) {
    const ShortWaits waits;
    LogCapture log;

    ASSERT_TRUE(m_cache.Start(CThread::PriorityNormal));
    ASSERT_TRUE(log.WaitFor("[CTevCloudCachoMgr]: CTevCloudCachoMgr start.\n"));
    m_cache.Exit();

    const auto started = log.Find("[CTevCloudCachoMgr]: CTevCloudCachoMgr start.\n");
    const auto exited = log.Find("[CTevCloudCachoMgr]: CTevCloudCachoMgr exit.\n");
    ASSERT_EQ(1u, started.size());
    ASSERT_EQ(1u, exited.size());
    EXPECT_EQ(2, started[0].nLevel);
    EXPECT_EQ(SOURCE, started[0].strSource);
    EXPECT_EQ("run", started[0].strFunction);
    EXPECT_EQ(2, exited[0].nLevel);
    EXPECT_EQ("Exit", exited[0].strFunction);
}

TEST_F(CTevCloudCachoMgrTest, AStartThatFailsIsLoggedAndReportedAsFalse) {
    LogCapture log;
    bool bStarted = true;
    Event tried;
    // A thread that was asked to end cannot start its own successor.
    const ShortWaits waits([&] {
        (void)m_cache.stop();
        bStarted = m_cache.Start(CThread::PriorityNormal);
        tried.Set();
    });

    ASSERT_TRUE(m_cache.Start(CThread::PriorityNormal));
    ASSERT_TRUE(tried.Wait());
    m_cache.Exit();

    EXPECT_FALSE(bStarted);
    const auto records = log.Find("[CTevCloudCachoMgr]: CThread::start faild.\n");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(4, records[0].nLevel);
    EXPECT_EQ("Start", records[0].strFunction);
}

TEST_F(CTevCloudCachoMgrTest, StartAndExitInEveryOrderOfSixEndWithoutAThread) {
    StartAndExitInEveryOrder(m_cache);
}

TEST_F(CTevCloudCachoMgrTest, ItsVirtualOperationsStandInTheThreadInterfacesSlotOrder) {
    SlotNames<CTevCloudCachoMgr> names;

    EXPECT_EQ(
        (Texts{"start", "stop", "pause", "recovery", "doPauseOrQuit", "pausedWaitCallback", "run"}),
        names.FromSlot2To8());
}

TEST_F(CTevCloudCachoMgrTest, ResultsForOneNewKeyAtOnceLeaveOneRow) {
    (void)PrintedBy([&] {
        std::vector<std::thread> transports;
        for (int i = 0; i < 4; ++i) {
            transports.emplace_back([&] { (void)m_cache.Record("K", 40, -1, 5, ""); });
        }
        for (std::thread& thread : transports) {
            thread.join();
        }
    });

    EXPECT_EQ(Texts{"K|40|1700000000|1200||5"}, Rows());
}

TEST_F(CTevCloudCachoMgrTest, RecordsAndLookupsGoOnWhileScansRun) {
    const ShortWaits waits;
    ASSERT_TRUE(m_cache.Start(CThread::PriorityNormal));
    std::vector<std::thread> callers;
    for (int nThread = 0; nThread < 3; ++nThread) {
        callers.emplace_back([this, nThread] {
            for (int i = 0; i < 20; ++i) {
                const std::string strKey = std::to_string(nThread) + "-" + std::to_string(i);
                CachoRecord entry;
                EXPECT_TRUE(m_cache.Record(strKey, 40, -1, 5, ""));
                EXPECT_TRUE(m_cache.GetRecord(strKey, entry));
            }
        });
    }

    for (std::thread& thread : callers) {
        thread.join();
    }
    m_cache.Exit();

    EXPECT_EQ(60u, Keys().size());
}
