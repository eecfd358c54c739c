#include "tevmon/core/CTevStore.h"

#include <signal.h>
#include <unistd.h>

#include "framework/base/CDir.h"
#include "framework/base/CQuietSignal.h"
#include "framework/base/FdWriter.h"

namespace {

void PrintOrKeep(const std::string& strErrors, std::string* pstrErrors) noexcept {
    if (strErrors.empty()) {
        return;
    }
    try {
        if (pstrErrors != nullptr) {
            *pstrErrors += strErrors;
            return;
        }
    } catch (...) {  // no memory to keep it: printed now
    }
    (void)CFdWriter::Write(STDOUT_FILENO, strErrors);
}

}  // namespace

CTevStore::CTevStore(const char* pszFile, const char* pszTable, const char* pszCreate)
    : m_pszFile(pszFile), m_pszTable(pszTable), m_pszCreate(pszCreate) {}

// Closing may write as well: what a write-ahead log holds.
CTevStore::~CTevStore() {
    const CQuietSignal quiet(SIGXFSZ);
    m_db.close();
}

bool CTevStore::Open() {
    const CQuietSignal quiet(SIGXFSZ);
    const CCall call(*this);
    try {
        m_db.open((CDir::currentDir() + m_pszFile).c_str());
        (void)SetSynchronousUnlocked(m_db, 0);  // it has printed; a slower store is still a store
        if (!m_db.tableExists(m_pszTable)) {
            (void)m_db.execDML(m_pszCreate);
        }
        return true;
    } catch (const CppSQLite3Exception& ex) {
        (void)Report(ex.errorCode(), ex.errorMessage());
    } catch (...) {
        (void)Report(OUT_OF_MEMORY, "out of memory");
    }
    m_db.close();
    return false;
}

int CTevStore::SetSynchronous(CppSQLite3DB& db, int nMode) {
    const CCall call(*this);
    return SetSynchronousUnlocked(db, nMode);
}

int CTevStore::SetSynchronousUnlocked(CppSQLite3DB& db, int nMode) {
    const char* pszStatement = "";  // any other mode executes this, and that is no error
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
    } catch (const CppSQLite3Exception& ex) {
        return Report(ex.errorCode(), ex.errorMessage());
    } catch (...) {
        return Report(OUT_OF_MEMORY, "out of memory");
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

int CTevStore::Failed(bool bTransaction, int nCode, const char* pszError) noexcept {
    if (bTransaction) {
        try {
            Rollback();
        } catch (...) {  // SQLite has rolled back already, or there is no connection
        }
    }
    return Report(nCode, pszError);
}

// Keeps the text for printing and returns the code.
int CTevStore::Report(int nCode, const char* pszError) noexcept {
    try {
        m_strErrors += pszError;
        m_strErrors += '\n';
    } catch (...) {  // no memory for the text: the result code still says it
        return OUT_OF_MEMORY;
    }
    return nCode;
}

// To standard output, not to the log: this is where operators look for database errors.
void CTevStore::UnlockAndPrint(std::string* pstrErrors) noexcept {
    std::string strErrors;
    strErrors.swap(m_strErrors);
    m_mutex.Unlock();
    PrintOrKeep(strErrors, pstrErrors);
}
