// Walks one table from its first row to its last in pages, each a statement of its own, in the
// order in which the rows were stored. Rows that come and go meanwhile are seen or not; every
// row that stays is seen once. See ReadOnlyDb.h for why it is done in pieces.
//
// Threads: one object, one thread. Errors: false, and the database's Error() says why.
#ifndef HOST_DATABASE_TABLEPAGER_H
#define HOST_DATABASE_TABLEPAGER_H

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "host/database/ReadOnlyDb.h"

struct TableRow {
    DbRow values;          // in the order of the columns asked for
    bool bTooBig = false;  // the last value was too big to be read; it reads as NULL
};

class TablePager {
public:
    // The last of columns is the big one. db must be open on strTable, and outlives the reader.
    TablePager(ReadOnlyDb& db, const std::string& strTable,
               const std::vector<std::string>& columns);

    // Replaces rows by the next page, at most nLimit rows; empty at the end.
    bool NextPage(std::vector<TableRow>& rows, int64_t nLimit);

    // The first row whose strColumn equals argument; nothing when there is none.
    bool Find(const std::string& strColumn, const ReadOnlyDb::Argument& argument,
              std::optional<TableRow>& row);

    // The number of rows, counted in pages as well.
    bool Count(int64_t& nCount);

private:
    std::string SelectText(bool bWithBig) const;
    bool AcceptRowId(const DbValue& rowId);

    ReadOnlyDb& m_db;
    const std::string m_strTable;
    const std::vector<std::string> m_columns;
    int64_t m_nNextRowId = std::numeric_limits<int64_t>::min();
    bool m_bAtEnd = false;
};

#endif
