// The lookup in the verdict cache against bare SQLite that executes the very same statement texts,
// made beforehand, on the same file; and the lookup among a million verdicts against one among ten,
// the keys asked for in a mixed order.
#include "tevmon/core/CTevCloudCachoDB.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/Ratios.h"
#include "framework/base/Base64Util.h"
#include "tests/support/BareSqlite.h"
#include "tests/support/TestDir.h"

namespace {

constexpr int MANY = 1000000;
constexpr int FEW = 10;
constexpr int ASKED = 4096;  // different keys asked for, where there are as many

// 72 hexadecimal digits, mixed by a multiplication so that neighbours lie far apart.
std::string KeyOf(uint64_t nNumber) {
    char text[80];
    const uint64_t nMixed = (nNumber + 1) * 0x9e3779b97f4a7c15ULL;
    snprintf(text, sizeof(text), "%016llx%056llx", static_cast<unsigned long long>(nMixed),
             static_cast<unsigned long long>(nNumber));
    return text;
}

class Cache {
public:
    explicit Cache(int nRows)
        : m_pStore(new CTevCloudCachoDB), m_bare(m_dir.Database("tevcloudcacho.db")) {
        m_bare.Execute("begin transaction");
        for (int i = 0; i < nRows; ++i) {
            m_bare.Execute("insert into cachotable(vkey,level,tmcreate,tminternal,detail,mid) " +
                           ("values('" + KeyOf(static_cast<uint64_t>(i))) +
                           "',10,1700000000,1296000,'',5)");
        }
        m_bare.Execute("commit transaction");
        for (int i = 0; i < ASKED; ++i) {
            // A step that meets every row of a million, and each of ten in turn.
            const int64_t nRow = static_cast<int64_t>(i) * 7919 % nRows;
            m_keys.push_back(KeyOf(static_cast<uint64_t>(nRow)));
            m_statements.push_back(StatementOf(m_keys.back()));
        }
    }

    static std::string StatementOf(const std::string& strKey) {
        return "select * from cachotable  where vkey = '" + strKey + "'";
    }

    int ByStore(const std::string& strKey) {
        CachoRecord record;
        return m_pStore->Select(strKey, record);
    }
    int Bare(const std::string& strStatement) {
        CachoRecord record;
        int nFound = 0;
        m_bare.Execute("begin transaction");
        m_bare.Execute(strStatement.c_str(), [&](sqlite3_stmt* pRow) {
            record.id = sqlite3_column_int64(pRow, 0);
            record.key = BareSqlite::Text(pRow, 1);
            record.nLevel = sqlite3_column_int(pRow, 2);
            record.nTmCreate = sqlite3_column_int64(pRow, 3);
            record.nTmInterval = sqlite3_column_int64(pRow, 4);
            record.strDetail = BareSqlite::Text(pRow, 5);
            record.eMid = sqlite3_column_int(pRow, 6);
            ++nFound;
        });
        m_bare.Execute("commit transaction");
        return nFound;
    }
    const std::string& Key(size_t nTurn) const { return m_keys[nTurn % ASKED]; }
    const std::string& Statement(size_t nTurn) const { return m_statements[nTurn % ASKED]; }

private:
    TestDir m_dir;
    std::unique_ptr<CTevCloudCachoDB> m_pStore;
    BareSqlite m_bare;
    std::vector<std::string> m_keys;
    std::vector<std::string> m_statements;
};

// One per size, made at first use.
Cache& CacheOf(int nRows) {
    static std::map<int, std::unique_ptr<Cache>> s_caches;
    std::unique_ptr<Cache>& pCache = s_caches[nRows];
    if (pCache == nullptr) {
        pCache = std::make_unique<Cache>(nRows);
    }
    return *pCache;
}

Comparison::Side Known(int nRows, bool bStore) {
    return [=](benchmark::State& state) {
        Cache& cache = CacheOf(nRows);
        size_t nTurn = 0;
        int nFound = 1;
        for (auto _ : state) {
            nFound &= bStore ? cache.ByStore(cache.Key(nTurn)) : cache.Bare(cache.Statement(nTurn));
            ++nTurn;
        }
        if (nFound != 1) {
            state.SkipWithError("a key that stands there was not found");
        }
    };
}

Comparison::Side Unknown(int nRows, bool bStore) {
    return [=](benchmark::State& state) {
        Cache& cache = CacheOf(nRows);
        const std::string strKey(72, 'f');
        const std::string strStatement = Cache::StatementOf(strKey);
        for (auto _ : state) {
            benchmark::DoNotOptimize(bStore ? cache.ByStore(strKey) : cache.Bare(strStatement));
        }
    };
}

const bool REGISTERED = Compare({"lookup of a known key : the same statements, 10 rows", 1.03,
                                 Known(FEW, true), Known(FEW, false)}) &&
                        Compare({"lookup of an unknown key : the same statements, 10 rows", 1.03,
                                 Unknown(FEW, true), Unknown(FEW, false)}) &&
                        Compare({"lookup of a known key : the same statements, 1,000,000 rows",
                                 1.03, Known(MANY, true), Known(MANY, false)}) &&
                        Compare({"lookup of an unknown key, 1,000,000 rows : 10 rows", 1.05,
                                 Unknown(MANY, true), Unknown(FEW, true)}) &&
                        Compare({"lookup of 4,096 known keys, 1,000,000 rows : 10 rows", 0,
                                 Known(MANY, true), Known(FEW, true)}) &&
                        Compare({"bare SQLite: lookup of 4,096 known keys, 1,000,000 rows : 10", 0,
                                 Known(MANY, false), Known(FEW, false)});

}  // namespace
