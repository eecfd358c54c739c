#include "host/command/QueueCommand.h"

#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <string>

#include "framework/base/Base64Util.h"
#include "host/base/EscapedText.h"
#include "host/base/JsonWriter.h"
#include "host/base/ModuleFacts.h"
#include "host/command/TablePrinter.h"

namespace {

constexpr size_t PREVIEW_BYTES = 60;

// As they stand in module_facts::CHANNEL_COLUMNS.
enum Column { COLUMN_ID, COLUMN_CREATETIME, COLUMN_MID, COLUMN_DETAIL };

table_printer::Table ChannelTable(const HostOptions& options) {
    return {options.ChannelDatabase(),
            module_facts::CHANNEL_TABLE,
            {std::begin(module_facts::CHANNEL_COLUMNS), std::end(module_facts::CHANNEL_COLUMNS)}};
}

std::string MessageOf(const TableRow& row) {
    return Base64Util::Base64Decode(row.values[COLUMN_DETAIL].strText);
}

std::string TableLine(const std::string& strId, const std::string& strQueued,
                      const std::string& strFor, const std::string& strBytes,
                      const std::string& strMessage) {
    return table_printer::Pad(strId, 8) + "  " + table_printer::Pad(strQueued, 19) + "  " +
           table_printer::Pad(strFor, 17) + "  " + table_printer::Pad(strBytes, 9) + "  " +
           strMessage;
}

std::string ToTableLine(const TableRow& row) {
    const std::string strMessage = MessageOf(row);
    return TableLine(
        text::ForTerminal(row.values[COLUMN_ID].strText),
        table_printer::TimeText(row.values[COLUMN_CREATETIME].nNumber),
        table_printer::AnalyserWord(row.values[COLUMN_MID]),
        row.bTooBig ? "-" : std::to_string(strMessage.size()),
        row.bTooBig ? "(too big to show)" : table_printer::Preview(strMessage, PREVIEW_BYTES));
}

std::string ToText(const TableRow& row) {
    const std::string strMessage = MessageOf(row);
    return "id       " + text::ForTerminal(row.values[COLUMN_ID].strText) + "\nqueued   " +
           table_printer::TimeText(row.values[COLUMN_CREATETIME].nNumber) + "\nfor      " +
           table_printer::AnalyserWord(row.values[COLUMN_MID]) + "\nbytes    " +
           (row.bTooBig ? "-" : std::to_string(strMessage.size())) + "\nmessage  " +
           (row.bTooBig ? "(too big to show)" : text::ForTerminal(strMessage));
}

std::string ToJson(const TableRow& row) {
    JsonObject json;
    table_printer::AddNumber(json, "id", row.values[COLUMN_ID].nNumber);
    table_printer::AddNumber(json, module_facts::CHANNEL_COLUMNS[COLUMN_CREATETIME],
                             row.values[COLUMN_CREATETIME].nNumber);
    table_printer::AddTime(json, "queued", row.values[COLUMN_CREATETIME].nNumber);
    table_printer::AddNumber(json, module_facts::CHANNEL_COLUMNS[COLUMN_MID],
                             row.values[COLUMN_MID].nNumber);
    json.Add("for", table_printer::AnalyserWord(row.values[COLUMN_MID]));
    if (row.bTooBig) {
        json.AddJson("bytes", "null").AddJson("message", "null");
    } else {
        const std::string strMessage = MessageOf(row);
        json.Add("bytes", static_cast<uint64_t>(strMessage.size())).Add("message", strMessage);
    }
    return json.Text();
}

void AddList(Command& queue, const HostOptions& options, int& nExitCode) {
    Command list = queue.AddCommand("list", "Show the waiting messages, oldest first");
    const auto pnLimit = std::make_shared<int64_t>(std::numeric_limits<int64_t>::max());
    list.AddOption("--limit", *pnLimit, "Show at most N messages (default: all)")
        .TypeName("N")
        .Positive();
    list.OnRun([&options, &nExitCode, pnLimit] {
        nExitCode = table_printer::List(
            ChannelTable(options), *pnLimit,
            options.Choose(TableLine("ID", "QUEUED", "FOR", "BYTES", "MESSAGE"), std::string()),
            options.Choose("the queue is empty", ""), options.Choose(ToTableLine, ToJson));
    });
}

void AddShow(Command& queue, const HostOptions& options, int& nExitCode) {
    Command show = queue.AddCommand("show", "Show one message whole");
    const auto pnId = std::make_shared<int64_t>(0);
    show.AddOption("ID", *pnId, "The message's number, as 'queue list' shows it").Required();
    show.OnRun([&options, &nExitCode, pnId] {
        nExitCode =
            table_printer::Show(ChannelTable(options), "id", *pnId,
                                "no message " + std::to_string(*pnId) +
                                    " is waiting; 'tevmon-host queue list' shows those that are",
                                options.Choose(ToText, ToJson));
    });
}

}  // namespace

void AddQueueCommand(Command& program, const HostOptions& options, int& nExitCode) {
    Command queue = program.AddCommand("queue", "Look at the messages that wait for analysis");
    queue.NeedsCommand();  // --json and the like may stand behind the command
    AddList(queue, options, nExitCode);
    queue.AddCommand("count", "Print how many messages are waiting").OnRun([&options, &nExitCode] {
        nExitCode = table_printer::Count(ChannelTable(options), options);
    });
    AddShow(queue, options, nExitCode);
}
