#include "host/database/ModuleDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "host/base/UniqueFd.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr mode_t PRIVATE_FILE = 0600;
constexpr milliseconds BUSY_AT_START(3000);
constexpr milliseconds BUSY_AT_END(500);
constexpr milliseconds CHECK_TIME(500);  // the sensors run already; doctor checks all of a big file
constexpr milliseconds VACUUM_TIME(10000);  // a service manager waits longer for the end
constexpr int INSTRUCTIONS_BETWEEN_LOOKS = 1000;
constexpr int64_t FREE_SHARE = 4;          // a quarter free is worth the writing
constexpr int64_t FREE_BYTES = 64 * 1024;  // but not less than this

int IsOverdue(void* pDue) {
    return steady_clock::now() > *static_cast<const steady_clock::time_point*>(pDue) ? 1 : 0;
}

}  // namespace

ModuleDatabase::~ModuleDatabase() {
    Close();
}

void ModuleDatabase::Close() {
    (void)sqlite3_close(m_pDb);
    m_pDb = nullptr;
}

std::string ModuleDatabase::Reason(const char* pszWhat) const {
    const int nCode = m_pDb == nullptr ? SQLITE_NOMEM : sqlite3_errcode(m_pDb);
    std::string strText = std::string(pszWhat) + " " + m_strFile + ": " +
                          (m_pDb == nullptr ? "no memory" : sqlite3_errmsg(m_pDb));
    switch (nCode) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return strText + "; another program has it open, end that one";
        case SQLITE_FULL:
        case SQLITE_IOERR:
            return strText + "; look at its disk and make room there";
        case SQLITE_NOTADB:
        case SQLITE_CORRUPT:
        case SQLITE_FORMAT:
            return strText + "; it is damaged: move it away, the module makes a new one";
        default:
            return strText + "; look at its rights and its disk, or choose another --state-dir";
    }
}

// SQLite would make the file with the umask's mode, and follow a link.
bool ModuleDatabase::TakeFile(std::string& strError) const {
    UniqueFd fd(open(m_strFile.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                     PRIVATE_FILE));
    if (!fd) {
        strError = "cannot open the database " + m_strFile + ": " + std::strerror(errno) +
                   "; it must be a regular file of the user who runs the host";
        return false;
    }
    struct stat status = {};
    const bool bOurs = fstat(fd.Get(), &status) == 0 && S_ISREG(status.st_mode) &&
                       status.st_uid == geteuid() && status.st_nlink == 1;
    const bool bPrivate =
        bOurs && ((status.st_mode & 07777) == PRIVATE_FILE || fchmod(fd.Get(), PRIVATE_FILE) == 0);
    fd.Reset();
    if (!bPrivate) {
        strError = "the database " + m_strFile +
                   " is no regular file of its own that belongs to the user who runs the host; "
                   "move it away";
    }
    return bPrivate;
}

bool ModuleDatabase::Open(milliseconds busy, std::string& strError) {
    Close();
    const int nFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    const int nCode = sqlite3_open_v2(m_strFile.c_str(), &m_pDb, nFlags, nullptr);
    if (nCode != SQLITE_OK) {
        strError = Reason("cannot open the database");
        Close();
        return false;
    }
    (void)sqlite3_busy_timeout(m_pDb, static_cast<int>(busy.count()));
    // What stands in the file is foreign: nothing in it may call functions with effects.
    (void)sqlite3_db_config(m_pDb, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    return true;
}

int ModuleDatabase::Execute(const char* pszSql, std::string& strAnswer) {
    strAnswer.clear();
    const auto fnRow = [](void* pAnswer, int nColumns, char** ppszValues, char**) {
        const char* const pszValue = nColumns > 0 ? ppszValues[0] : nullptr;
        *static_cast<std::string*>(pAnswer) = pszValue == nullptr ? "" : pszValue;
        return 0;
    };
    return sqlite3_exec(m_pDb, pszSql, fnRow, &strAnswer, nullptr);
}

int64_t ModuleDatabase::Number(const char* pszSql) {
    std::string strAnswer;
    return Execute(pszSql, strAnswer) == SQLITE_OK ? std::atoll(strAnswer.c_str()) : 0;
}

bool ModuleDatabase::IsWhole(std::string& strError) {
    m_due = steady_clock::now() + CHECK_TIME;
    sqlite3_progress_handler(m_pDb, INSTRUCTIONS_BETWEEN_LOOKS, IsOverdue, &m_due);
    std::string strAnswer;
    const int nCode = Execute("pragma quick_check(1)", strAnswer);
    sqlite3_progress_handler(m_pDb, 0, nullptr, nullptr);
    if (nCode == SQLITE_INTERRUPT || (nCode == SQLITE_OK && strAnswer == "ok")) {
        return true;
    }
    strError = nCode == SQLITE_OK ? "the database " + m_strFile + " is damaged (" + strAnswer +
                                        "): move it away, the module makes a new one"
                                  : Reason("cannot check the database");
    return false;
}

bool ModuleDatabase::Prepare(std::string& strError) {
    if (!TakeFile(strError) || !Open(BUSY_AT_START, strError)) {
        return false;
    }
    std::string strMode;
    bool bReady = Execute("pragma journal_mode = wal", strMode) == SQLITE_OK;
    if (!bReady) {
        strError = Reason("cannot use the database");
    } else if (strMode != "wal") {
        strError = "the database " + m_strFile +
                   " cannot have a write-ahead log on this file system; choose another with "
                   "--state-dir";
        bReady = false;
    }
    bReady = bReady && IsWhole(strError);
    Close();
    return bReady;
}

uint64_t ModuleDatabase::UsedBytes() {
    std::string strError;
    if (!Open(BUSY_AT_END, strError)) {
        return 0;
    }
    const int64_t nPages = Number("pragma page_count") - Number("pragma freelist_count");
    const int64_t nBytes = nPages * Number("pragma page_size");
    Close();
    return nBytes > 0 ? static_cast<uint64_t>(nBytes) : 0;
}

bool ModuleDatabase::TidyUp(std::string& strError) {
    if (!Open(BUSY_AT_END, strError)) {
        return false;
    }
    const int64_t nFree = Number("pragma freelist_count");
    std::string strAnswer;
    bool bDone = true;
    if (nFree * FREE_SHARE >= Number("pragma page_count") &&
        nFree * Number("pragma page_size") >= FREE_BYTES) {
        m_due = steady_clock::now() + VACUUM_TIME;
        sqlite3_progress_handler(m_pDb, INSTRUCTIONS_BETWEEN_LOOKS, IsOverdue, &m_due);
        bDone = Execute("vacuum", strAnswer) == SQLITE_OK;
        strError = bDone ? "" : Reason("cannot give back the free space of");
        sqlite3_progress_handler(m_pDb, 0, nullptr, nullptr);
    }
    if (Execute("pragma journal_mode = delete", strAnswer) != SQLITE_OK || strAnswer != "delete") {
        strError = Reason("cannot put the write-ahead log into");
        bDone = false;
        // A reader stands in the way of the change, not of this.
        (void)Execute("pragma wal_checkpoint(truncate)", strAnswer);
    }
    Close();
    return bDone;
}
