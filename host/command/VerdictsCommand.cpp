#include "host/command/VerdictsCommand.h"

#include <cstdint>
#include <ctime>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "framework/base/Base64Util.h"
#include "host/base/EscapedText.h"
#include "host/base/JsonWriter.h"
#include "host/base/ModuleFacts.h"
#include "host/command/TablePrinter.h"

namespace {

// As they stand in module_facts::CACHE_COLUMNS.
enum Column {
    COLUMN_KEY,
    COLUMN_LEVEL,
    COLUMN_CREATE,
    COLUMN_INTERVAL,
    COLUMN_MID,
    COLUMN_DETAIL,
};

table_printer::Table CacheTable(const HostOptions& options) {
    return {options.CacheDatabase(),
            module_facts::CACHE_TABLE,
            {std::begin(module_facts::CACHE_COLUMNS), std::end(module_facts::CACHE_COLUMNS)}};
}

// The last second in which the verdict counts, held at the ends of the range; nothing when either
// part is no number.
std::optional<int64_t> ExpiryOf(const TableRow& row) {
    const std::optional<int64_t> tmCreate = row.values[COLUMN_CREATE].nNumber;
    const std::optional<int64_t> tmInterval = row.values[COLUMN_INTERVAL].nNumber;
    if (!tmCreate || !tmInterval) {
        return std::nullopt;
    }
    int64_t tmExpiry = 0;
    if (__builtin_add_overflow(*tmCreate, *tmInterval, &tmExpiry)) {
        return *tmCreate < 0 ? std::numeric_limits<int64_t>::min()
                             : std::numeric_limits<int64_t>::max();
    }
    return tmExpiry;
}

bool IsExpired(const std::optional<int64_t>& tmExpiry) {
    return tmExpiry && *tmExpiry < time(nullptr);
}

std::string DetailOf(const TableRow& row) {
    return Base64Util::Base64Decode(row.values[COLUMN_DETAIL].strText);
}

std::string TableLine(const std::string& strRecorded, const std::string& strVerdict,
                      const std::string& strExpires, const std::string& strFor,
                      const std::string& strKey) {
    return table_printer::Pad(strRecorded, 19) + "  " + table_printer::Pad(strVerdict, 9) + "  " +
           table_printer::Pad(strExpires, 19) + "  " + table_printer::Pad(strFor, 17) + "  " +
           strKey;
}

std::string ToTableLine(const TableRow& row) {
    const std::optional<int64_t> tmExpiry = ExpiryOf(row);
    return TableLine(table_printer::TimeText(row.values[COLUMN_CREATE].nNumber),
                     table_printer::LevelWord(row.values[COLUMN_LEVEL]),
                     IsExpired(tmExpiry) ? "expired" : table_printer::TimeText(tmExpiry),
                     table_printer::AnalyserWord(row.values[COLUMN_MID]),
                     text::ForTerminal(row.values[COLUMN_KEY].strText));
}

std::string ToText(const TableRow& row) {
    const std::optional<int64_t> tmExpiry = ExpiryOf(row);
    return "key       " + text::ForTerminal(row.values[COLUMN_KEY].strText) + "\nverdict   " +
           table_printer::LevelWord(row.values[COLUMN_LEVEL]) + " (" +
           text::ForTerminal(row.values[COLUMN_LEVEL].strText) + ")" + "\nrecorded  " +
           table_printer::TimeText(row.values[COLUMN_CREATE].nNumber) + "\nexpires   " +
           table_printer::TimeText(tmExpiry) + (IsExpired(tmExpiry) ? " (expired)" : "") +
           "\nfor       " + table_printer::AnalyserWord(row.values[COLUMN_MID]) + "\ndetail    " +
           (row.bTooBig ? "(too big to show)" : text::ForTerminal(DetailOf(row)));
}

std::string ToJson(const TableRow& row) {
    const std::optional<int64_t> tmExpiry = ExpiryOf(row);
    JsonObject json;
    json.Add("key", row.values[COLUMN_KEY].strText);
    table_printer::AddNumber(json, "level", row.values[COLUMN_LEVEL].nNumber);
    json.Add("verdict", table_printer::LevelWord(row.values[COLUMN_LEVEL]));
    table_printer::AddNumber(json, module_facts::CACHE_COLUMNS[COLUMN_CREATE],
                             row.values[COLUMN_CREATE].nNumber);
    table_printer::AddTime(json, "recorded", row.values[COLUMN_CREATE].nNumber);
    table_printer::AddNumber(json, module_facts::CACHE_COLUMNS[COLUMN_INTERVAL],
                             row.values[COLUMN_INTERVAL].nNumber);
    table_printer::AddTime(json, "expires", tmExpiry);
    json.Add("expired", IsExpired(tmExpiry));
    table_printer::AddNumber(json, module_facts::CACHE_COLUMNS[COLUMN_MID],
                             row.values[COLUMN_MID].nNumber);
    json.Add("for", table_printer::AnalyserWord(row.values[COLUMN_MID]));
    if (row.bTooBig) {
        json.AddJson("detail", "null");
    } else {
        json.Add("detail", DetailOf(row));
    }
    return json.Text();
}

void AddList(Command& verdicts, const HostOptions& options, int& nExitCode) {
    Command list = verdicts.AddCommand("list", "Show the stored verdicts, oldest first");
    const auto pnLimit = std::make_shared<int64_t>(std::numeric_limits<int64_t>::max());
    list.AddOption("--limit", *pnLimit, "Show at most N verdicts (default: all)")
        .TypeName("N")
        .Positive();
    list.OnRun([&options, &nExitCode, pnLimit] {
        nExitCode = table_printer::List(
            CacheTable(options), *pnLimit,
            options.Choose(TableLine("RECORDED", "VERDICT", "EXPIRES", "FOR", "KEY"),
                           std::string()),
            options.Choose("no verdict is stored", ""), options.Choose(ToTableLine, ToJson));
    });
}

void AddGet(Command& verdicts, const HostOptions& options, int& nExitCode) {
    Command get = verdicts.AddCommand("get", "Show the verdict on one program");
    const auto pstrKey = std::make_shared<std::string>();
    get.AddOption("KEY", *pstrKey, "The program's SHA-1 and MD5 digests, one after the other")
        .Required();
    get.OnRun([&options, &nExitCode, pstrKey] {
        nExitCode =
            table_printer::Show(CacheTable(options), module_facts::CACHE_KEY, *pstrKey,
                                "no verdict is stored for " + text::ForTerminal(*pstrKey) +
                                    "; 'tevmon-host verdicts list' shows the keys that have one",
                                options.Choose(ToText, ToJson));
    });
}

}  // namespace

void AddVerdictsCommand(Command& program, const HostOptions& options, int& nExitCode) {
    Command verdicts = program.AddCommand("verdicts", "Look at the verdicts that are stored");
    verdicts.NeedsCommand();  // --json and the like may stand behind the command
    AddList(verdicts, options, nExitCode);
    verdicts.AddCommand("count", "Print how many verdicts are stored")
        .OnRun([&options, &nExitCode] {
            nExitCode = table_printer::Count(CacheTable(options), options);
        });
    AddGet(verdicts, options, nExitCode);
}
