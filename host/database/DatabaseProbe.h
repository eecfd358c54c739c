// Looks into a database of the module while the module works with it.
//
// The module answers a busy database by trying again at once, five times for its queue, and a
// message that is not stored by then is lost. With a write-ahead log (ModuleDatabase.h) a look
// keeps nobody from writing; still it is one short statement on a read-only connection that is
// closed again, never a scan of the table.
//
// Threads: any; no state.
// Errors: "unknown" (no value); nothing throws but std::bad_alloc.
#ifndef HOST_DATABASE_DATABASEPROBE_H
#define HOST_DATABASE_DATABASEPROBE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace database_probe {

// Messages in the queue of strFile; 0 when file or table do not exist yet. Taken from the first and
// last row id, which follow each other without gaps.
std::optional<uint64_t> QueueDepth(const std::string& strFile);

// Whether the verdict cache strFile holds a row for strKey; false when there is no file.
std::optional<bool> HasVerdict(const std::string& strFile, const std::string& strKey);

// HashKey of every key in the verdict cache, sorted. Reads the whole table: only while no module
// works with it. Empty when it cannot be read.
std::vector<uint64_t> VerdictKeys(const std::string& strFile);

// A number for a key. Two keys may share one.
uint64_t HashKey(const std::string& strKey);

}  // namespace database_probe

#endif
