#include "framework/sqlite/CppSQLite3.h"

#include <sqlite3.h>
#include <time.h>

#include <chrono>
#include <cstring>
#include <utility>

#include "framework/sqlite/ConnectionFence.h"
#include "framework/sqlite/FileFence.h"

namespace {

constexpr int PRIMARY_CODE_MASK = 0xff;

[[noreturn]] void ThrowLast(sqlite3* pDB, int nCode) {
    throw CppSQLite3Exception(nCode & PRIMARY_CODE_MASK, sqlite3_errmsg(pDB));
}

template <typename Handle>
void RequireHandle(const Handle* pHandle, const char* pszMessage) {
    if (pHandle == nullptr) {
        throw CppSQLite3Exception(CPPSQLITE_ERROR, pszMessage);
    }
}

// Releases a statement at the end of the block.
class CStmtGuard {
public:
    explicit CStmtGuard(sqlite3_stmt* pStmt) : m_pStmt(pStmt) {}
    ~CStmtGuard() { sqlite3_finalize(m_pStmt); }

    CStmtGuard(const CStmtGuard&) = delete;
    CStmtGuard& operator=(const CStmtGuard&) = delete;

    sqlite3_stmt* Get() const { return m_pStmt; }
    sqlite3_stmt* Release() { return std::exchange(m_pStmt, nullptr); }

private:
    sqlite3_stmt* m_pStmt;
};

// True when a row came, false at the end.
bool Step(sqlite3_stmt* pStmt, bool bLimited = true) {
    BeginFencedStep(bLimited);
    const int nResult = sqlite3_step(pStmt);
    if (nResult != SQLITE_ROW && nResult != SQLITE_DONE) {
        ThrowLast(sqlite3_db_handle(pStmt), nResult);
    }
    return nResult == SQLITE_ROW;
}

constexpr size_t ENDED_KEPT = 16;  // more than a host has threads that try again
constexpr int64_t ENDED_KEPT_MS = 10000;
constexpr size_t ENDED_LONGEST = 4096;  // bytes of a text that is kept

// Three hundred tries of less take seconds. The clock has ticks of some milliseconds and costs no
// system call.
constexpr int64_t LONG_NS = 10000000;

int64_t CoarseNanoseconds() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * 1000000000 + now.tv_nsec;
}

// What a look with a foreign text that failed so would fail with again. Code 14 is that of sorting
// more than fits into memory: there are no temporary files.
bool IsLasting(int nCode) {
    return nCode == SQLITE_ERROR || nCode == SQLITE_CANTOPEN || nCode == SQLITE_TOOBIG ||
           nCode == SQLITE_MISMATCH;
}

int64_t SteadyMilliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// A null name, when memory ran out, is like no other. The call is left to names that begin alike:
// the fields of one row would make it 28 times.
bool IsSameName(const char* pszField, const char* pszName) {
    return pszField != nullptr && ((*pszField ^ *pszName) & ~0x20) == 0 &&
           (strcmp(pszField, pszName) == 0 || sqlite3_stricmp(pszField, pszName) == 0);
}

// SQLite counts what it has read with 32 bits before it looks at its limit, so that a literal of
// 2 GiB takes it to addresses below the text.
bool IsTooLong(sqlite3* pDB, const char* pszSQL) {
    const auto nLimit = static_cast<size_t>(sqlite3_limit(pDB, SQLITE_LIMIT_SQL_LENGTH, -1));
    return strnlen(pszSQL, nLimit + 1) > nLimit;
}

bool IsBlank(const char* pszText) {
    return pszText == nullptr || pszText[strspn(pszText, " \t\n\f\r")] == '\0';
}

}  // namespace

CppSQLite3Exception::CppSQLite3Exception(int nErrCode, std::string strMessage)
    : m_nErrCode(nErrCode), m_strMessage(std::move(strMessage)) {}

CppSQLite3Exception::~CppSQLite3Exception() = default;

