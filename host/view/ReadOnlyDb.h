// One of the module's two databases, opened to look at while the module may be writing it.
//
// The module retries a busy database at once and only a few times, so whoever reads must hold
// SQLite's shared lock as short as can be, and never while it waits for anything else (a full
// pipe behind standard output, say). Hence every statement here is small, its rows are taken over
// into memory, and it is reset before anybody looks at them. What else could be done is worse:
// `immutable=1` and `nolock=1` read torn pages under a writer, copying the file needs the same
// lock for as long as the copy takes, and so does one long select. The connection is read-only
// (mode=ro): it makes, repairs and truncates nothing, so it cannot finish a change for a writer
// that died in the middle of it either; that is said and left to the module.
//
// Threads: one object, one thread.
// Errors: returned as false, Error() then holds a sentence naming the file and the remedy.
#ifndef HOST_VIEW_READONLYDB_H
#define HOST_VIEW_READONLYDB_H

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

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
        RESULT_FAILED,   // Error() says why
    };

    // Bytes of the largest value that is read, so that no row can take the memory of the machine.
    static constexpr int MAX_VALUE = 64 * 1024 * 1024;

    // nBusyMs: how long a statement waits for a writer, without a lock of its own meanwhile.
    explicit ReadOnlyDb(int nBusyMs = 500) : m_nBusyMs(nBusyMs) {}
    ~ReadOnlyDb();
    ReadOnlyDb(const ReadOnlyDb&) = delete;
    ReadOnlyDb& operator=(const ReadOnlyDb&) = delete;

    // Opens strFile, in which table strTable must stand.
    bool Open(const std::string& strFile, const std::string& strTable);

    // Executes the select strSql with argument ?1 and hands its rows to onRow until that returns
    // false. The shared lock is held from before the first to after the last call of onRow.
    Result Query(const std::string& strSql, const Argument& argument,
                 const std::function<bool(DbRow&&)>& onRow);

    // Records that the content cannot be right, strWhat being the evidence.
    void SetDamaged(const std::string& strWhat);

    const std::string& Error() const { return m_strError; }

private:
    bool LooksLikeFile();
    Result Fail();

    const int m_nBusyMs;
    std::string m_strFile;
    std::string m_strTable;
    std::string m_strError;
    sqlite3* m_pDb = nullptr;
};

#endif
