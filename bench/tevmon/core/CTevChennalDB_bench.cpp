// The channel's store against bare SQLite that executes the very same statement texts, made
// beforehand, on a file of its own beside the store's; then the store against itself with a backlog
// of a million messages and of ten, and the memory that it holds with each.
#include "tevmon/core/CTevChennalDB.h"

#include <malloc.h>

#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "bench/support/BareSqlite.h"
#include "bench/support/Ratios.h"
#include "framework/base/Base64Util.h"
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
    // What a store takes that has been opened and has handed out and deleted a batch.
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

const bool REGISTERED =
    AgainstBare("push 5 KB : the same statements", 1.05, Push("store", FEW, MESSAGE_BYTES, PUSH),
                Push("bare", FEW, MESSAGE_BYTES, PUSH_BARE)) &&
    AgainstBare("push 5 KB : the same, Base64 and text made there too", 1.05,
                Push("store", FEW, MESSAGE_BYTES, PUSH),
                Push("bare", FEW, MESSAGE_BYTES, PUSH_BARE_BUILDING)) &&
    AgainstBare("fetch+remove 5 KB : the same statements", 1.05,
                Drain("store", FEW, MESSAGE_BYTES, DRAIN),
                Drain("bare", FEW, MESSAGE_BYTES, DRAIN_BARE)) &&
    AgainstBare("fetch+remove 5 KB : the same, Base64 undone there too", 1.05,
                Drain("store", FEW, MESSAGE_BYTES, DRAIN),
                Drain("bare", FEW, MESSAGE_BYTES, DRAIN_BARE_DECODING)) &&
    AgainstBare("push, 1,000,000 rows : 10 rows", 1.05, Push("store", MANY, SMALL_BYTES, PUSH),
                Push("store", FEW, SMALL_BYTES, PUSH)) &&
    AgainstBare("fetch+remove, 1,000,000 rows : 10 rows", 1.05,
                Drain("store", MANY, SMALL_BYTES, DRAIN),
                Drain("store", FEW, SMALL_BYTES, DRAIN)) &&
    AgainstBare("the same of bare SQLite: push", 0, Push("bare", MANY, SMALL_BYTES, PUSH_BARE),
                Push("bare", FEW, SMALL_BYTES, PUSH_BARE)) &&
    AgainstBare("the same of bare SQLite: fetch+remove", 0,
                Drain("bare", MANY, SMALL_BYTES, DRAIN_BARE),
                Drain("bare", FEW, SMALL_BYTES, DRAIN_BARE)) &&
    Compare({"memory of the store, 1,000,000 rows : 10 rows", 1.05, Memory(MANY), Memory(FEW)});

}  // namespace
