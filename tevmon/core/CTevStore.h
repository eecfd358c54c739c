// What the two stores have in common: one SQLite file under ../data/db (relative to the host's
// current directory), one table, statements built as text, every change in a transaction of its
// own, and one mutex.
//
// Threads: any; the derived stores hold m_mutex where their comments say so.
// Errors: nothing throws. A failed operation is rolled back and SQLite's text goes to standard
//   output as one line, before the operation returns but after it has let the mutex go: whoever
//   reads that output can never hold the store up. The operation answers SQLite's primary result
//   code.
#ifndef TEVMON_CORE_CTEVSTORE_H
#define TEVMON_CORE_CTEVSTORE_H

#include <string>

#include "framework/base/CMutex.h"
#include "framework/sqlite/CppSQLite3.h"

// SQLite's result code for "another connection holds the lock", the only one worth trying again.
constexpr int STORE_BUSY = 5;

class CTevStore {
public:
    CTevStore(const CTevStore&) = delete;
    CTevStore& operator=(const CTevStore&) = delete;

    // Opens the file and creates the table when there is none. False after a failure; then the
    // connection is closed and every later operation fails.
    bool Open() TEV_EXCLUDES(m_mutex);

    // Sets how db waits for the disk: 0 off, 1 normal, 2 full; any other mode does nothing.
    // Returns 0 or SQLite's code.
    int SetSynchronous(CppSQLite3DB& db, int nMode) TEV_EXCLUDES(m_mutex);

    // Execute one statement each and throw CppSQLite3Exception. The caller holds the mutex.
    void BeginTransaction() TEV_REQUIRES(m_mutex);
    void Commit() TEV_REQUIRES(m_mutex);
    void Rollback() TEV_REQUIRES(m_mutex);

protected:
    static constexpr int NOT_ALLOWED = 23;  // SQLite's code

    // strFile is appended to the current directory when the store opens.
    CTevStore(const char* pszFile, const char* pszTable, const char* pszCreate);
    ~CTevStore();  // closes

    // The length of one public operation: holds the mutex, and prints when it has let it go.
    class TEV_SCOPED_CAPABILITY CCall {
    public:
        // Lines that were to be printed are appended to pstrErrors instead, when it is given.
        explicit CCall(CTevStore& store, std::string* pstrErrors = nullptr)
            TEV_ACQUIRE(store.m_mutex)
            : m_store(store), m_pstrErrors(pstrErrors) {
            m_store.m_mutex.Lock();
        }
        ~CCall() TEV_RELEASE() { m_store.UnlockAndPrint(m_pstrErrors); }

        CCall(const CCall&) = delete;
        CCall& operator=(const CCall&) = delete;

    private:
        CTevStore& m_store;
        std::string* const m_pstrErrors;
    };

    void UnlockAndPrint(std::string* pstrErrors = nullptr) noexcept TEV_RELEASE(m_mutex);

    // make builds a statement's text, work runs it; both may throw. Change runs the statement in a
    // transaction of its own. All return 0, or after rolling back and printing the code of whatever
    // make, begin, work or commit threw.
    // With pszNotAllowed the statement is prepared as it is, for what SQLite says of it, and never
    // run: where SQLite takes it, the code is 23 and the text this. Without bPrepare it is not even
    // prepared.
    template <class Make>
    int Change(Make make, const char* pszNotAllowed = nullptr, bool bPrepare = true)
        TEV_REQUIRES(m_mutex) {
        std::string strError;
        int nRefused = 0;  // by code, not by exception: one update fails 300 times on end
        const int nResult = Run(true, make, [&](CppSQLite3DB& db, const std::string& strStatement) {
            if (pszNotAllowed == nullptr) {
                nRefused = db.tryDML(strStatement.c_str(), strError);
                return nRefused == 0;
            }
            nRefused = bPrepare ? db.tryPrepare(strStatement.c_str(), strError) : 0;
            if (nRefused == 0) {
                strError = pszNotAllowed;
                nRefused = NOT_ALLOWED;
            }
            return false;
        });
        return nRefused == 0 ? nResult : Failed(true, nRefused, strError.c_str());
    }
    template <class Make, class Work>
    int InTransaction(Make make, Work work) TEV_REQUIRES(m_mutex) {
        return Run(true, make, Whole(work));
    }
    template <class Make, class Work>
    int WithoutTransaction(Make make, Work work) TEV_REQUIRES(m_mutex) {
        return Run(false, make, Whole(work));
    }

private:
    static constexpr int OUT_OF_MEMORY = 7;  // SQLite's code

    // Work that throws what goes wrong, so that its transaction always ends in a commit.
    template <class Work>
    static auto Whole(Work& work) {
        return [&work](CppSQLite3DB& db, const std::string& strStatement) {
            work(db, strStatement);
            return true;
        };
    }

    // When work answers false, its transaction is the caller's to end.
    template <class Make, class Work>
    int Run(bool bTransaction, Make& make, Work work) TEV_REQUIRES(m_mutex) {
        try {
            const std::string strStatement = make();
            if (m_db.inTransaction()) {
                Rollback();  // of an operation that failed, had no memory for it either
            }
            if (bTransaction) {
                BeginTransaction();
            }
            if (work(m_db, strStatement) && bTransaction) {
                Commit();
            }
            return 0;
        } catch (const CppSQLite3Exception& ex) {
            return Failed(bTransaction, ex.errorCode(), ex.errorMessage());
        } catch (...) {
            return Failed(bTransaction, OUT_OF_MEMORY, "out of memory");
        }
    }

    int Failed(bool bTransaction, int nCode, const char* pszError) noexcept TEV_REQUIRES(m_mutex);
    int SetSynchronousUnlocked(CppSQLite3DB& db, int nMode) TEV_REQUIRES(m_mutex);
    int Report(int nCode, const char* pszError) noexcept TEV_REQUIRES(m_mutex);

    const char* const m_pszFile;
    const char* const m_pszTable;
    const char* const m_pszCreate;
    CppSQLite3DB m_db TEV_GUARDED_BY(m_mutex);
    std::string m_strErrors TEV_GUARDED_BY(m_mutex);  // lines to print

protected:
    CMutex m_mutex;  // last, so it is destroyed before the connection
};

#endif
