#include "host/view/ViewOutput.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <system_error>

namespace {

ExitCode FailedWith(const ReadOnlyDb& db) {
    view::WriteError(db.Error());
    return EXIT_CODE_DATABASE;
}

}  // namespace

namespace view {

bool Output::WriteLine(const std::string& strLine) {
    const std::string strText = strLine + "\n";
    Note(fwrite(strText.data(), 1, strText.size(), stdout) == strText.size());
    return m_nError == 0;
}

ExitCode Output::Finish() {
    Note(fflush(stdout) == 0);
    clearerr(stdout);
    if (m_nError == 0 || m_nError == EPIPE) {
        return EXIT_CODE_SUCCESS;
    }
    WriteError("cannot write to standard output: " + std::generic_category().message(m_nError) +
               "; give it a place with room");
    return EXIT_CODE_FAILURE;
}

void Output::Note(bool bDone) {
    if (!bDone && m_nError == 0) {
        m_nError = errno == 0 ? EIO : errno;
    }
}

void WriteError(const std::string& strText) {
    fprintf(stderr, "tevmon-host: %s\n", strText.c_str());
}

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
    if (*mid.nNumber == 5) {
        return "process creations";
    }
    return *mid.nNumber == 6 ? "file operations" : "analyser " + std::to_string(*mid.nNumber);
}

std::string LevelWord(const DbValue& level) {
    if (!level.nNumber) {
        return "-";
    }
    const int64_t nLevel = *level.nNumber;
    const bool bFits =
        nLevel >= std::numeric_limits<int>::min() && nLevel <= std::numeric_limits<int>::max();
    return bFits ? text::LevelWord(static_cast<int>(nLevel)) : "level " + std::to_string(nLevel);
}

std::string TimeText(const std::optional<int64_t>& tmSeconds) {
    return tmSeconds ? text::LocalTime(*tmSeconds) : "-";
}

void AddNumber(JsonObject& json, const std::string& strKey, const std::optional<int64_t>& nNumber) {
    json.AddJson(strKey, nNumber ? std::to_string(*nNumber) : "null");
}

void AddTime(JsonObject& json, const std::string& strKey, const std::optional<int64_t>& tmSeconds) {
    json.AddJson(strKey, tmSeconds ? text::JsonQuote(text::LocalTime(*tmSeconds)) : "null");
}

ExitCode List(const TableView& table, int64_t nLimit, const std::string& strHeader,
              const std::string& strEmpty, std::string (*pToLine)(const TableRow& row)) {
    ReadOnlyDb db;
    if (!db.Open(table.strFile, table.strTable)) {
        return FailedWith(db);
    }
    TableReader reader(db, table.strTable, table.columns);
    Output output;
    std::vector<TableRow> rows;
    int64_t nLeft = nLimit;
    for (bool bFirst = true;; bFirst = false) {
        if (!reader.NextPage(rows, nLeft)) {
            (void)output.Finish();  // the database's trouble is the one to report
            return FailedWith(db);
        }
        if (rows.empty()) {
            break;
        }
        nLeft -= static_cast<int64_t>(rows.size());
        bool bWritten = !bFirst || strHeader.empty() || output.WriteLine(strHeader);
        for (const TableRow& row : rows) {
            bWritten = bWritten && output.WriteLine(pToLine(row));
        }
        if (!bWritten) {
            break;
        }
    }
    if (nLeft == nLimit && !strEmpty.empty()) {
        WriteError(strEmpty);
    }
    return output.Finish();
}

ExitCode Count(const TableView& table, bool bJson) {
    ReadOnlyDb db;
    if (!db.Open(table.strFile, table.strTable)) {
        return FailedWith(db);
    }
    TableReader reader(db, table.strTable, table.columns);
    int64_t nCount = 0;
    if (!reader.Count(nCount)) {
        return FailedWith(db);
    }
    Output output;
    (void)output.WriteLine(bJson ? JsonObject().Add("count", nCount).Text()
                                 : std::to_string(nCount));
    return output.Finish();
}

ExitCode Show(const TableView& table, const std::string& strColumn,
              const ReadOnlyDb::Argument& argument, const std::string& strMissing,
              std::string (*pToText)(const TableRow& row)) {
    ReadOnlyDb db;
    if (!db.Open(table.strFile, table.strTable)) {
        return FailedWith(db);
    }
    TableReader reader(db, table.strTable, table.columns);
    std::optional<TableRow> row;
    if (!reader.Find(strColumn, argument, row)) {
        return FailedWith(db);
    }
    if (!row) {
        WriteError(strMissing);
        return EXIT_CODE_NOT_FOUND;
    }
    Output output;
    (void)output.WriteLine(pToText(*row));
    return output.Finish();
}

}  // namespace view
