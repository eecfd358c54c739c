// A thin C++ face on SQLite: a connection, the rows of a query, and the exception that carries
// SQLite's code and text.
//
// The connection is fenced (see ConnectionFence.h for its statements, FileFence.h for its files),
// without touching a statement's text or result:
// a busy database answers at once, codes are primary ones, and a call runs exactly one statement.
// One that failed after going on for long, ended by the fence or not, fails at once, with the same
// code and text, when it is tried again within ten seconds: callers try what fails hundreds of
// times.
//
// Threads: none of its own; one connection and its queries belong to one caller at a time.
// Errors: calls that fail throw CppSQLite3Exception, unless they say otherwise. A call on what is
//   closed, finalized or null throws CPPSQLITE_ERROR before SQLite sees it.
// Ownership: a query should be finalized or destroyed before its connection is closed; until then
//   SQLite keeps the file, and its lock, for it.
#ifndef FRAMEWORK_SQLITE_CPPSQLITE3_H
#define FRAMEWORK_SQLITE_CPPSQLITE3_H

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#define CPPSQLITE3_API __attribute__((visibility("default")))

struct FileFence;
struct sqlite3;
struct sqlite3_stmt;

// The code of an error that is not SQLite's own.
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

// The rows of one statement, stood on one after the other. Moved, not copied.
class CPPSQLITE3_API CppSQLite3Query {
public:
    CppSQLite3Query() = default;
    CppSQLite3Query(CppSQLite3Query&& other) noexcept;
    CppSQLite3Query& operator=(CppSQLite3Query&& other) noexcept;
    ~CppSQLite3Query();

    CppSQLite3Query(const CppSQLite3Query&) = delete;
    CppSQLite3Query& operator=(const CppSQLite3Query&) = delete;

    bool eof() const noexcept { return m_bEof; }  // true when no row is left, and once finalized
    void nextRow();                               // steps on; with no row left it does nothing
    void finalize() noexcept;                     // releases the statement; twice is once

    // The column of that name in the row at hand; the given value when it is NULL. Text is
    // converted to a number, and a number to text, as SQLite does; a text keeps its NUL bytes.
    // A name that the query does not have, or no row at hand, throws CPPSQLITE_ERROR.
    int getIntField(const char* pszName, int nNullValue = 0) const;
    int64_t getInt64Field(const char* pszName, int64_t nNullValue = 0) const;
    std::string getStringField(const char* pszName, const char* pszNullValue = "") const;
    // The text without a copy, empty for NULL; valid until the query steps on or is finalized.
    std::string_view getTextField(const char* pszName) const;

private:
    friend class CppSQLite3DB;
    CppSQLite3Query(sqlite3_stmt* pStmt, bool bEof, bool bLimited,
                    std::shared_ptr<FileFence> pFence);
    int FieldIndex(const char* pszName) const;  // case is not looked at, as in SQL

    std::shared_ptr<FileFence> m_pFence;  // the connection lives as long as its last query
    sqlite3_stmt* m_pStmt = nullptr;
    bool m_bEof = true;
    bool m_bLimited = true;
    // The columns' names, from the first field asked for on: SQLite makes each name afresh, and a
    // row of seven fields would ask for 28. They stay where they are until the query is finalized.
    mutable std::vector<const char*> m_names;
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
    bool inTransaction() const;  // one that was begun and has not ended

    // Runs one statement to its end and returns the rows it changed, 0 for what changes none. Text
    // after the statement, a comment too, is error 1; an empty statement succeeds with 0.
    int execDML(const char* pszSQL);

    // The same without an exception: 0, or the code with its text in strError. For statements that
    // are expected to fail often; std::bad_alloc is thrown all the same.
    int tryDML(const char* pszSQL, std::string& strError);

    // The same without running it: 0 for a statement that could be run.
    int tryPrepare(const char* pszSQL, std::string& strError);

    // Runs one statement, likewise, to its first row.
    CppSQLite3Query execQuery(const char* pszSQL);

    // The same for a look at rows whose statement holds no foreign text: a step may take a
    // minute of processor time, which a table's size asks for. Not for changes: a file from
    // elsewhere may hold triggers.
    CppSQLite3Query execOwnQuery(const char* pszSQL);

    // True when the database has a table of that name; case is not looked at, as in SQL. A virtual
    // table is none: one row of it may take for ever.
    bool tableExists(const char* pszTable);

private:
    // A statement that failed after a long time.
    struct Ended {
        std::string strSQL;
        int64_t nMilliseconds;  // when, on the steady clock
        int nCode;
        std::string strError;
    };

    sqlite3_stmt* Prepare(const char* pszSQL);  // null for an empty statement
    int TryPrepare(const char* pszSQL, sqlite3_stmt*& pStmt, const char*& pszError);
    bool FirstStep(sqlite3_stmt* pStmt, const char* pszSQL);
    CppSQLite3Query Query(const char* pszSQL, bool bLimited);
    bool TookLong() const;
    void KeepInMind(sqlite3_stmt* pEnded, const char* pszSQL, int nCode, const char* pszError);
    const Ended* FindEnded(const char* pszSQL) const;  // null for none

    std::shared_ptr<FileFence> m_pFence;
    sqlite3* m_pDB = nullptr;
    std::vector<Ended> m_ended;  // the latest few
    int64_t m_nBegun = 0;        // when the statement in hand was, on the coarse clock
};

#endif