CppSQLite3Query::CppSQLite3Query(sqlite3_stmt* pStmt, bool bEof, bool bLimited,
                                 std::shared_ptr<FileFence> pFence)
    : m_pFence(std::move(pFence)), m_pStmt(pStmt), m_bEof(bEof), m_bLimited(bLimited) {}

CppSQLite3Query::CppSQLite3Query(CppSQLite3Query&& other) noexcept
    : m_pFence(std::move(other.m_pFence)),
      m_pStmt(std::exchange(other.m_pStmt, nullptr)),
      m_bEof(std::exchange(other.m_bEof, true)),
      m_bLimited(other.m_bLimited),
      m_names(std::move(other.m_names)) {}

CppSQLite3Query& CppSQLite3Query::operator=(CppSQLite3Query&& other) noexcept {
    if (this != &other) {
        finalize();
        m_pFence = std::move(other.m_pFence);
        m_pStmt = std::exchange(other.m_pStmt, nullptr);
        m_bEof = std::exchange(other.m_bEof, true);
        m_bLimited = other.m_bLimited;
        m_names.swap(other.m_names);  // ours is empty
    }
    return *this;
}

CppSQLite3Query::~CppSQLite3Query() {
    finalize();
}

void CppSQLite3Query::nextRow() {
    RequireHandle(m_pStmt, "the query is closed");
    if (m_bEof) {
        return;  // a further step would run the statement once more from its start
    }
    m_bEof = true;  // also when the step fails
    m_bEof = !Step(m_pStmt, m_bLimited);
}

void CppSQLite3Query::finalize() noexcept {
    sqlite3_finalize(std::exchange(m_pStmt, nullptr));
    m_pFence.reset();
    m_bEof = true;
    m_names.clear();
}

int CppSQLite3Query::getIntField(const char* pszName, int nNullValue) const {
    const int nField = FieldIndex(pszName);
    return sqlite3_column_type(m_pStmt, nField) == SQLITE_NULL
               ? nNullValue
               : sqlite3_column_int(m_pStmt, nField);
}

int64_t CppSQLite3Query::getInt64Field(const char* pszName, int64_t nNullValue) const {
    const int nField = FieldIndex(pszName);
    return sqlite3_column_type(m_pStmt, nField) == SQLITE_NULL
               ? nNullValue
               : sqlite3_column_int64(m_pStmt, nField);
}

std::string CppSQLite3Query::getStringField(const char* pszName, const char* pszNullValue) const {
    const std::string_view text = getTextField(pszName);
    // No text has no place either, not even an empty one.
    return text.data() == nullptr && pszNullValue != nullptr ? pszNullValue : std::string(text);
}

std::string_view CppSQLite3Query::getTextField(const char* pszName) const {
    const int nField = FieldIndex(pszName);
    if (sqlite3_column_type(m_pStmt, nField) == SQLITE_NULL) {
        return {};
    }
    const unsigned char* pText = sqlite3_column_text(m_pStmt, nField);
    if (pText == nullptr) {
        throw CppSQLite3Exception(SQLITE_NOMEM, sqlite3_errstr(SQLITE_NOMEM));
    }
    const int nBytes = sqlite3_column_bytes(m_pStmt, nField);
    return {reinterpret_cast<const char*>(pText), static_cast<size_t>(nBytes)};
}

int CppSQLite3Query::FieldIndex(const char* pszName) const {
    RequireHandle(m_pStmt, "the query is closed");
    RequireHandle(pszName, "no column name given");
    if (m_bEof) {
        throw CppSQLite3Exception(CPPSQLITE_ERROR, "the query stands on no row");
    }
    if (m_names.empty()) {
        const int nCount = sqlite3_column_count(m_pStmt);
        m_names.reserve(static_cast<size_t>(nCount));
        for (int nField = 0; nField < nCount; ++nField) {
            m_names.push_back(sqlite3_column_name(m_pStmt, nField));
        }
    }
    for (size_t nField = 0; nField < m_names.size(); ++nField) {
        if (IsSameName(m_names[nField], pszName)) {
            return static_cast<int>(nField);
        }
    }
    throw CppSQLite3Exception(CPPSQLITE_ERROR, std::string("the query has no column ") + pszName);
}

