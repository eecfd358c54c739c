#include "host/database/TablePager.h"

#include <algorithm>
#include <utility>

namespace {

// What is read in one piece: some hundred microseconds when the file is in memory.
constexpr int64_t PAGE_ROWS = 50;
constexpr size_t PAGE_BYTES = 64 * 1024;
constexpr int64_t COUNT_ROWS = 100;

}  // namespace

TablePager::TablePager(ReadOnlyDb& db, const std::string& strTable,
                       const std::vector<std::string>& columns)
    : m_db(db), m_strTable(strTable), m_columns(columns) {}

bool TablePager::NextPage(std::vector<TableRow>& rows, int64_t nLimit) {
    rows.clear();
    if (m_bAtEnd || nLimit <= 0) {
        return true;
    }
    const std::string strFrom = " where rowid >= ?1 order by rowid limit ";
    const std::string strRows = std::to_string(std::min(nLimit, PAGE_ROWS));
    bool bTooBig = false;
    std::vector<DbRow> found;
    ReadOnlyDb::Result eResult =
        m_db.Query(SelectText(true) + strFrom + strRows, m_nNextRowId, PAGE_BYTES, found);
    if (eResult == ReadOnlyDb::RESULT_TOO_BIG && found.empty()) {
        bTooBig = true;
        eResult = m_db.Query(SelectText(false) + strFrom + "1", m_nNextRowId, PAGE_BYTES, found);
    }
    if (found.empty()) {
        m_bAtEnd = eResult == ReadOnlyDb::RESULT_DONE;
        return m_bAtEnd;
    }
    for (DbRow& values : found) {
        if (!AcceptRowId(values.front())) {
            return false;
        }
        values.erase(values.begin());
        rows.push_back({std::move(values), bTooBig});
    }
    return true;
}

bool TablePager::Find(const std::string& strColumn, const ReadOnlyDb::Argument& argument,
                      std::optional<TableRow>& row) {
    row.reset();
    const std::string strWhere = " where \"" + strColumn + "\" = ?1 limit 1";
    bool bTooBig = false;
    std::vector<DbRow> found;
    ReadOnlyDb::Result eResult =
        m_db.Query(SelectText(true) + strWhere, argument, PAGE_BYTES, found);
    if (eResult == ReadOnlyDb::RESULT_TOO_BIG) {
        bTooBig = true;
        eResult = m_db.Query(SelectText(false) + strWhere, argument, PAGE_BYTES, found);
    }
    if (!found.empty()) {
        found.front().erase(found.front().begin());
        row = TableRow{std::move(found.front()), bTooBig};
    }
    return eResult == ReadOnlyDb::RESULT_DONE;
}

bool TablePager::Count(int64_t& nCount) {
    nCount = 0;
    const std::string strSql = "select count(*), max(rowid) from (select rowid from \"" +
                               m_strTable + "\" where rowid >= ?1 order by rowid limit " +
                               std::to_string(COUNT_ROWS) + ")";
    for (int64_t nFound = COUNT_ROWS; nFound == COUNT_ROWS && !m_bAtEnd;) {
        std::vector<DbRow> found;
        if (m_db.Query(strSql, m_nNextRowId, PAGE_BYTES, found) != ReadOnlyDb::RESULT_DONE) {
            return false;
        }
        nFound = found.at(0).at(0).nNumber.value_or(0);
        if (nFound > 0 && !AcceptRowId(found[0].at(1))) {
            return false;
        }
        nCount += nFound;
    }
    return true;
}

std::string TablePager::SelectText(bool bWithBig) const {
    std::string strText = "select rowid";
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const bool bLeftOut = !bWithBig && i + 1 == m_columns.size();
        // The table's name stands before the column's, for SQLite takes a lone quoted name that
        // is no column for a text.
        strText += bLeftOut ? ",null" : ",\"" + m_strTable + "\".\"" + m_columns[i] + "\"";
    }
    return strText + " from \"" + m_strTable + "\"";
}

// Moves on behind the row. False, with the error set, when it lies before the place that was asked
// for: only a damaged file does that, and following it could go round in circles for ever.
bool TablePager::AcceptRowId(const DbValue& rowId) {
    if (!rowId.nNumber || *rowId.nNumber < m_nNextRowId) {
        m_db.SetDamaged("rows out of order in table " + m_strTable);
        return false;
    }
    m_bAtEnd = *rowId.nNumber == std::numeric_limits<int64_t>::max();
    m_nNextRowId = m_bAtEnd ? *rowId.nNumber : *rowId.nNumber + 1;
    return true;
}
