// A connection of the host to a database of the module, and one statement on it. What stands in the
// file is foreign: nothing in it may call functions with effects, or change the file's structure
// behind SQLite's back.
//
// Threads: one object, one thread. Errors: SQLite's codes; nothing throws but std::bad_alloc.
// Ownership: a statement must end before its connection is closed.
#ifndef HOST_DATABASE_SQLITECONNECTION_H
#define HOST_DATABASE_SQLITECONNECTION_H

#include <sqlite3.h>

#include <memory>
#include <string>

class SqliteConnection {
public:
    // Opens strFile with SQLITE_OPEN_* flags; closes what was open before. nBusyMs: how long a
    // statement waits for a lock. SQLITE_OK, or a code: then only Code and Text are good.
    int Open(const std::string& strFile, int nFlags, int nBusyMs, const char* pszVfs = nullptr);
    void Close() { m_pDb.reset(); }
    explicit operator bool() const { return m_pDb != nullptr; }
    sqlite3* Get() const { return m_pDb.get(); }

    // Of the last call that failed: the extended code, and SQLite's words.
    int Code() const;
    std::string Text() const;

    // SQLite's code; strAnswer is the first column of the last row, "" for NULL or without a row.
    int Execute(const char* pszSql, std::string& strAnswer) const;

private:
    struct Closer {
        void operator()(sqlite3* pDb) const { (void)sqlite3_close(pDb); }
    };

    std::unique_ptr<sqlite3, Closer> m_pDb;
};

class SqliteStatement {
public:
    // SQLITE_OK or a code: then there is no statement.
    int Prepare(const SqliteConnection& connection, const std::string& strSql);
    explicit operator bool() const { return m_pStatement != nullptr; }
    sqlite3_stmt* Get() const { return m_pStatement.get(); }
    // SQLITE_ROW, SQLITE_DONE or an error; SQLITE_ERROR without a statement.
    int Step() const { return m_pStatement == nullptr ? SQLITE_ERROR : sqlite3_step(Get()); }

private:
    struct Closer {
        void operator()(sqlite3_stmt* pStatement) const { (void)sqlite3_finalize(pStatement); }
    };

    std::unique_ptr<sqlite3_stmt, Closer> m_pStatement;
};

#endif