CppSQLite3DB::~CppSQLite3DB() {
    close();
}

void CppSQLite3DB::open(const char* pszFile) {
    close();
    RequireHandle(pszFile, "no database file given");
    // No mutex of SQLite's own: a connection and its queries belong to one caller at a time.
    constexpr int FLAGS = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    int nResult = OpenFenced(pszFile, FLAGS, m_pDB, m_pFence);
    if (nResult == SQLITE_OK) {
        nResult = FenceConnection(m_pDB);
    }
    if (nResult != SQLITE_OK) {
        const std::string strMessage =
            m_pDB == nullptr ? sqlite3_errstr(nResult) : sqlite3_errmsg(m_pDB);
        close();
        throw CppSQLite3Exception(nResult & PRIMARY_CODE_MASK, strMessage);
    }
}

void CppSQLite3DB::close() noexcept {
    // The form that waits for the last query, which then frees the connection.
    sqlite3_close_v2(std::exchange(m_pDB, nullptr));
    m_pFence.reset();
    m_ended.clear();
}

bool CppSQLite3DB::inTransaction() const {
    return m_pDB != nullptr && sqlite3_get_autocommit(m_pDB) == 0;
}

int CppSQLite3DB::execDML(const char* pszSQL) {
    const CStmtGuard stmt(Prepare(pszSQL));
    if (stmt.Get() == nullptr) {
        return 0;
    }
    // sqlite3_changes alone would repeat the last change's number for what changes nothing.
    const sqlite3_int64 nBefore = sqlite3_total_changes64(m_pDB);
    for (bool bRow = FirstStep(stmt.Get(), pszSQL); bRow; bRow = Step(stmt.Get())) {
    }
    return sqlite3_total_changes64(m_pDB) == nBefore ? 0 : sqlite3_changes(m_pDB);
}

int CppSQLite3DB::tryDML(const char* pszSQL, std::string& strError) {
    sqlite3_stmt* pStmt = nullptr;
    const char* pszError = nullptr;
    const int nPrepared = TryPrepare(pszSQL, pStmt, pszError);
    if (nPrepared != SQLITE_OK) {
        strError = pszError;
        return nPrepared;
    }
    const CStmtGuard stmt(pStmt);
    if (pStmt == nullptr) {
        return 0;
    }
    int nResult = SQLITE_ROW;
    while (nResult == SQLITE_ROW) {
        BeginFencedStep(true);
        nResult = sqlite3_step(pStmt);
    }
    if (nResult == SQLITE_DONE) {
        return 0;
    }
    strError = sqlite3_errmsg(m_pDB);
    KeepInMind(pStmt, pszSQL, nResult & PRIMARY_CODE_MASK, strError.c_str());
    return nResult & PRIMARY_CODE_MASK;
}

CppSQLite3Query CppSQLite3DB::execQuery(const char* pszSQL) {
    return Query(pszSQL, true);
}

CppSQLite3Query CppSQLite3DB::execOwnQuery(const char* pszSQL) {
    return Query(pszSQL, false);
}

CppSQLite3Query CppSQLite3DB::Query(const char* pszSQL, bool bLimited) {
    CStmtGuard stmt(Prepare(pszSQL));
    const bool bRow = stmt.Get() != nullptr &&
                      (bLimited ? FirstStep(stmt.Get(), pszSQL) : Step(stmt.Get(), bLimited));
    return CppSQLite3Query(stmt.Release(), !bRow, bLimited, m_pFence);
}

bool CppSQLite3DB::tableExists(const char* pszTable) {
    RequireHandle(pszTable, "no table name given");
    const CStmtGuard stmt(Prepare(
        "select count(*) from sqlite_master where type = 'table' and rootpage > 0 and name = ? "
        "collate nocase"));
    const int nResult = sqlite3_bind_text(stmt.Get(), 1, pszTable, -1, SQLITE_STATIC);
    if (nResult != SQLITE_OK) {
        ThrowLast(m_pDB, nResult);
    }
    return Step(stmt.Get()) && sqlite3_column_int(stmt.Get(), 0) > 0;
}

