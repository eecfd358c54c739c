// The verdict cache's store: one row per key in table "cachotable" of ../data/db/tevcloudcacho.db
// (relative to the host's current directory).
//
// The key stands in the statements as it is, unescaped, which is relied on; the connection's fence
// (see framework/sqlite/CppSQLite3.h) bounds what a hostile key can do. A change whose key has a
// quote that no second one doubles, and so could name other rows, is not run: code 23. Of
// more than 256 bytes, or where it could cost more than a pass over the table, SQLite is not even
// given it, and looking it up fails as well.
//
// Threads: any. Every public call but Delete and SelectPage holds the mutex from entry to return;
//   those two are for a caller that holds it through Lock and Unlock.
// Errors: nothing throws. A failed call rolls back and prints SQLite's text on standard output.
// Ownership: a member of CTevCloudCachoMgr.
#ifndef TEVMON_CORE_CTEVCLOUDCACHODB_H
#define TEVMON_CORE_CTEVCLOUDCACHODB_H

#include <cstdint>
#include <list>
#include <string>

#include "tevmon/core/CTevStore.h"
#include "tevmon/core/CachoRecord.h"

// A stretch of the table. nOffset grows by the rows read, whatever becomes of them.
struct CachoPage {
    int32_t nOffset = 0;
    std::list<CachoRecord> recordList;
};

class CTevCloudCachoDB : public CTevStore {
public:
    CTevCloudCachoDB();  // opens the file
    ~CTevCloudCachoDB() = default;

    // Adds a row. Returns 0 or SQLite's code (19 for a key that is there already).
    int Insert(const CachoRecord& record);

    // 1 with the row copied into record, 0 when there is none, -1 on an error; record is untouched
    // then.
    int Select(const std::string& strKey, CachoRecord& record);

    // Always 0: the statement has a parenthesis too many, and that no stored verdict is ever
    // rewritten is relied on. (1 would be success.) With pstrErrors what SQLite says is appended to
    // it, a line, and is the caller's to print.
    int Update(const CachoRecord& record, std::string* pstrErrors = nullptr);

    // 0 on success, also when there is no such row; 1 for an empty key or any error, so that a
    // busy database is not tried again.
    int Delete(const std::string& strKey) TEV_REQUIRES(m_mutex);

    // Replaces page.recordList by at most nCount rows from page.nOffset on and moves the offset.
    // Returns the number of rows, 0 at the end, -1 on an error with the list empty.
    int SelectPage(CachoPage& page, int nCount) TEV_REQUIRES(m_mutex);

    // Rows, or -1 on an error, unlike the channel's 0.
    int Count();

    // Deletes every row: 1, or 0 on an error.
    int Clear();

    void Lock() TEV_ACQUIRE(m_mutex) { m_mutex.Lock(); }
    void Unlock() TEV_RELEASE(m_mutex) { UnlockAndPrint(); }

private:
    template <class Make>
    int ChangeRow(const std::string& strKey, Make make) TEV_REQUIRES(m_mutex);

    const std::string m_strInsertPrefix;  // ends in ") values"
    const std::string m_strSelectPrefix;  // ends in "  where "
};

#endif
