// The channel's store against bare SQLite that executes the very same statement texts, made
// beforehand, on a file of its own beside the store's; then the store against itself with a backlog
// of a million messages and of ten, and the memory that it holds with each.
#include "tevmon/core/CTevChennalDB.h"

#include <malloc.h>

#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/Ratios.h"
#include "framework/base/Base64Util.h"
#include "tests/support/BareSqlite.h"
#include "tests/support/TestDir.h"

namespace {

constexpr int BATCH = 50;  // operations between two clean-ups, which are not timed
constexpr int MID = 5;
constexpr int64_t CREATETIME = 1700000000;
constexpr size_t MESSAGE_BYTES = 5000;
constexpr size_t SMALL_BYTES = 100;  // a million of these fit a memory file system
constexpr int MANY = 1000000;
constexpr int FEW = 10;

class Store : public CTevChennalDB {};

std::string InsertOf(const std::string& strBase64) {
    return "insert into msgchennal(createtime,detail,mid) values('" + std::to_string(CREATETIME) +
           "','" + strBase64 + "'," + std::to_string(MID) + ")";
}

// A directory with a queue of nRows messages, a store on it and a bare connection beside it.
class Queue {
public:
    Queue(int nRows, size_t nBytes)
        : m_record{0, CREATETIME, std::string(nBytes, 'm'), MID},
          m_strInsert(InsertOf(Base64Util::Base64Encode(m_record.detail))),
          m_pStore(new Store),
          m_bare(m_dir.Database("tevchennaldb.db")),
          m_keeper(m_dir.Database("tevchennaldb.db")) {
        m_keeper.Execute(
            "with n(i) as (select 1 union all select i + 1 from n limit " + std::to_string(nRows) +
            ") insert into msgchennal(createtime,detail,mid) " + "select '1700000000','" +
            Base64Util::Base64Encode(m_record.detail) + "',5 from n");
    }

    void PushByStore() { Expect(m_pStore->Insert(m_record) == 0); }
    void PushBare() { PushText(m_strInsert); }
    void PushBareBuilding() { PushText(InsertOf(Base64Util::Base64Encode(m_record.detail))); }
    void FetchAndRemoveByStore() {
        std::list<ChennalRecord> records;
        Expect(m_pStore->Fetch(records, 1) == 0 && records.size() == 1);
        Expect(m_pStore->Remove(records.front().id) == 0);
    }
    void FetchAndRemoveBare(bool bDecode) {
        std::list<ChennalRecord> records;
        m_bare.Execute("select * from msgchennal limit 0,1", [&](sqlite3_stmt* pRow) {
            ChennalRecord record;
            record.id = sqlite3_column_int64(pRow, 0);
            record.createtime = sqlite3_column_int(pRow, 1);
            record.detail = BareSqlite::Text(pRow, 2);
            record.mid = sqlite3_column_int(pRow, 3);
            if (bDecode) {
                record.detail = Base64Util::Base64Decode(record.detail);
            }
            records.push_back(std::move(record));
        });
        m_bare.Execute("begin transaction");
        m_bare.Execute("delete from msgchennal where id = " + std::to_string(records.front().id));
        m_bare.Execute("commit transaction");
    }
    // Back to nRows, in one transaction.
    void DropNewest(int nCount) {
        m_keeper.Execute("delete from msgchennal where id > (select max(id) from msgchennal) - " +
                         std::to_string(nCount));
    }
    void AddNewest(int nCount) {
        m_keeper.Execute("begin transaction");
        for (int i = 0; i < nCount; ++i) {
            m_keeper.Execute(m_strInsert);
        }
        m_keeper.Execute("commit transaction");
    }
    // What a store takes that has been opened and has returned and deleted a batch.
    double BytesOfAStore() {
        AddNewest(BATCH);
        m_pStore.reset();
        std::filesystem::current_path(m_dir.Path() + "/run");  // another queue's by now
        const size_t nBefore = mallinfo2().uordblks;
        m_pStore.reset(new Store);
        for (int i = 0; i < BATCH; ++i) {
            FetchAndRemoveByStore();
        }
        const size_t nAfter = mallinfo2().uordblks;
        return static_cast<double>(nAfter - nBefore);
    }

private:
    static void Expect(bool bTrue) {
        if (!bTrue) {
            fprintf(stderr, "the store failed\n");
            abort();
        }
    }
    void PushText(const std::string& strInsert) {
        m_bare.Execute("begin transaction");
        m_bare.Execute(strInsert);
        m_bare.Execute("commit transaction");
    }

