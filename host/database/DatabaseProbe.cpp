#include "host/database/DatabaseProbe.h"

#include <unistd.h>

#include <algorithm>
#include <functional>

#include "host/base/ModuleFacts.h"
#include "host/database/SqliteConnection.h"

namespace database_probe {

namespace {

// One statement on a connection of its own, both gone when the object is.
class Look {
public:
    Look(const std::string& strFile, const std::string& strStatement) {
        const int nFlags = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
        if (m_connection.Open(strFile, nFlags, 0) == SQLITE_OK) {
            (void)m_statement.Prepare(m_connection, strStatement);
        }
    }

    sqlite3_stmt* Statement() const { return m_statement.Get(); }
    int Step() const { return m_statement.Step(); }

private:
    SqliteConnection m_connection;
    SqliteStatement m_statement;
};

bool Exists(const std::string& strFile) {
    return access(strFile.c_str(), F_OK) == 0;
}

// A database that the module has not opened yet.
bool HasNoTable(const std::string& strFile) {
    const Look look(strFile, "select count(*) from sqlite_master");
    return look.Step() == SQLITE_ROW && sqlite3_column_int64(look.Statement(), 0) == 0;
}

}  // namespace

std::optional<uint64_t> QueueDepth(const std::string& strFile) {
    if (!Exists(strFile)) {
        return 0;
    }
    // Two ends of the row ids: their cost does not grow with the queue, a count's does.
    const std::string strTable = module_facts::CHANNEL_TABLE;
    const Look look(strFile, "select (select min(id) from " + strTable + "),(select max(id) from " +
                                 strTable + ")");
    if (look.Step() != SQLITE_ROW) {
        return HasNoTable(strFile) ? std::optional<uint64_t>(0) : std::nullopt;
    }
    if (sqlite3_column_type(look.Statement(), 0) == SQLITE_NULL) {
        return 0;
    }
    const sqlite3_int64 nFirst = sqlite3_column_int64(look.Statement(), 0);
    const sqlite3_int64 nLast = sqlite3_column_int64(look.Statement(), 1);
    return static_cast<uint64_t>(nLast) - static_cast<uint64_t>(nFirst) + 1;
}

std::optional<bool> HasVerdict(const std::string& strFile, const std::string& strKey) {
    if (!Exists(strFile)) {
        return false;
    }
    const Look look(strFile, std::string("select 1 from ") + module_facts::CACHE_TABLE + " where " +
                                 module_facts::CACHE_KEY + " = ?");
    if (look.Statement() == nullptr ||
        sqlite3_bind_text64(look.Statement(), 1, strKey.data(), strKey.size(), SQLITE_STATIC,
                            SQLITE_UTF8) != SQLITE_OK) {
        return std::nullopt;
    }
    const int nStep = look.Step();
    if (nStep != SQLITE_ROW && nStep != SQLITE_DONE) {
        return std::nullopt;
    }
    return nStep == SQLITE_ROW;
}

std::vector<uint64_t> VerdictKeys(const std::string& strFile) {
    std::vector<uint64_t> keys;
    if (!Exists(strFile)) {
        return keys;
    }
    const Look look(strFile, std::string("select ") + module_facts::CACHE_KEY + " from " +
                                 module_facts::CACHE_TABLE);
    while (look.Step() == SQLITE_ROW) {
        const void* const pText = sqlite3_column_blob(look.Statement(), 0);
        const int nLength = sqlite3_column_bytes(look.Statement(), 0);
        if (pText != nullptr && nLength > 0) {
            keys.push_back(
                HashKey({static_cast<const char*>(pText), static_cast<size_t>(nLength)}));
        }
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

uint64_t HashKey(const std::string& strKey) {
    return std::hash<std::string>()(strKey);
}

}  // namespace database_probe
