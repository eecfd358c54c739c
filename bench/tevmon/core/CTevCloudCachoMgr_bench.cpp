// What a verdict costs against bare SQLite that executes the very same statement texts, made
// beforehand, on a file of its own: a new one recorded, one for a key that is known (300 statements
// that fail, each with its line on standard output), and the expiry scan, which walks the table in
// pages of ten and so steps over n * n / 20 rows.
#include "tevmon/core/CTevCloudCachoMgr.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <string>

#include "bench/support/Ratios.h"
#include "framework/base/Base64Util.h"
#include "tests/support/BareSqlite.h"
#include "tests/support/TestDir.h"

namespace {

constexpr int BATCH = 50;  // verdicts recorded between two clean-ups, which are not timed
constexpr int LEVEL = 10;
constexpr int TRIES = 300;
constexpr int PAGE = 10;

class Manager : public CTevCloudCachoMgr {
public:
    Manager() { SetRunning(true); }
    ~Manager() override = default;

    using CTevCloudCachoMgr::CheckRecords;
};

std::string KeyOf(int nNumber) {
    char text[80];
    (void)snprintf(text, sizeof(text), "%072x", nNumber);
    return text;
}

// Standard output goes nowhere while one lives: the lines are written, and no table is torn.
class Silence {
public:
    Silence() : m_nOld(dup(STDOUT_FILENO)) {
        const int nNull = open("/dev/null", O_WRONLY);
        (void)fflush(stdout);
        (void)dup2(nNull, STDOUT_FILENO);
        (void)close(nNull);
    }
    ~Silence() {
        (void)dup2(m_nOld, STDOUT_FILENO);
        (void)close(m_nOld);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int m_nOld;
};

// A cache of nRows living verdicts, with a manager on it and a bare connection beside it.
class Verdicts {
public:
    explicit Verdicts(int nRows)
        : m_pManager(new Manager), m_bare(m_dir.Database("tevcloudcacho.db")) {
        m_bare.Execute("begin transaction");
        for (int i = 0; i < nRows; ++i) {
            m_bare.Execute(InsertOf(KeyOf(i), time(nullptr)));
        }
        m_bare.Execute("commit transaction");
    }

    void RecordByManager(int nKey, bool bStored) {
        if (m_pManager->Record(KeyOf(nKey), LEVEL, CTevCloudCachoMgr::DEFAULT_LIFETIME, 5, "") !=
            bStored) {
            Fail();
        }
    }
    void RecordNewBare(int nKey) {
        Lookup(KeyOf(nKey));
        Change(InsertOf(KeyOf(nKey), time(nullptr)));
    }
    // The statement that fails, its text to standard output as a line each, as it comes.
    void RecordKnownBare(int nKey) {
        const std::string strKey = KeyOf(nKey);
        Lookup(strKey);
        const int64_t tmNow = time(nullptr);
        for (int i = 0; i < TRIES; ++i) {
            m_bare.Execute("begin transaction");
            const std::string strError = m_bare.ErrorOf(
                "update cachotable set vkey = '" + strKey +
                "',level = 10,tmcreate = " + std::to_string(tmNow) +
                ",tminternal = 1296000,detail = '',mid = 5)where vkey = '" + strKey + "'");
            m_bare.Execute("rollback transaction");
            if (write(STDOUT_FILENO, (strError + "\n").data(), strError.size() + 1) < 0) {
                Fail();
            }
        }
    }
    void ScanByManager() { m_pManager->CheckRecords(); }
    void ScanBare() {
        int nOffset = 0;
        for (int nRead = PAGE; nRead > 0; nOffset += nRead) {
            nRead = 0;
            m_bare.Execute("begin transaction");
            m_bare.Execute("select * from cachotable limit " + std::to_string(nOffset) + ",10",
                           [&](sqlite3_stmt* pRow) {
                               ++nRead;
                               if (!IsCachoValid(Row(pRow), time(nullptr))) {
                                   Fail();
                               }
                           });
            m_bare.Execute("commit transaction");
        }
    }
    void DropFrom(int nKey) {
        m_bare.Execute("delete from cachotable where vkey >= '" + KeyOf(nKey) + "'");
    }

private:
    [[noreturn]] static void Fail() {
        (void)fputs("the cache failed\n", stderr);
        abort();
    }
    static std::string InsertOf(const std::string& strKey, int64_t tmCreate) {
        return "insert into cachotable(vkey,level,tmcreate,tminternal,detail,mid) values('" +
               strKey + "',10," + std::to_string(tmCreate) + ",1296000,'',5)";
    }
    static CachoRecord Row(sqlite3_stmt* pRow) {
        CachoRecord record;
        record.id = sqlite3_column_int64(pRow, 0);
        record.key = BareSqlite::Text(pRow, 1);
        record.nLevel = sqlite3_column_int(pRow, 2);
        record.nTmCreate = sqlite3_column_int64(pRow, 3);
        record.nTmInterval = sqlite3_column_int64(pRow, 4);
        record.strDetail = BareSqlite::Text(pRow, 5);
        record.eMid = sqlite3_column_int(pRow, 6);
        return record;
    }
    void Lookup(const std::string& strKey) {
        m_bare.Execute("begin transaction");
        m_bare.Execute("select * from cachotable  where vkey = '" + strKey + "'",
                       [](sqlite3_stmt* pRow) { benchmark::DoNotOptimize(Row(pRow)); });
        m_bare.Execute("commit transaction");
    }
    void Change(const std::string& strStatement) {
        m_bare.Execute("begin transaction");
        m_bare.Execute(strStatement);
        m_bare.Execute("commit transaction");
    }

