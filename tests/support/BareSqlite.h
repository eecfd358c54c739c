// SQLite without anything of ours around it: what the stores are compared with, here and in bench/.
#ifndef TESTS_SUPPORT_BARESQLITE_H
#define TESTS_SUPPORT_BARESQLITE_H

#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

class BareSqlite {
public:
    // Opens the file as the stores do: synchronous off.
    explicit BareSqlite(const std::string& strFile) {
        Must(sqlite3_open(strFile.c_str(), &m_pDB));
        Execute("PRAGMA synchronous = OFF");
    }
    ~BareSqlite() { sqlite3_close(m_pDB); }

    BareSqlite(const BareSqlite&) = delete;
    BareSqlite& operator=(const BareSqlite&) = delete;

    // One statement to its end; row(sqlite3_stmt*) is called for each row.
    template <class Row>
    void Execute(const char* pszStatement, Row row) {
        sqlite3_stmt* pStatement = nullptr;
        Must(sqlite3_prepare_v2(m_pDB, pszStatement, -1, &pStatement, nullptr));
        while (sqlite3_step(pStatement) == SQLITE_ROW) {
            row(pStatement);
        }
        Must(sqlite3_finalize(pStatement));
    }
    template <class Row>
    void Execute(const std::string& strStatement, Row row) {
        Execute(strStatement.c_str(), row);
    }
    void Execute(const char* pszStatement) {
        Execute(pszStatement, [](sqlite3_stmt*) {});
    }
    void Execute(const std::string& strStatement) { Execute(strStatement.c_str()); }

    // What SQLite says to a statement that it cannot prepare.
    std::string ErrorOf(const std::string& strStatement) {
        sqlite3_stmt* pStatement = nullptr;
        if (sqlite3_prepare_v2(m_pDB, strStatement.c_str(), -1, &pStatement, nullptr) ==
            SQLITE_OK) {
            (void)fputs("bare SQLite: a statement that was to fail did not\n", stderr);
            abort();
        }
        return sqlite3_errmsg(m_pDB);
    }

    static std::string Text(sqlite3_stmt* pStatement, int nColumn) {
        return std::string(reinterpret_cast<const char*>(sqlite3_column_text(pStatement, nColumn)),
                           static_cast<size_t>(sqlite3_column_bytes(pStatement, nColumn)));
    }

private:
    void Must(int nResult) {
        if (nResult != SQLITE_OK) {
            fprintf(stderr, "bare SQLite: %s\n", sqlite3_errmsg(m_pDB));
            abort();
        }
    }

    sqlite3* m_pDB = nullptr;
};

#endif
