// One of the module's two databases, opened to look at while the module may be writing it.
//
// The module tries a busy database again at once and five times only; a message that is not in
// its queue by then is lost. A reader that holds SQLite's shared lock, however shortly, loses
// some: it needs but be put aside by the scheduler while it has the lock. So statements are
// executed without any lock, and what they gave is thrown away and read again when the file
// was changed meanwhile (ChangeDetector.h). Pieces are small, so that they fit between two changes.
// `immutable=1` would leave that check out and show torn rows; a copy of the file needs either
// the lock for as long as it takes or the same check for the whole of it.
//
// Only where that does not succeed in time is a statement executed under the shared lock: then
// some other program keeps a change open, or a writer died in the middle of one. With a
// write-ahead log reading hinders nobody, and locks are used as usual. The connection is
// read-only in every case: it makes, repairs and truncates nothing.
//
// Threads: one object, one thread, in a process that has the file open in no other way.
// Errors: returned as false, Error() then holds a sentence naming the file and the remedy.
#ifndef HOST_DATABASE_READONLYDB_H
#define HOST_DATABASE_READONLYDB_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/database/ChangeDetector.h"
#include "host/database/SqliteConnection.h"

// A stored value. The files are foreign data: any column may hold any type.
struct DbValue {
    std::optional<int64_t> nNumber;  // integers, and texts that are one in decimal
    std::string strText;             // its text or bytes; "" for NULL
};

using DbRow = std::vector<DbValue>;

class ReadOnlyDb {
public:
    using Argument = std::variant<int64_t, std::string>;

    // How a query went.
    enum Result {
        RESULT_DONE,
        RESULT_TOO_BIG,  // a value has more than MAX_VALUE bytes; the rows before it were given
        RESULT_FAILED,   // Error() says why; no row is given
    };

    // Bytes of the largest value that is read, so that no row can take the memory of the machine.
    static constexpr int MAX_VALUE = 64 * 1024 * 1024;

    // nBusyMs: how long a statement waits for a moment without a change, and then for a lock.
    explicit ReadOnlyDb(int nBusyMs = 500) : m_nBusyMs(nBusyMs) {}

    // Opens strFile, in which table strTable must stand; closes what was open before.
    bool Open(const std::string& strFile, const std::string& strTable);

    // Replaces rows by those of the select strSql with argument ?1, up to and with the one that
    // makes their texts nMaxBytes or more.
    Result Query(const std::string& strSql, const Argument& argument, size_t nMaxBytes,
                 std::vector<DbRow>& rows);

    // Records that the content cannot be right, strWhat being the evidence.
    void SetDamaged(const std::string& strWhat);

    const std::string& Error() const { return m_strError; }

private:
    struct Outcome {
        int nCode = SQLITE_BUSY;  // SQLITE_OK or an extended error code
        std::string strText;      // SQLite's words for it
    };

    bool LooksLikeFile();
    bool Connect(const char* pszVfs, SqliteConnection& connection, Outcome& outcome) const;
    bool QueryUnlocked(const std::string& strSql, const Argument& argument, size_t nMaxBytes,
                       std::vector<DbRow>& rows, Outcome& outcome);
    Outcome QueryLocked(const std::string& strSql, const Argument& argument, size_t nMaxBytes,
                        std::vector<DbRow>& rows) const;
    static Outcome Execute(const SqliteConnection& connection, const std::string& strSql,
                           const Argument& argument, size_t nMaxBytes, std::vector<DbRow>& rows);

    const int m_nBusyMs;
    std::string m_strFile;
    std::string m_strTable;
    std::string m_strError;
    ChangeDetector m_changes;
    SqliteConnection m_unlocked;
};

#endif
