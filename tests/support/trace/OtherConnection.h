// A second connection to a database file, as another process would hold one: looks into the file,
// prepares it, and takes locks. The program links SQLite itself.
#ifndef TESTS_SUPPORT_TRACE_OTHERCONNECTION_H
#define TESTS_SUPPORT_TRACE_OTHERCONNECTION_H

#include <sqlite3.h>

#include <string>
#include <vector>

#include "tests/support/trace/SqlTrace.h"

class OtherConnection {
public:
    explicit OtherConnection(const std::string& strFile) {
        const SqlTrace::Quiet quiet;
        (void)sqlite3_open(strFile.c_str(), &m_pDB);  // a failure shows in every Exec
    }
    ~OtherConnection() { (void)sqlite3_close(m_pDB); }

    OtherConnection(const OtherConnection&) = delete;
    OtherConnection& operator=(const OtherConnection&) = delete;

    // Runs statements; 0 or SQLite's code.
    int Exec(const std::string& strStatements) {
        const SqlTrace::Quiet quiet;
        return sqlite3_exec(m_pDB, strStatements.c_str(), nullptr, nullptr, nullptr);
    }

    // Locks until Release: others can neither read nor write / read but not write / not commit.
    bool LockAll() { return Exec("begin exclusive") == 0; }
    bool LockWrite() { return Exec("begin immediate") == 0; }
    bool LockRead() { return Exec("begin; select count(*) from sqlite_master") == 0; }
    bool Release() { return Exec("rollback") == 0; }

    // One text per row, columns joined by "|", "NULL" for no value; after an error its text.
    std::vector<std::string> Rows(const std::string& strQuery) {
        const SqlTrace::Quiet quiet;
        std::vector<std::string> rows;
        sqlite3_stmt* pStmt = nullptr;
        int nResult = sqlite3_prepare_v2(m_pDB, strQuery.c_str(), -1, &pStmt, nullptr);
        while (nResult == SQLITE_OK || nResult == SQLITE_ROW) {
            nResult = sqlite3_step(pStmt);
            if (nResult == SQLITE_ROW) {
                rows.push_back(Row(pStmt));
            }
        }
        if (nResult != SQLITE_DONE) {
            rows.emplace_back(sqlite3_errmsg(m_pDB));
        }
        (void)sqlite3_finalize(pStmt);
        return rows;
    }

private:
    static std::string Row(sqlite3_stmt* pStmt) {
        std::string strRow;
        for (int i = 0; i < sqlite3_column_count(pStmt); ++i) {
            const auto* pText = reinterpret_cast<const char*>(sqlite3_column_text(pStmt, i));
            strRow += i > 0 ? "|" : "";
            strRow += pText == nullptr
                          ? "NULL"
                          : std::string(pText, static_cast<size_t>(sqlite3_column_bytes(pStmt, i)));
        }
        return strRow;
    }

    sqlite3* m_pDB = nullptr;
};

#endif
