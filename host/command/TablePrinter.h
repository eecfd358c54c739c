// What the commands that show the databases have in common: wording values and printing rows.
//
// Threads: the command's. Errors: returned; nothing throws but std::bad_alloc.
#ifndef HOST_COMMAND_TABLEPRINTER_H
#define HOST_COMMAND_TABLEPRINTER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/base/HostOptions.h"
#include "host/base/JsonWriter.h"
#include "host/database/ReadOnlyDb.h"
#include "host/database/TablePager.h"
#include "host/process/ExitCodes.h"

namespace table_printer {

// strText, filled with blanks to nWidth bytes at least.
std::string Pad(const std::string& strText, size_t nWidth);

// The beginning of strText on one line for a person, "..." behind it when it is cut.
std::string Preview(const std::string& strText, size_t nBytes);

// 5 "process creations", 6 "file operations", else "analyser N"; "-" for no number.
std::string AnalyserWord(const DbValue& mid);

// The word for a verdict's level; "-" for no number.
std::string LevelWord(const DbValue& level);

// Local time, "-" for no number.
std::string TimeText(const std::optional<int64_t>& tmSeconds);

// Adds the number, or null when there is none.
void AddNumber(JsonObject& json, const std::string& strKey, const std::optional<int64_t>& nNumber);

// Adds local time, or null when there is none.
void AddTime(JsonObject& json, const std::string& strKey, const std::optional<int64_t>& tmSeconds);

// What a table is called and read with. The last column is the big one.
struct Table {
    std::string strFile;
    std::string strTable;
    std::vector<std::string> columns;
};

// The three things that both commands do, given how one row reads. An exit code each; texts for
// what failed go to standard error.

// Every row, at most nLimit, a page in memory at a time. strHeader comes first, unless it is "".
// With no row at all strEmpty goes to standard error, unless it is "".
ExitCode List(const Table& table, int64_t nLimit, const std::string& strHeader,
              const std::string& strEmpty, std::string (*pToLine)(const TableRow& row));

// The number of rows; as {"count":N} for programs.
ExitCode Count(const Table& table, const HostOptions& options);

// The text of the row whose strColumn equals argument, or EXIT_CODE_NOT_FOUND and strMissing.
ExitCode Show(const Table& table, const std::string& strColumn,
              const ReadOnlyDb::Argument& argument, const std::string& strMissing,
              std::string (*pToText)(const TableRow& row));

}  // namespace table_printer

#endif
