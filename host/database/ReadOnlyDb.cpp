#include "host/database/ReadOnlyDb.h"

#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <system_error>
#include <thread>

#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"

namespace {

constexpr const char* STATE_DIR_REMEDY = "check --state-dir";
constexpr const char* MOVE_REMEDY =
    "move the file away and start the module, which makes a new one";

// SQLite's file access with locks that always succeed.
constexpr const char* VFS_WITHOUT_LOCKS = "unix-none";

constexpr int LOCKED_TRIES = 5;

void PauseForWriter() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

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

DbRow ReadRow(sqlite3_stmt* pStatement, size_t& nBytes) {
    DbRow row;
    const int nColumns = sqlite3_column_count(pStatement);
    for (int i = 0; i < nColumns; ++i) {
        row.push_back(ReadValue(pStatement, i));
        nBytes += row.back().strText.size();
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

bool ReadOnlyDb::Open(const std::string& strFile, const std::string& strTable) {
    m_strFile = strFile;
    m_strTable = strTable;
    m_strError.clear();
    m_unlocked.Close();
    if (!LooksLikeFile()) {
        return false;
    }
    m_changes.Open(strFile);
    std::vector<DbRow> rows;
    const Result eResult =
        Query("select 1 from sqlite_master where type = 'table' and name = ?1 collate nocase",
              strTable, 1, rows);
    if (eResult == RESULT_DONE && rows.empty()) {
        m_strError = text::ForTerminal(strFile) + " holds no table " + strTable +
                     "; the module makes it when it starts with this state directory, else " +
                     STATE_DIR_REMEDY;
    }
    return eResult == RESULT_DONE && !rows.empty();
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
                                     size_t nMaxBytes, std::vector<DbRow>& rows) {
    Outcome outcome;
    if (!QueryUnlocked(strSql, argument, nMaxBytes, rows, outcome)) {
        outcome = QueryLocked(strSql, argument, nMaxBytes, rows);
    }
    if (outcome.nCode == SQLITE_OK) {
        return RESULT_DONE;
    }
    if (outcome.nCode == SQLITE_TOOBIG) {
        m_strError = text::ForTerminal(m_strFile) + " holds a value of more than " +
                     text::Bytes(MAX_VALUE) + " in table " + m_strTable +
                     "; look at it with the sqlite3 shell";
        return RESULT_TOO_BIG;
    }
    rows.clear();
    m_strError = text::ForTerminal(m_strFile) + " " +
                 Explain(outcome.nCode, text::ForTerminal(outcome.strText));
    return RESULT_FAILED;
}

void ReadOnlyDb::SetDamaged(const std::string& strWhat) {
    m_strError = text::ForTerminal(m_strFile) + " " + Explain(SQLITE_CORRUPT, strWhat);
}

// False when no moment without a change was found; rows and outcome then mean nothing.
bool ReadOnlyDb::QueryUnlocked(const std::string& strSql, const Argument& argument,
                               size_t nMaxBytes, std::vector<DbRow>& rows, Outcome& outcome) {
    using std::chrono::steady_clock;
    const auto tmDeadline = steady_clock::now() + std::chrono::milliseconds(m_nBusyMs);
    for (;;) {
        const ChangeDetector::State eState = m_changes.Begin();
        if (eState == ChangeDetector::STATE_WRITE_AHEAD) {
            return false;
        }
        if (eState == ChangeDetector::STATE_QUIET) {
            if (m_unlocked || Connect(VFS_WITHOUT_LOCKS, m_unlocked, outcome)) {
                outcome = Execute(m_unlocked, strSql, argument, nMaxBytes, rows);
            }
            if (m_changes.IsUnchanged()) {
                return true;
            }
            // What it remembers of the file may be torn.
            m_unlocked.Close();
        }
        if (steady_clock::now() >= tmDeadline) {
            return false;
        }
        PauseForWriter();
    }
}

ReadOnlyDb::Outcome ReadOnlyDb::QueryLocked(const std::string& strSql, const Argument& argument,
                                            size_t nMaxBytes, std::vector<DbRow>& rows) const {
    Outcome outcome;
    for (int i = 0; i < LOCKED_TRIES; ++i) {
        // Everything is prepared and closed while no lock is held but the statement's own.
        SqliteConnection connection;
        if (!Connect(nullptr, connection, outcome)) {
            return outcome;
        }
        outcome = Execute(connection, strSql, argument, nMaxBytes, rows);
        PauseForWriter();
        // A journal that its writer is just taking away looks like one left behind.
        if ((outcome.nCode & 0xFF) != SQLITE_READONLY) {
            break;
        }
    }
    return outcome;
}

// False with outcome set when there is no connection to be had.
bool ReadOnlyDb::Connect(const char* pszVfs, SqliteConnection& connection, Outcome& outcome) const {
    const int nCode = connection.Open(m_strFile, SQLITE_OPEN_READONLY, m_nBusyMs, pszVfs);
    if (nCode != SQLITE_OK) {
        outcome = {nCode, connection.Text()};
        connection.Close();
        return false;
    }
    (void)sqlite3_limit(connection.Get(), SQLITE_LIMIT_LENGTH, MAX_VALUE);
    return true;
}

ReadOnlyDb::Outcome ReadOnlyDb::Execute(const SqliteConnection& connection,
                                        const std::string& strSql, const Argument& argument,
                                        size_t nMaxBytes, std::vector<DbRow>& rows) {
    rows.clear();
    SqliteStatement statement;
    int nCode = statement.Prepare(connection, strSql);
    if (nCode == SQLITE_OK) {
        nCode = Bind(statement.Get(), argument);
    }
    if (nCode != SQLITE_OK) {
        return {connection.Code(), connection.Text()};
    }
    size_t nBytes = 0;
    while (nBytes < nMaxBytes && (nCode = statement.Step()) == SQLITE_ROW) {
        rows.push_back(ReadRow(statement.Get(), nBytes));
    }
    if (nCode == SQLITE_DONE || nCode == SQLITE_ROW || nCode == SQLITE_OK) {
        return {SQLITE_OK, ""};
    }
    return {connection.Code(), connection.Text()};
}
