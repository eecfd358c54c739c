// What one operation of the stores asks of the kernel, where times depend on the machine: the very
// calls that bare SQLite makes for the same statements, in the same order. The literal counts are
// those of Debian 12's SQLite 3.40.
#include "tevmon/core/CTevStore.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <list>
#include <memory>

#include "framework/base/Base64Util.h"
#include "tests/support/BareSqlite.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TestDir.h"
#include "tevmon/core/CTevChennalDB.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

namespace {

constexpr char KEY[] = "a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72";

class Channel : public CTevChennalDB {};
class Cache : public CTevCloudCachoMgr {};

const std::string MESSAGE(5000, 'm');

}  // namespace

class StoreSystemCallsTest : public testing::Test {
protected:
    void SetUp() override {
        if (!SystemCallsOf([] {})) {
            GTEST_SKIP() << "a process may not trace its own child here";
        }
    }

    using Prepare = std::function<void()>;

    // Each in a directory of its own that was prepared in the same way; the database is opened in
    // the child, so that no lock and no descriptor is shared with it.
    static std::vector<long> OfBare(const char* pszFile, const Prepare& prepare,
                                    const std::function<void(BareSqlite&)>& operation) {
        const TestDir dir;
        prepare();
        std::unique_ptr<BareSqlite> pBare;
        return SystemCallsOf([&] {
                   if (pBare == nullptr) {
                       pBare = std::make_unique<BareSqlite>(dir.Database(pszFile));
                   }
                   operation(*pBare);
               })
            .value();
    }
    template <class Store>
    static std::vector<long> OfStore(const Prepare& prepare,
                                     const std::function<void(Store&)>& operation) {
        const TestDir dir;
        prepare();
        std::unique_ptr<Store> pStore;
        return SystemCallsOf([&] {
                   if (pStore == nullptr) {
                       pStore = std::make_unique<Store>();
                   }
                   operation(*pStore);
               })
            .value();
    }
    static void QueueFour() {
        Channel store;
        for (int i = 0; i < 4; ++i) {
            ASSERT_EQ(0, store.Insert({0, 1700000000, MESSAGE, 5}));
        }
    }
    static void RecordKey() { ASSERT_TRUE(Cache().Record(KEY, 10, -1, 5, "")); }
    static void Change(BareSqlite& bare, const std::string& strStatement) {
        bare.Execute("begin transaction");
        bare.Execute(strStatement);
        bare.Execute("commit transaction");
    }
    static void Lookup(BareSqlite& bare) {
        bare.Execute("begin transaction");
        bare.Execute(std::string("select * from cachotable  where vkey = '") + KEY + "'");
        bare.Execute("commit transaction");
    }
};

TEST_F(StoreSystemCallsTest, APushMakesTheCallsOfBareSqlite) {
    const std::string strInsert =
        "insert into msgchennal(createtime,detail,mid) values('1700000000','" +
        Base64Util::Base64Encode(MESSAGE) + "',5)";

    const auto calls = OfStore<Channel>(QueueFour, [](Channel& store) {
        (void)store.Insert({0, 1700000000, MESSAGE, 5});
    });

    EXPECT_EQ(
        OfBare("tevchennaldb.db", QueueFour, [&](BareSqlite& bare) { Change(bare, strInsert); }),
        calls);
    EXPECT_EQ(
        "close 1, fcntl 9, getpid 1, newfstatat 6, openat 1, pread64 1, pwrite64 15, unlink 1",
        Summary(calls));
}

TEST_F(StoreSystemCallsTest, AFetchWithItsRemovalMakesTheCallsOfBareSqlite) {
    int nId = 0;

    const auto calls = OfStore<Channel>(QueueFour, [](Channel& store) {
        std::list<ChennalRecord> records;
        (void)store.Fetch(records, 1);
        (void)store.Remove(records.front().id);
    });

    EXPECT_EQ(OfBare("tevchennaldb.db", QueueFour,
                     [&](BareSqlite& bare) {
                         bare.Execute("select * from msgchennal limit 0,1",
                                      [&](sqlite3_stmt* pRow) {
                                          nId = sqlite3_column_int(pRow, 0);
                                          (void)BareSqlite::Text(pRow, 2);
                                      });
                         Change(bare, "delete from msgchennal where id = " + std::to_string(nId));
                     }),
              calls);
    EXPECT_EQ(
        "close 1, fcntl 13, getpid 1, newfstatat 9, openat 1, pread64 4, pwrite64 29, unlink 1",
        Summary(calls));
}

TEST_F(StoreSystemCallsTest, ALookupMakesTheCallsOfBareSqlite) {
    CachoRecord record;

    const auto calls =
        OfStore<Cache>(RecordKey, [&](Cache& cache) { (void)cache.GetRecord(KEY, record); });

    EXPECT_EQ(OfBare("tevcloudcacho.db", RecordKey, Lookup), calls);
    EXPECT_EQ("fcntl 4, newfstatat 3, pread64 1", Summary(calls));
}

TEST_F(StoreSystemCallsTest, ARecordMakesTheCallsOfALookupAndAnInsert) {
    int nRecorded = 0;
    int nInserted = 0;

    const auto calls = OfStore<Cache>(RecordKey, [&](Cache& cache) {
        (void)cache.Record("new" + std::to_string(nRecorded++), 10, -1, 5, "");
    });

    const std::string strPrefix =
        "insert into cachotable(vkey,level,tmcreate,tminternal,detail,mid) values('new";
    EXPECT_EQ(OfBare("tevcloudcacho.db", RecordKey,
                     [&](BareSqlite& bare) {
                         Lookup(bare);
                         Change(bare, strPrefix + std::to_string(nInserted++) +
                                          "',10,1700000000,1296000,'',5)");
                     }),
              calls);
    EXPECT_EQ(
        "close 1, fcntl 13, getpid 1, newfstatat 9, openat 1, pread64 2, pwrite64 13, unlink 1",
        Summary(calls));
}

TEST_F(StoreSystemCallsTest, ARecordOfAKnownKeyWritesItsThreeHundredLinesAtOnce) {
    const auto calls = OfStore<Cache>(RecordKey, [](Cache& cache) {
        const int nFile = open("lines", O_WRONLY | O_CREAT | O_APPEND, 0600);
        (void)dup2(nFile, STDOUT_FILENO);
        (void)close(nFile);
        (void)cache.Record(KEY, 10, -1, 5, "");
    });

    EXPECT_EQ(
        "close 1, dup2 1, fcntl 5, newfstatat 4, openat 1, pread64 1, rt_sigpending 1, "
        "rt_sigprocmask 2, "
        "rt_sigtimedwait 2, write 1",
        Summary(calls));
}
