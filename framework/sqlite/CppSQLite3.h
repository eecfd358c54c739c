// A thin C++ face on SQLite: a connection, the rows of a query, and the exception that carries
// SQLite's code and text.
//
// The connection is fenced, without touching a statement's text or result: no busy time-out (a
// busy database answers at once), primary result codes, exactly one statement per call, no
// attached databases, SQLite's defensive settings, and an authorizer that lets only select, read,
// insert, update, delete, transactions, the creation of a table, functions and "PRAGMA
// synchronous" pass.
//
// Threads: none of its own; one connection and its queries belong to one caller at a time.
// Errors: calls that fail throw CppSQLite3Exception, unless they say otherwise.
// Ownership: a query must be finalized or destroyed before its connection is closed.
#ifndef FRAMEWORK_SQLITE_CPPSQLITE3_H
#define FRAMEWORK_SQLITE_CPPSQLITE3_H

#include <cstdint>
#include <exception>
#include <string>

#define CPPSQLITE3_API __attribute__((visibility("default")))

struct sqlite3;
struct sqlite3_stmt;

// A call on a null or closed handle, or one outside SQLite's own errors.
constexpr int CPPSQLITE_ERROR = 1000;

class CPPSQLITE3_API CppSQLite3Exception : public std::exception {
public:
    CppSQLite3Exception(int nErrCode, std::string strMessage);
    ~CppSQLite3Exception() override;

    int errorCode() const { return m_nErrCode; }  // SQLite's primary code, or CPPSQLITE_ERROR
    const char* errorMessage() const { return m_strMessage.c_str(); }
    const char* what() const noexcept override { return m_strMessage.c_str(); }

private:
    int m_nErrCode;
    std::string m_strMessage;
};

// The rows of one select, stood on one after the other. Moved, not copied.
class CPPSQLITE3_API CppSQLite3Query {
public:
    CppSQLite3Query() = default;
    CppSQLite3Query(sqlite3* pDB, sqlite3_stmt* pStmt, bool bEof);
    CppSQLite3Query(CppSQLite3Query&& other) noexcept;
    CppSQLite3Query& operator=(CppSQLite3Query&& other) noexcept;
    ~CppSQLite3Query();

    CppSQLite3Query(const CppSQLite3Query&) = delete;
    CppSQLite3Query& operator=(const CppSQLite3Query&) = delete;

    bool eof() const;   // true when no row is left
    void nextRow();     // steps on
    void finalize() noexcept;  // releases the statement; a second call does nothing

    // The column of that name in the row at hand; the given value when it is NULL. A name that
    // the query does not have throws CPPSQLITE_ERROR. Text is converted as SQLite does.
    int getIntField(const char* pszName, int nNullValue = 0) const;
    int64_t getInt64Field(const char* pszName, int64_t nNullValue = 0) const;
    std::string getStringField(const char* pszName, const char* pszNullValue = "") const;

private:
    int FieldIndex(const char* pszName) const;
    void CheckStmt() const;

    sqlite3* m_pDB = nullptr;
    sqlite3_stmt* m_pStmt = nullptr;
    bool m_bEof = true;
};

class CPPSQLITE3_API CppSQLite3DB {
public:
    CppSQLite3DB() = default;
    ~CppSQLite3DB();  // closes

    CppSQLite3DB(const CppSQLite3DB&) = delete;
    CppSQLite3DB& operator=(const CppSQLite3DB&) = delete;

    // Opens the file for reading and writing, creating it; a connection that was open, or half
    // open, is closed first. After a failure the connection is closed.
    void open(const char* pszFile);
    void close() noexcept;
    bool isOpen() const { return m_pDB != nullptr; }

    // Runs one statement to its end and returns the rows it changed. Text after the statement is
    // error 1; an empty statement succeeds with 0.
    int execDML(const char* pszSQL);

    // Runs one statement to its first row.
    CppSQLite3Query execQuery(const char* pszSQL);

    bool tableExists(const char* pszTable);

private:
    sqlite3_stmt* Prepare(const char* pszSQL);

    sqlite3* m_pDB = nullptr;
};

#endif
