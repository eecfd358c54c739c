#include "host/report/text/VerdictRow.h"

#include "framework/base/CStr.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/JsonWriter.h"
#include "host/verdict/VerdictLevel.h"

namespace verdict_row {

std::string Name(const std::string& strName) {
    std::string strText = text::ForTerminal(strName);
    for (size_t nPos = 0; (nPos = strText.find("  ", nPos)) != std::string::npos; nPos += 5) {
        strText.replace(nPos + 1, 1, "\\x20");
    }
    return strText;
}

VerdictRow Judged(const std::string& strWhat, const std::string& strSubject,
                  const std::string& strBy, const Verdict& verdict, bool bCached) {
    VerdictRow row;
    row.strTime = text::ClockNow();
    row.strVerdict = verdict_level::Word(verdict.nLevel);
    row.nLevel = verdict.nLevel;
    row.strWhat = strWhat;
    row.strSubject = strSubject;
    row.strBy = strBy;
    const std::string strSource = verdict.strSource == "none" ? "" : verdict.strSource;
    row.strWhy = verdict.strOwner;
    if (!strSource.empty()) {
        row.strWhy = row.strWhy.empty() ? strSource : row.strWhy + " (" + strSource + ")";
    }
    row.strOwner = verdict.strOwner.empty() ? strSource : verdict.strOwner;
    row.bCached = bCached;
    return row;
}

VerdictRow Unjudged(const std::string& strVerdict, const std::string& strWhat,
                    const std::string& strSubject, const std::string& strWhy) {
    VerdictRow row;
    row.strTime = text::ClockNow();
    row.strVerdict = strVerdict;
    row.strWhat = strWhat;
    row.strSubject = strSubject;
    row.strWhy = strWhy;
    return row;
}

std::string Text(const Console& output, const VerdictRow& row) {
    const std::string strVerdict =
        row.nLevel == 0 ? CStr::stdformat("%-13s", row.strVerdict.c_str())
                        : CStr::stdformat("%-9s %3d", row.strVerdict.c_str(), row.nLevel);
    const auto eColour = row.nLevel == 0 ? Console::COLOUR_DIM : LevelColour(row.nLevel);
    std::string strLine = row.strTime + "  " + output.Paint(eColour, strVerdict) + "  " +
                          CStr::stdformat("%-11s  ", row.strWhat.c_str()) + Name(row.strSubject);
    std::string strMore;
    if (!row.strBy.empty()) {
        strMore += "  by " + Name(row.strBy);
    }
    if (!row.strWhy.empty()) {
        strMore += "  " + text::ForTerminal(row.strWhy);
    }
    if (row.bCached) {
        strMore += "  cached";
    }
    return strMore.empty() ? strLine : strLine + output.Paint(Console::COLOUR_DIM, strMore);
}

Console::Colour LevelColour(int nLevel) {
    static constexpr Console::Colour COLOURS[] = {Console::COLOUR_GREEN, Console::COLOUR_YELLOW,
                                                  Console::COLOUR_RED};
    return COLOURS[verdict_level::ClassOf(nLevel)];
}

std::string LevelsJson(const std::map<int, uint64_t>& byLevel) {
    JsonObject levels;
    for (const auto& entry : byLevel) {
        levels.Add(std::to_string(entry.first), entry.second);
    }
    return levels.Text();
}

}  // namespace verdict_row
