#include "tevmon/core/CTevStore.h"

#include <unistd.h>

#include "framework/base/CDir.h"
#include "framework/base/FdWriter.h"

namespace {

constexpr int OUT_OF_MEMORY = 7;  // SQLite's code for it

// To standard output, not to the log: this is where operators look for database errors.
void PrintError(const char* pszMessage) noexcept {
    try {
        (void)CFdWriter::Write(STDOUT_FILENO, std::string(pszMessage) + "\n");
    } catch (...) {  // out of memory: the result code still says it
    }
}

// Prints the exception in flight and returns its code.
int ReportCurrentException() noexcept {
    try {
        throw;
    } catch (const CppSQLite3Exception& ex) {
        PrintError(ex.errorMessage());
        return ex.errorCode();
    } catch (...) {
        PrintError("out of memory");
        return OUT_OF_MEMORY;
    }
}

}  // namespace

CTevStore::CTevStore(const char* pszFile, const char* pszTable, const char* pszCreate)
    : m_pszFile(pszFile), m_pszTable(pszTable), m_pszCreate(pszCreate) {}

bool CTevStore::Open() {
    CAutoLock lock(m_mutex);
    try {
        m_db.open((CDir::currentDir() + m_pszFile).c_str());
        (void)SetSynchronousUnlocked(m_db, 0);  // it has printed; a slower store is still a store
        if (!m_db.tableExists(m_pszTable)) {
            (void)m_db.execDML(m_pszCreate);
        }
        return true;
    } catch (...) {
        (void)ReportCurrentException();
        m_db.close();
        return false;
    }
}

int CTevStore::SetSynchronous(CppSQLite3DB& db, int nMode) {
    CAutoLock lock(m_mutex);
    return SetSynchronousUnlocked(db, nMode);
}

int CTevStore::SetSynchronousUnlocked(CppSQLite3DB& db, int nMode) {
    const char* pszStatement = "";
    if (nMode == 0) {
        pszStatement = "PRAGMA synchronous = OFF";
    } else if (nMode == 1) {
        pszStatement = "PRAGMA synchronous = NORMAL";
    } else if (nMode == 2) {
        pszStatement = "PRAGMA synchronous = FULL";
    }
    try {
        (void)db.execDML(pszStatement);
        return 0;
    } catch (...) {
        return ReportCurrentException();
    }
}

void CTevStore::BeginTransaction() {
    (void)m_db.execDML("begin transaction");
}

void CTevStore::Commit() {
    (void)m_db.execDML("commit transaction");
}

void CTevStore::Rollback() {
    (void)m_db.execDML("rollback transaction");
}

int CTevStore::Failed(bool bTransaction) noexcept {
    if (bTransaction) {
        try {
            Rollback();
        } catch (...) {  // SQLite has rolled back already, or there is no connection
        }
    }
    return ReportCurrentException();
}
