#include "host/view/TableReader.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace {

// What is read under one shared lock: well below a millisecond when the file is in memory.
constexpr int64_t PAGE_ROWS = 50;
constexpr size_t PAGE_BYTES = 64 * 1024;
constexpr int64_t COUNT_ROWS = 200;

size_t SizeOf(const DbRow& row) {
    size_t nBytes = 0;
    for (const DbValue& value : row) {
        nBytes += value.strText.size();
    }
    return nBytes;
}

}  // namespace

TableReader::TableReader(ReadOnlyDb& db, const std::string& strTable,
                         const std::vector<std::string>& columns)
    : m_db(db), m_strTable(strTable), m_columns(columns) {}

bool TableReader::NextPage(std::vector<TableRow>& rows, int64_t nLimit) {
    rows.clear();
    if (m_bAtEnd || nLimit <= 0) {
        return true;
    }
    PauseBetweenPages();
    const int64_t nWanted = std::min(nLimit, PAGE_ROWS);
    const std::string strFrom = " where rowid >= ?1 order by rowid limit ";
    bool bOrdered = true;
    size_t nBytes = 0;
    bool bBigNext = false;
    const auto takeRow = [&](DbRow&& row) {
        bOrdered = AcceptRowId(row.front());
        row.erase(row.begin());
        nBytes += SizeOf(row);
        rows.push_back({std::move(row), bBigNext});
        return bOrdered && nBytes < PAGE_BYTES;
    };

    ReadOnlyDb::Result eResult =
        m_db.Query(SelectText(true) + strFrom + std::to_string(nWanted), m_nNextRowId, takeRow);
    if (eResult == ReadOnlyDb::RESULT_TOO_BIG && rows.empty()) {
        bBigNext = true;
        eResult = m_db.Query(SelectText(false) + strFrom + "1", m_nNextRowId, takeRow);
    }
    const bool bPageGiven = !rows.empty() && eResult != ReadOnlyDb::RESULT_FAILED;
    if (!bOrdered) {
        m_db.SetDamaged("rows out of order in table " + m_strTable);
        return false;
    }
    m_bAtEnd = m_bAtEnd || (eResult == ReadOnlyDb::RESULT_DONE && rows.empty());
    return bPageGiven || eResult == ReadOnlyDb::RESULT_DONE;
}

bool TableReader::Find(const std::string& strColumn, const ReadOnlyDb::Argument& argument,
                       std::optional<TableRow>& row) {
    row.reset();
    const std::string strWhere = " where \"" + strColumn + "\" = ?1 limit 1";
    bool bTooBig = false;
    const auto takeRow = [&](DbRow&& values) {
        values.erase(values.begin());
        row = TableRow{std::move(values), bTooBig};
        return false;
    };
    ReadOnlyDb::Result eResult = m_db.Query(SelectText(true) + strWhere, argument, takeRow);
    if (eResult == ReadOnlyDb::RESULT_TOO_BIG) {
        bTooBig = true;
        eResult = m_db.Query(SelectText(false) + strWhere, argument, takeRow);
    }
    return eResult == ReadOnlyDb::RESULT_DONE;
}

bool TableReader::Count(int64_t& nCount) {
    nCount = 0;
    const std::string strSql = "select count(*), max(rowid) from (select rowid from \"" +
                               m_strTable + "\" where rowid >= ?1 order by rowid limit " +
                               std::to_string(COUNT_ROWS) + ")";
    for (int64_t nFound = COUNT_ROWS; nFound == COUNT_ROWS && !m_bAtEnd;) {
        PauseBetweenPages();
        bool bOrdered = true;
        const auto takeRow = [&](DbRow&& row) {
            nFound = row[0].nNumber.value_or(0);
            bOrdered = nFound == 0 || AcceptRowId(row[1]);
            return false;
        };
        if (m_db.Query(strSql, m_nNextRowId, takeRow) != ReadOnlyDb::RESULT_DONE) {
            return false;
        }
        if (!bOrdered) {
            m_db.SetDamaged("rows out of order in table " + m_strTable);
            return false;
        }
        nCount += nFound;
    }
    return true;
}

std::string TableReader::SelectText(bool bWithBig) const {
    std::string strText = "select rowid";
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const bool bLeftOut = !bWithBig && i + 1 == m_columns.size();
        // The table's name stands before the column's, for SQLite takes a lone quoted name that
        // is no column for a text.
        strText += bLeftOut ? ",null" : ",\"" + m_strTable + "\".\"" + m_columns[i] + "\"";
    }
    return strText + " from \"" + m_strTable + "\"";
}

// Moves on behind the row. False when it lies before the place that was asked for: only a damaged
// file does that, and following it could go round in circles for ever.
bool TableReader::AcceptRowId(const DbValue& rowId) {
    if (!rowId.nNumber || *rowId.nNumber < m_nNextRowId) {
        return false;
    }
    m_bAtEnd = *rowId.nNumber == std::numeric_limits<int64_t>::max();
    m_nNextRowId = m_bAtEnd ? *rowId.nNumber : *rowId.nNumber + 1;
    return true;
}

void TableReader::PauseBetweenPages() {
    if (m_bStarted) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m_bStarted = true;
}