    TestDir m_dir;
    ChennalRecord m_record;
    std::string m_strInsert;
    std::unique_ptr<Store> m_pStore;
    BareSqlite m_bare;
    BareSqlite m_keeper;  // keeps the number of rows, so that both sides see a foreign change
};

// One per size and side, made at first use; each side works on a file of its own.
Queue& QueueOf(const std::string& strSide, int nRows, size_t nBytes) {
    static std::map<std::string, std::unique_ptr<Queue>> s_queues;
    const std::string strName = strSide + std::to_string(nRows) + " " + std::to_string(nBytes);
    std::unique_ptr<Queue>& pQueue = s_queues[strName];
    if (pQueue == nullptr) {
        pQueue = std::make_unique<Queue>(nRows, nBytes);
    }
    return *pQueue;
}

using Operation = std::function<void(Queue&)>;

Comparison::Side Push(const std::string& strSide, int nRows, size_t nBytes, const Operation& push) {
    return [=](benchmark::State& state) {
        Queue& queue = QueueOf(strSide, nRows, nBytes);
        for (auto _ : state) {
            for (int i = 0; i < BATCH; ++i) {
                push(queue);
            }
            state.PauseTiming();
            queue.DropNewest(BATCH);
            state.ResumeTiming();
        }
    };
}

Comparison::Side Drain(const std::string& strSide, int nRows, size_t nBytes,
                       const Operation& drain) {
    return [=](benchmark::State& state) {
        Queue& queue = QueueOf(strSide, nRows, nBytes);
        for (auto _ : state) {
            state.PauseTiming();
            queue.AddNewest(BATCH);
            state.ResumeTiming();
            for (int i = 0; i < BATCH; ++i) {
                drain(queue);
            }
        }
    };
}

Comparison::Side Memory(int nRows) {
    return [=](benchmark::State& state) {
        Queue& queue = QueueOf("store", nRows, SMALL_BYTES);
        for (auto _ : state) {
            state.counters["bytes"] = queue.BytesOfAStore();
        }
    };
}

const Operation PUSH = [](Queue& queue) { queue.PushByStore(); };
const Operation PUSH_BARE = [](Queue& queue) { queue.PushBare(); };
const Operation PUSH_BARE_BUILDING = [](Queue& queue) { queue.PushBareBuilding(); };
const Operation DRAIN = [](Queue& queue) { queue.FetchAndRemoveByStore(); };
const Operation DRAIN_BARE = [](Queue& queue) { queue.FetchAndRemoveBare(false); };
const Operation DRAIN_BARE_DECODING = [](Queue& queue) { queue.FetchAndRemoveBare(true); };

bool AgainstBare(const std::string& strName, double dTarget, const Comparison::Side& subject,
                 const Comparison::Side& reference) {
    return Compare({strName, dTarget, subject, reference, BATCH});
}

// Each size in its own right, and once with the Base64 that the store is for made there too.
bool AgainstBareOf(const std::string& strSize, size_t nBytes, double dPushTarget,
                   double dDrainTarget) {
    return AgainstBare("push " + strSize + " : the same statements", dPushTarget,
                       Push("store", FEW, nBytes, PUSH), Push("bare", FEW, nBytes, PUSH_BARE)) &&
           AgainstBare("push " + strSize + " : the same, Base64 and text made there too",
                       dPushTarget, Push("store", FEW, nBytes, PUSH),
                       Push("bare", FEW, nBytes, PUSH_BARE_BUILDING)) &&
           AgainstBare("fetch+remove " + strSize + " : the same statements", dDrainTarget,
                       Drain("store", FEW, nBytes, DRAIN),
                       Drain("bare", FEW, nBytes, DRAIN_BARE)) &&
           AgainstBare("fetch+remove " + strSize + " : the same, Base64 undone there too",
                       dDrainTarget, Drain("store", FEW, nBytes, DRAIN),
                       Drain("bare", FEW, nBytes, DRAIN_BARE_DECODING));
}

bool Growth(const std::string& strRows, int nRows) {
    return AgainstBare("push, " + strRows + " rows : 10 rows", 1.05,
                       Push("store", nRows, SMALL_BYTES, PUSH),
                       Push("store", FEW, SMALL_BYTES, PUSH)) &&
           AgainstBare("fetch+remove, " + strRows + " rows : 10 rows", 1.05,
                       Drain("store", nRows, SMALL_BYTES, DRAIN),
                       Drain("store", FEW, SMALL_BYTES, DRAIN));
}

constexpr int TURNS = 400;  // operations of a side with threads

// Pushes nEach messages on each of nThreads threads while this one drains nDrained, oldest first.
void PushTogether(Queue& queue, int nThreads, int nEach, int nDrained) {
    std::vector<std::thread> threads;
    for (int i = 0; i < nThreads; ++i) {
        threads.emplace_back([&queue, nEach] {
            for (int n = 0; n < nEach; ++n) {
                queue.PushByStore();
            }
        });
    }
    for (int n = 0; n < nDrained; ++n) {
        queue.FetchAndRemoveByStore();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

Comparison::Side Together(int nThreads, int nEach, int nDrained) {
    return [=](benchmark::State& state) {
        Queue& queue = QueueOf("together", FEW, MESSAGE_BYTES);
        for (auto _ : state) {
            state.PauseTiming();
            queue.AddNewest(nDrained);
            state.ResumeTiming();
            PushTogether(queue, nThreads, nEach, nDrained);
            state.PauseTiming();
            queue.DropNewest(nThreads * nEach);
            state.ResumeTiming();
        }
    };
}

const bool REGISTERED =
    AgainstBareOf("500 B", 500, 1.02, 1.03) && AgainstBareOf("5 KB", MESSAGE_BYTES, 1.05, 1.06) &&
    AgainstBareOf("50 KB", 50000, 1.10, 1.12) && Growth("1,000", 1000) &&
    Growth("100,000", 100000) && Growth("1,000,000", MANY) &&
    AgainstBare("bare SQLite: push, 1,000,000 rows : 10 rows", 0,
                Push("bare", MANY, SMALL_BYTES, PUSH_BARE),
                Push("bare", FEW, SMALL_BYTES, PUSH_BARE)) &&
    AgainstBare("bare SQLite: fetch+remove, 1,000,000 rows : 10 rows", 0,
                Drain("bare", MANY, SMALL_BYTES, DRAIN_BARE),
                Drain("bare", FEW, SMALL_BYTES, DRAIN_BARE)) &&
    Compare({"memory of the store, 1,000,000 rows : 10 rows", 1.05, Memory(MANY), Memory(FEW)}) &&
    Compare({"wall time per push: two threads push : one pushes all", 0, Together(2, TURNS / 2, 0),
             Together(1, TURNS, 0), TURNS, 0, true}) &&
    Compare({"wall time: a push beside a drain : one after the other", 0,
             Together(1, TURNS / 2, TURNS / 2),
             [](benchmark::State& state) {
                 Queue& queue = QueueOf("together", FEW, MESSAGE_BYTES);
                 for (auto _ : state) {
                     PushTogether(queue, 1, TURNS / 2, 0);
                     PushTogether(queue, 0, 0, TURNS / 2);
                 }
             },
             TURNS, 0, true});

}  // namespace
