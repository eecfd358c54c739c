// A database file as the module leaves it, for a test to fill and to spoil. Its connection stays
// open until Close, so it can stand for a running module as well.
#ifndef TESTS_SUPPORT_DBFILE_H
#define TESTS_SUPPORT_DBFILE_H

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

constexpr char CHANNEL_TABLE[] =
    "create table msgchennal( id INTEGER PRIMARY KEY autoincrement , createtime TEXT, detail "
    "TEXT, mid INTEGER)";
constexpr char CACHE_TABLE[] =
    "create table cachotable( id INTEGER ,  vkey TEXT PRIMARY KEY, level INTEGER,  tmcreate "
    "INTEGER, tminternal INTEGER, detail TEXT, mid INTEGER)";

class DbFile {
public:
    explicit DbFile(const std::string& strFile) {
        EXPECT_EQ(SQLITE_OK, sqlite3_open(strFile.c_str(), &m_pDb));
        Execute("pragma synchronous = off");  // as the module has it
    }
    ~DbFile() { Close(); }
    DbFile(const DbFile&) = delete;
    DbFile& operator=(const DbFile&) = delete;

    // The SQLite code of executing all of strSql.
    int TryExecute(const std::string& strSql) {
        return sqlite3_exec(m_pDb, strSql.c_str(), nullptr, nullptr, nullptr);
    }
    void Execute(const std::string& strSql) {
        EXPECT_EQ(SQLITE_OK, TryExecute(strSql)) << sqlite3_errmsg(m_pDb) << ": " << strSql;
    }
    void Close() {
        sqlite3_close(m_pDb);
        m_pDb = nullptr;
    }

private:
    sqlite3* m_pDb = nullptr;
};

#endif
