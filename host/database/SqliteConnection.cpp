#include "host/database/SqliteConnection.h"

int SqliteConnection::Open(const std::string& strFile, int nFlags, int nBusyMs,
                           const char* pszVfs) {
    Close();
    sqlite3* pRaw = nullptr;
    const int nCode = sqlite3_open_v2(strFile.c_str(), &pRaw, nFlags, pszVfs);
    m_pDb.reset(pRaw);
    if (nCode == SQLITE_OK) {
        (void)sqlite3_db_config(pRaw, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
        (void)sqlite3_db_config(pRaw, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
        (void)sqlite3_busy_timeout(pRaw, nBusyMs);
    }
    return nCode;
}

int SqliteConnection::Code() const {
    return m_pDb == nullptr ? SQLITE_NOMEM : sqlite3_extended_errcode(m_pDb.get());
}

std::string SqliteConnection::Text() const {
    return m_pDb == nullptr ? sqlite3_errstr(SQLITE_NOMEM) : sqlite3_errmsg(m_pDb.get());
}

int SqliteConnection::Execute(const char* pszSql, std::string& strAnswer) const {
    strAnswer.clear();
    const auto fnRow = [](void* pAnswer, int nColumns, char** ppszValues, char**) {
        const char* const pszValue = nColumns > 0 ? ppszValues[0] : nullptr;
        *static_cast<std::string*>(pAnswer) = pszValue == nullptr ? "" : pszValue;
        return 0;
    };
    return sqlite3_exec(m_pDb.get(), pszSql, fnRow, &strAnswer, nullptr);
}

int SqliteStatement::Prepare(const SqliteConnection& connection, const std::string& strSql) {
    sqlite3_stmt* pRaw = nullptr;
    const int nCode = sqlite3_prepare_v2(connection.Get(), strSql.c_str(), -1, &pRaw, nullptr);
    m_pStatement.reset(pRaw);
    return nCode;
}
