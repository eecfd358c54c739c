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

std::string ModuleDatabase::Reason(const char* pszWhat) const {
    const std::string strText = std::string(pszWhat) + " " + m_strFile + ": " + m_connection.Text();
    switch (m_connection.Code() & 0xFF) {
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
    const int nFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    if (m_connection.Open(m_strFile, nFlags, static_cast<int>(busy.count())) != SQLITE_OK) {
        strError = Reason("cannot open the database");
        m_connection.Close();
        return false;
    }
    return true;
}

int64_t ModuleDatabase::Number(const char* pszSql) const {
    std::string strAnswer;
    return m_connection.Execute(pszSql, strAnswer) == SQLITE_OK ? std::atoll(strAnswer.c_str()) : 0;
}

bool ModuleDatabase::IsWhole(std::string& strError) {
    m_due = steady_clock::now() + CHECK_TIME;
    sqlite3_progress_handler(m_connection.Get(), INSTRUCTIONS_BETWEEN_LOOKS, IsOverdue, &m_due);
    std::string strAnswer;
    const int nCode = m_connection.Execute("pragma quick_check(1)", strAnswer);
    sqlite3_progress_handler(m_connection.Get(), 0, nullptr, nullptr);
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
    bool bReady = m_connection.Execute("pragma journal_mode = wal", strMode) == SQLITE_OK;
    if (!bReady) {
        strError = Reason("cannot use the database");
    } else if (strMode != "wal") {
        strError = "the database " + m_strFile +
                   " cannot have a write-ahead log on this file system; choose another with "
                   "--state-dir";
        bReady = false;
    }
    bReady = bReady && IsWhole(strError);
    m_connection.Close();
    return bReady;
}

uint64_t ModuleDatabase::UsedBytes() {
    std::string strError;
    if (!Open(BUSY_AT_END, strError)) {
        return 0;
    }
    const int64_t nPages = Number("pragma page_count") - Number("pragma freelist_count");
    const int64_t nBytes = nPages * Number("pragma page_size");
    m_connection.Close();
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
        sqlite3_progress_handler(m_connection.Get(), INSTRUCTIONS_BETWEEN_LOOKS, IsOverdue, &m_due);
        bDone = m_connection.Execute("vacuum", strAnswer) == SQLITE_OK;
        strError = bDone ? "" : Reason("cannot give back the free space of");
        sqlite3_progress_handler(m_connection.Get(), 0, nullptr, nullptr);
    }
    if (m_connection.Execute("pragma journal_mode = delete", strAnswer) != SQLITE_OK ||
        strAnswer != "delete") {
        strError = Reason("cannot put the write-ahead log into");
        bDone = false;
        // A reader stands in the way of the change, not of this.
        (void)m_connection.Execute("pragma wal_checkpoint(truncate)", strAnswer);
    }
    m_connection.Close();
    return bDone;
}
