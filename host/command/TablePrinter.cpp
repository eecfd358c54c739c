#include "host/command/TablePrinter.h"

#include <algorithm>
#include <limits>

#include "host/base/Console.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/ModuleFacts.h"
#include "host/verdict/VerdictLevel.h"

namespace {

ExitCode Fail(Console& output, ExitCode eCode, const std::string& strText) {
    output.Error("tevmon-host: " + strText);
    return eCode;
}

// How a command ends that has printed all it had.
ExitCode Finish(Console& output) {
    if (!output.IsBroken()) {
        return EXIT_CODE_SUCCESS;
    }
    const std::string strReason = output.BrokenReason();
    if (!strReason.empty()) {
        output.Error("tevmon-host: cannot write to standard output: " + strReason +
                     "; give it a place with room");
    }
    return EXIT_CODE_OUTPUT;
}

}  // namespace

namespace table_printer {

std::string Pad(const std::string& strText, size_t nWidth) {
    return strText.size() < nWidth ? strText + std::string(nWidth - strText.size(), ' ') : strText;
}

std::string Preview(const std::string& strText, size_t nBytes) {
    size_t nEnd = 0;
    while (nEnd < strText.size() && nEnd < nBytes) {
        nEnd += std::max<size_t>(text::Utf8Length(strText, nEnd), 1);
    }
    return text::ForTerminal(strText.substr(0, nEnd)) + (nEnd < strText.size() ? "..." : "");
}

std::string AnalyserWord(const DbValue& mid) {
    if (!mid.nNumber) {
        return "-";
    }
    if (*mid.nNumber == module_facts::ANALYSER_LAUNCHES) {
        return "process creations";
    }
    return *mid.nNumber == module_facts::ANALYSER_FILES
               ? "file operations"
               : "analyser " + std::to_string(*mid.nNumber);
}

std::string LevelWord(const DbValue& level) {
    if (!level.nNumber) {
        return "-";
    }
    const int64_t nLevel = *level.nNumber;
    const bool bFits =
        nLevel >= std::numeric_limits<int>::min() && nLevel <= std::numeric_limits<int>::max();
    return bFits ? verdict_level::Word(static_cast<int>(nLevel))
                 : "level " + std::to_string(nLevel);
}

std::string TimeText(const std::optional<int64_t>& tmSeconds) {
    return tmSeconds ? text::LocalTime(*tmSeconds) : "-";
}

void AddNumber(JsonObject& json, const std::string& strKey, const std::optional<int64_t>& nNumber) {
    json.AddJson(strKey, nNumber ? std::to_string(*nNumber) : "null");
}

void AddTime(JsonObject& json, const std::string& strKey, const std::optional<int64_t>& tmSeconds) {
    json.AddJson(strKey, tmSeconds ? json_writer::Quote(text::LocalTime(*tmSeconds)) : "null");
}

ExitCode List(const Table& table, int64_t nLimit, const std::string& strHeader,
              const std::string& strEmpty, std::string (*pToLine)(const TableRow& row)) {
    Console output;
    ReadOnlyDb db;
    if (!db.Open(table.strFile, table.strTable)) {
        return Fail(output, EXIT_CODE_DATABASE, db.Error());
    }
    TablePager reader(db, table.strTable, table.columns);
    std::vector<TableRow> rows;
    int64_t nLeft = nLimit;
    for (bool bFirst = true;; bFirst = false) {
        if (!reader.NextPage(rows, nLeft)) {
            return Fail(output, EXIT_CODE_DATABASE, db.Error());
        }
        if (rows.empty()) {
            break;
        }
        nLeft -= static_cast<int64_t>(rows.size());
        if (bFirst && !strHeader.empty()) {
            output.Line(strHeader);
        }
        for (const TableRow& row : rows) {
            output.Line(pToLine(row));
        }
        if (output.IsBroken()) {
            break;
        }
    }
    if (nLeft == nLimit && !strEmpty.empty()) {
        output.Error("tevmon-host: " + strEmpty);
    }
    return Finish(output);
}

ExitCode Count(const Table& table, const HostOptions& options) {
    Console output;
    ReadOnlyDb db;
    if (!db.Open(table.strFile, table.strTable)) {
        return Fail(output, EXIT_CODE_DATABASE, db.Error());
    }
    TablePager reader(db, table.strTable, table.columns);
    int64_t nCount = 0;
    if (!reader.Count(nCount)) {
        return Fail(output, EXIT_CODE_DATABASE, db.Error());
    }
    output.Line(options.Choose(std::to_string(nCount), JsonObject().Add("count", nCount).Text()));
    return Finish(output);
}

ExitCode Show(const Table& table, const std::string& strColumn,
              const ReadOnlyDb::Argument& argument, const std::string& strMissing,
              std::string (*pToText)(const TableRow& row)) {
    Console output;
    ReadOnlyDb db;
    if (!db.Open(table.strFile, table.strTable)) {
        return Fail(output, EXIT_CODE_DATABASE, db.Error());
    }
    TablePager reader(db, table.strTable, table.columns);
    std::optional<TableRow> row;
    if (!reader.Find(strColumn, argument, row)) {
        return Fail(output, EXIT_CODE_DATABASE, db.Error());
    }
    if (!row) {
        return Fail(output, EXIT_CODE_NOT_FOUND, strMissing);
    }
    output.Line(pToText(*row));
    return Finish(output);
}

}  // namespace table_printer
