#include "host/view/ReadOnlyDb.h"

#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <memory>
#include <system_error>

#include "host/Text.h"

namespace {

constexpr const char* STATE_DIR_REMEDY = "check --state-dir";
constexpr const char* MOVE_REMEDY =
    "move the file away and start the module, which makes a new one";

struct StatementCloser {
    void operator()(sqlite3_stmt* pStatement) const { sqlite3_finalize(pStatement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

std::optional<int64_t> DecimalNumber(const std::string& strText) {
    int64_t nNumber = 0;
    const char* pEnd = strText.data() + strText.size();
    const auto [pStop, error] = std::from_chars(strText.data(), pEnd, nNumber);
    if (error != std::errc() || pStop != pEnd) {
        return std::nullopt;
    }
    return nNumber;
}

DbValue ReadValue(sqlite3_stmt* pStatement, int nColumn) {
    DbValue value;
    const int nType = sqlite3_column_type(pStatement, nColumn);
    if (nType == SQLITE_NULL) {
        return value;
    }
    if (nType == SQLITE_INTEGER) {
        value.nNumber = sqlite3_column_int64(pStatement, nColumn);
    }
    const void* pBytes = nType == SQLITE_BLOB ? sqlite3_column_blob(pStatement, nColumn)
                                              : sqlite3_column_text(pStatement, nColumn);
    const int nBytes = sqlite3_column_bytes(pStatement, nColumn);
    if (pBytes != nullptr && nBytes > 0) {
        value.strText.assign(static_cast<const char*>(pBytes), static_cast<size_t>(nBytes));
    }
    if (nType == SQLITE_TEXT) {
        value.nNumber = DecimalNumber(value.strText);
    }
    return value;
}

DbRow ReadRow(sqlite3_stmt* pStatement) {
    DbRow row;
    const int nColumns = sqlite3_column_count(pStatement);
    for (int i = 0; i < nColumns; ++i) {
        row.push_back(ReadValue(pStatement, i));
    }
    return row;
}

int Bind(sqlite3_stmt* pStatement, const ReadOnlyDb::Argument& argument) {
    if (const auto* pnNumber = std::get_if<int64_t>(&argument)) {
        return sqlite3_bind_int64(pStatement, 1, *pnNumber);
    }
    const auto& strText = std::get<std::string>(argument);
    return sqlite3_bind_text64(pStatement, 1, strText.data(), strText.size(), SQLITE_TRANSIENT,
                               SQLITE_UTF8);
}

// What went wrong and what to do, from "FILE " on.
std::string Explain(int nExtendedCode, const std::string& strSqlite) {
    switch (nExtendedCode & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return "is being written and was not free for a moment; try again";
        case SQLITE_NOTADB:
        case SQLITE_CORRUPT:
        case SQLITE_FORMAT:
            return "is damaged (" + strSqlite + "); " + MOVE_REMEDY;
        case SQLITE_READONLY:
            return "was left in the middle of a change by a writer that ended; start the module "
                   "once with this state directory, which completes or undoes it";
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return "cannot be opened (" + strSqlite + "); " + STATE_DIR_REMEDY +
                   " and the right to read the file and its directory";
        case SQLITE_ERROR:
            return "holds its table in another shape (" + strSqlite + "); " + STATE_DIR_REMEDY +
                   ", or " + MOVE_REMEDY;
        default:
            return "cannot be read (" + strSqlite + "); " + STATE_DIR_REMEDY + " and its disk";
    }
}

}  // namespace

ReadOnlyDb::~ReadOnlyDb() {
    sqlite3_close(m_pDb);
}

bool ReadOnlyDb::Open(const std::string& strFile, const std::string& strTable) {
    m_strFile = strFile;
    m_strTable = strTable;
    if (!LooksLikeFile()) {
        return false;
    }
    if (sqlite3_open_v2(strFile.c_str(), &m_pDb, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        (void)Fail();
        return false;
    }
    // The schema in the file is foreign too: nothing in it may call functions with effects.
    (void)sqlite3_db_config(m_pDb, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    (void)sqlite3_db_config(m_pDb, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    (void)sqlite3_limit(m_pDb, SQLITE_LIMIT_LENGTH, MAX_VALUE);
    (void)sqlite3_busy_timeout(m_pDb, m_nBusyMs);

    bool bFound = false;
    const Result eResult =
        Query("select 1 from sqlite_master where type = 'table' and name = ?1 collate nocase",
              strTable, [&bFound](DbRow&&) {
                  bFound = true;
                  return false;
              });
    if (eResult == RESULT_DONE && !bFound) {
        m_strError = text::ForTerminal(strFile) + " holds no table " + strTable +
                     "; the module makes it when it starts with this state directory, else " +
                     STATE_DIR_REMEDY;
    }
    return eResult == RESULT_DONE && bFound;
}

bool ReadOnlyDb::LooksLikeFile() {
    // Asked before SQLite opens anything: a pipe of that name would block it for ever.
    struct stat status = {};
    if (stat(m_strFile.c_str(), &status) == 0) {
        if (S_ISREG(status.st_mode)) {
            return true;
        }
        m_strError = text::ForTerminal(m_strFile) + " is no regular file; " + STATE_DIR_REMEDY;
        return false;
    }
    const int nError = errno;
    m_strError = "cannot read " + text::ForTerminal(m_strFile) + ": " +
                 std::generic_category().message(nError) + "; ";
    m_strError += nError == ENOENT || nError == ENOTDIR
                      ? "the module has not run with this state directory yet, or --state-dir "
                        "names the wrong one"
                      : "check --state-dir and the right to read that directory";
    return false;
}

ReadOnlyDb::Result ReadOnlyDb::Query(const std::string& strSql, const Argument& argument,
                                     const std::function<bool(DbRow&&)>& onRow) {
    sqlite3_stmt* pRaw = nullptr;
    int nCode = sqlite3_prepare_v2(m_pDb, strSql.c_str(), -1, &pRaw, nullptr);
    const Statement pStatement(pRaw);
    if (nCode == SQLITE_OK) {
        nCode = Bind(pRaw, argument);
    }
    if (nCode != SQLITE_OK) {
        return Fail();
    }
    while ((nCode = sqlite3_step(pRaw)) == SQLITE_ROW) {
        if (!onRow(ReadRow(pRaw))) {
            return RESULT_DONE;
        }
    }
    if (nCode == SQLITE_TOOBIG) {
        m_strError = text::ForTerminal(m_strFile) + " holds a value of more than " +
                     text::Bytes(MAX_VALUE) + " in table " + m_strTable +
                     "; look at it with the sqlite3 shell";
        return RESULT_TOO_BIG;
    }
    return nCode == SQLITE_DONE ? RESULT_DONE : Fail();
}

void ReadOnlyDb::SetDamaged(const std::string& strWhat) {
    m_strError = text::ForTerminal(m_strFile) + " " + Explain(SQLITE_CORRUPT, strWhat);
}

ReadOnlyDb::Result ReadOnlyDb::Fail() {
    m_strError = text::ForTerminal(m_strFile) + " " +
                 Explain(sqlite3_extended_errcode(m_pDb), text::ForTerminal(sqlite3_errmsg(m_pDb)));
    return RESULT_FAILED;
}