sqlite3_stmt* CppSQLite3DB::Prepare(const char* pszSQL) {
    sqlite3_stmt* pStmt = nullptr;
    const char* pszError = nullptr;
    const int nResult = TryPrepare(pszSQL, pStmt, pszError);
    if (nResult != SQLITE_OK) {
        throw CppSQLite3Exception(nResult, pszError);
    }
    return pStmt;
}

// 0 with the statement, or the code with its text, which lives until the connection's next call.
int CppSQLite3DB::TryPrepare(const char* pszSQL, sqlite3_stmt*& pStmt, const char*& pszError) {
    if (m_pDB == nullptr || pszSQL == nullptr) {
        pszError = m_pDB == nullptr ? "the database is not open" : "no statement given";
        return CPPSQLITE_ERROR;
    }
    if (const Ended* pEnded = FindEnded(pszSQL)) {
        pszError = pEnded->strError.c_str();
        return pEnded->nCode;
    }
    if (IsTooLong(m_pDB, pszSQL)) {
        pszError = sqlite3_errstr(SQLITE_TOOBIG);
        return SQLITE_TOOBIG;
    }
    m_nBegun = CoarseNanoseconds();
    const char* pszTail = nullptr;
    BeginFencedStep(true);  // the first one reads the file's tables, by statements of SQLite's own
    const int nResult = sqlite3_prepare_v2(m_pDB, pszSQL, -1, &pStmt, &pszTail);
    CStmtGuard stmt(pStmt);
    if (nResult != SQLITE_OK) {
        pszError = sqlite3_errmsg(m_pDB);
        return nResult & PRIMARY_CODE_MASK;
    }
    if (!IsBlank(pszTail)) {
        pszError = "text follows the statement";
        return SQLITE_ERROR;
    }
    pStmt = stmt.Release();
    return SQLITE_OK;
}

int CppSQLite3DB::tryPrepare(const char* pszSQL, std::string& strError) {
    sqlite3_stmt* pStmt = nullptr;
    const char* pszError = nullptr;
    const int nResult = TryPrepare(pszSQL, pStmt, pszError);
    const CStmtGuard stmt(nResult == SQLITE_OK ? pStmt : nullptr);
    if (nResult != SQLITE_OK) {
        strError = pszError;
    }
    return nResult;
}

// As Step, and keeps in mind what failed after a long time.
bool CppSQLite3DB::FirstStep(sqlite3_stmt* pStmt, const char* pszSQL) {
    try {
        return Step(pStmt);
    } catch (const CppSQLite3Exception& ex) {
        KeepInMind(pStmt, pszSQL, ex.errorCode(), ex.errorMessage());
        throw;
    }
}

bool CppSQLite3DB::TookLong() const {
    return CoarseNanoseconds() - m_nBegun >= LONG_NS;
}

void CppSQLite3DB::KeepInMind(sqlite3_stmt* pEnded, const char* pszSQL, int nCode,
                              const char* pszError) {
    // Of looks only: a commit that failed must not fail again because it did.
    const bool bLook = sqlite3_stmt_readonly(pEnded) != 0 && sqlite3_column_count(pEnded) > 0;
    const bool bLong = WasLongStep() || (bLook && IsLasting(nCode) && TookLong());
    if ((nCode != SQLITE_INTERRUPT && !bLong) || strlen(pszSQL) > ENDED_LONGEST) {
        return;
    }
    if (m_ended.size() >= ENDED_KEPT) {
        m_ended.erase(m_ended.begin());
    }
    m_ended.push_back({pszSQL, SteadyMilliseconds(), nCode, pszError});
}

const CppSQLite3DB::Ended* CppSQLite3DB::FindEnded(const char* pszSQL) const {
    for (const Ended& ended : m_ended) {
        if (ended.strSQL == pszSQL && SteadyMilliseconds() - ended.nMilliseconds < ENDED_KEPT_MS) {
            return &ended;
        }
    }
    return nullptr;
}
