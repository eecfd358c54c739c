#include "host/report/text/WatchLine.h"

#include "framework/base/CStr.h"
#include "host/base/Text.h"

namespace watch_line {

namespace {

// Two blanks end a column, so a name does not have them: it could go on with a maker and a package
// of its own.
std::string Name(const std::string& strName) {
    std::string strText = text::ForTerminal(strName);
    for (size_t nPos = 0; (nPos = strText.find("  ", nPos)) != std::string::npos; nPos += 5) {
        strText.replace(nPos + 1, 1, "\\x20");
    }
    return strText;
}

}  // namespace

WatchRow Judged(const std::string& strWhat, const std::string& strSubject, const std::string& strBy,
                const Verdict& verdict, bool bCached) {
    WatchRow row;
    row.strTime = text::ClockNow();
    row.strVerdict = text::LevelWord(verdict.nLevel);
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

WatchRow Told(const std::string& strVerdict, const std::string& strWhat,
              const std::string& strSubject, const std::string& strWhy) {
    WatchRow row;
    row.strTime = text::ClockNow();
    row.strVerdict = strVerdict;
    row.strWhat = strWhat;
    row.strSubject = strSubject;
    row.strWhy = strWhy;
    return row;
}

std::string Text(const Output& output, const WatchRow& row) {
    const std::string strVerdict =
        row.nLevel == 0 ? CStr::stdformat("%-13s", row.strVerdict.c_str())
                        : CStr::stdformat("%-9s %3d", row.strVerdict.c_str(), row.nLevel);
    const auto eColour = row.nLevel == 0 ? Output::COLOUR_DIM : LevelColour(row.nLevel);
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
    return strMore.empty() ? strLine : strLine + output.Paint(Output::COLOUR_DIM, strMore);
}

Output::Colour LevelColour(int nLevel) {
    if (nLevel >= LEVEL_BAD) {
        return Output::COLOUR_RED;
    }
    return nLevel <= 20 ? Output::COLOUR_GREEN : Output::COLOUR_YELLOW;
}

}  // namespace watch_line