    TestDir m_dir;
    std::unique_ptr<Manager> m_pManager;
    BareSqlite m_bare;
};

// One per side and size, made at first use.
Verdicts& VerdictsOf(bool bManager, int nRows) {
    static std::map<std::pair<bool, int>, std::unique_ptr<Verdicts>> s_verdicts;
    std::unique_ptr<Verdicts>& pVerdicts = s_verdicts[{bManager, nRows}];
    if (pVerdicts == nullptr) {
        pVerdicts = std::make_unique<Verdicts>(nRows);
    }
    return *pVerdicts;
}

Comparison::Side New(bool bManager) {
    return [=](benchmark::State& state) {
        Verdicts& verdicts = VerdictsOf(bManager, 10);
        for (auto _ : state) {
            for (int i = 0; i < BATCH; ++i) {
                if (bManager) {
                    verdicts.RecordByManager(100 + i, true);
                } else {
                    verdicts.RecordNewBare(100 + i);
                }
            }
            state.PauseTiming();
            verdicts.DropFrom(100);
            state.ResumeTiming();
        }
    };
}

Comparison::Side Known(bool bManager) {
    return [=](benchmark::State& state) {
        Verdicts& verdicts = VerdictsOf(bManager, 10);
        const Silence silence;
        for (auto _ : state) {
            if (bManager) {
                verdicts.RecordByManager(5, false);
            } else {
                verdicts.RecordKnownBare(5);
            }
        }
    };
}

Comparison::Side Scan(bool bManager, int nRows) {
    return [=](benchmark::State& state) {
        Verdicts& verdicts = VerdictsOf(bManager, nRows);
        for (auto _ : state) {
            if (bManager) {
                verdicts.ScanByManager();
            } else {
                verdicts.ScanBare();
            }
        }
    };
}

constexpr int SCAN_ROUNDS = 15;

const bool REGISTERED = Compare({"record of a new verdict : the same statements", 1.05, New(true),
                                 New(false), BATCH}) &&
                        Compare({"record of a known key, 300 tries : the same statements", 1.10,
                                 Known(true), Known(false)}) &&
                        Compare({"expiry scan of 1,000 rows : the same statements", 0,
                                 Scan(true, 1000), Scan(false, 1000), 1, SCAN_ROUNDS}) &&
                        Compare({"expiry scan of 10,000 rows : the same statements", 1.05,
                                 Scan(true, 10000), Scan(false, 10000), 1, SCAN_ROUNDS}) &&
                        Compare({"expiry scan, quadratic by design: 10,000 rows : 1,000", 0,
                                 Scan(true, 10000), Scan(true, 1000), 1, SCAN_ROUNDS}) &&
                        Compare({"expiry scan, quadratic by design: 30,000 rows : 10,000", 0,
                                 Scan(true, 30000), Scan(true, 10000), 1, 3});

}  // namespace
