#include "tevmon/core/CTevStore.h"

#include <unistd.h>

#include "framework/base/CDir.h"
#include "framework/base/FdWriter.h"

namespace {

constexpr int OUT_OF_MEMORY = 7;  // SQLite's code for it

}  // namespace

CTevStore::CTevStore(const char* pszFile, const char* pszTable, const char* pszCreate)
    : m_pszFile(pszFile), m_pszTable(pszTable), m_pszCreate(pszCreate) {}

bool CTevStore::Open() {
    const CCall call(*this);
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
    const CCall call(*this);
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

// Keeps the text of the exception in flight for printing and returns its code.
int CTevStore::ReportCurrentException() noexcept {
    try {
        try {
            throw;
        } catch (const CppSQLite3Exception& ex) {
            const int nCode = ex.errorCode();
            m_strErrors += ex.errorMessage();
            m_strErrors += '\n';
            return nCode;
        } catch (...) {
            m_strErrors += "out of memory\n";
        }
    } catch (...) {  // no memory for the text either: the result code still says it
    }
    return OUT_OF_MEMORY;
}

// To standard output, not to the log: this is where operators look for database errors.
void CTevStore::UnlockAndPrint() noexcept {
    std::string strErrors;
    strErrors.swap(m_strErrors);
    m_mutex.Unlock();
    if (!strErrors.empty()) {
        (void)CFdWriter::Write(STDOUT_FILENO, strErrors);
    }
}
