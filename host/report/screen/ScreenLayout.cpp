#include "host/report/screen/ScreenLayout.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>

#include "framework/base/CStr.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/report/screen/DisplayWidth.h"
#include "host/verdict/VerdictLevel.h"

namespace screen_layout {

namespace {

constexpr size_t NARROWEST_FIELD = 19;
constexpr size_t WIDEST_FIELD = 30;
constexpr size_t MOST_FIELDS = 4;  // in a line

constexpr char BOLD[] = "\033[1m";
constexpr char DIM[] = "\033[2m";
constexpr char RED[] = "\033[31m";
constexpr char BOLD_RED[] = "\033[1;31m";
constexpr char GREEN[] = "\033[32m";
constexpr char YELLOW[] = "\033[33m";
constexpr char REVERSE[] = "\033[7m";

std::string Paint(const ScreenFormat& screen, const char* pszCode, const std::string& strText) {
    return screen.bColour && *pszCode != '\0' ? pszCode + strText + "\033[0m" : strText;
}

const char* LevelCode(int nLevel) {
    static const char* const CODES[] = {GREEN, YELLOW, BOLD_RED};
    return CODES[verdict_level::ClassOf(nLevel)];
}

std::string UpText(uint64_t nSeconds) {
    return CStr::stdformat("%" PRIu64 ":%02u:%02u", nSeconds / 3600,
                           static_cast<unsigned>(nSeconds / 60 % 60),
                           static_cast<unsigned>(nSeconds % 60));
}

std::string RateText(double dRate) {
    return text::Number(static_cast<uint64_t>(std::llround(dRate))) + "/s";
}

std::string Title(const ScreenNumbers& numbers, const ScreenFormat& screen) {
    const std::string strLeft = " tevmon-host watch   " + text::ForTerminal(numbers.strState);
    std::string strRight = "up " + UpText(numbers.nUpSeconds) + "   " + numbers.strClock + " ";
    if (screen.nColumns >= 100) {
        strRight = "Ctrl-C ends the run   " + strRight;
    }
    const size_t nRight = std::min(strRight.size(), screen.nColumns);
    return Paint(screen, REVERSE,
                 display_width::Fit(strLeft, screen.nColumns - nRight, screen.bUnicode) +
                     display_width::Fit(strRight, nRight, screen.bUnicode));
}

// With separators, without them, or in thousands and so on, as it fits.
std::string Compact(const std::string& strNumber, size_t nWidth) {
    std::string strDigits;
    for (const char c : strNumber) {
        strDigits += c == ',' ? "" : std::string(1, c);
    }
    for (const char* pszUnit : {"", "k", "M", "G", "T"}) {
        if (strNumber.size() <= nWidth) {
            break;
        }
        if (strDigits.size() < nWidth || (*pszUnit == '\0' && strDigits.size() == nWidth)) {
            return strDigits + pszUnit;
        }
        strDigits.resize(strDigits.size() - std::min<size_t>(strDigits.size(), 3));
    }
    return strNumber;
}

struct Field {
    const char* pszLabel;
    std::string strNumber;
    std::string strMore;  // shown where there is room
    const char* pszCode;  // of the number
};

const char* WhenSome(uint64_t nNumber, const char* pszCode) {
    return nNumber == 0 ? DIM : pszCode;
}

std::vector<Field> Fields(const ScreenNumbers& numbers, bool bWide) {
    const uint64_t nLooked = numbers.nQueried + numbers.nCached;
    const std::string strHits =
        nLooked == 0 ? "-" : std::to_string(numbers.nCached * 100 / nLooked) + " %";
    const std::string strMessages =
        numbers.nWaitingMessages == 0 ? "" : "in " + text::Number(numbers.nWaitingMessages);
    const std::string strOverflows =
        numbers.nOverflows == 0 ? "" : "full " + text::Number(numbers.nOverflows);
    const uint64_t nLosses = numbers.nLost + numbers.nOverflows;
    const std::string strLost = numbers.nOverflows != 0 && !bWide
                                    ? text::Number(numbers.nLost) + "+"
                                    : text::Number(numbers.nLost);
    const std::string strSeen =
        numbers.nBadRuns == 0 ? "" : "ran " + text::Number(numbers.nBadRuns);
    return {
        {"launches", text::Number(numbers.nLaunches), RateText(numbers.dLaunchRate), BOLD},
        {"files", text::Number(numbers.nFiles), RateText(numbers.dFileRate), BOLD},
        {"waiting", text::Number(numbers.nWaitingEvents), strMessages, ""},
        {"cache hits", strHits, "", ""},
        {"packaged", text::Number(numbers.nPackaged), "", WhenSome(numbers.nPackaged, GREEN)},
        {"good", text::Number(numbers.nGoodAnswers), "", WhenSome(numbers.nGoodAnswers, GREEN)},
        {"unknown", text::Number(numbers.nUnknown), "", WhenSome(numbers.nUnknown, YELLOW)},
        {"bad", text::Number(numbers.nBadAnswers), strSeen,
         WhenSome(numbers.nBadAnswers + numbers.nBadRuns, BOLD_RED)},
        {"queries", text::Number(numbers.nQueries), "", ""},
        {"dropped", text::Number(numbers.nDropped), "", numbers.nDropped == 0 ? GREEN : BOLD_RED},
        {"lost", strLost, strOverflows, nLosses == 0 ? GREEN : BOLD_RED},
        {"unexplained", text::Number(numbers.nUnexplained), "",
         numbers.nUnexplained == 0 ? GREEN : BOLD_RED},
    };
}

// " launches   1,234,567  812/s  "
std::string FieldText(const Field& field, size_t nWidth, const ScreenFormat& screen) {
    const size_t nLabel = 11;
    const bool bMore = nWidth >= 27;
    const size_t nNumber = std::min<size_t>(nWidth - nLabel - (bMore ? 9 : 2), 9);
    std::string strText =
        " " + Paint(screen, DIM, display_width::Fit(field.pszLabel, nLabel, screen.bUnicode)) +
        Paint(screen, field.pszCode,
              display_width::FitRight(Compact(field.strNumber, nNumber), nNumber, screen.bUnicode));
    const size_t nRest = nWidth - 1 - nLabel - nNumber;
    return strText +
           (bMore ? "  " + Paint(screen, DIM,
                                 display_width::Fit(field.strMore, nRest - 2, screen.bUnicode))
                  : std::string(nRest, ' '));
}

std::vector<std::string> FieldLines(const ScreenNumbers& numbers, const ScreenFormat& screen) {
    std::vector<std::string> lines;
    const size_t nFields = std::clamp<size_t>(screen.nColumns / NARROWEST_FIELD, 1, MOST_FIELDS);
    const size_t nWidth = std::min(screen.nColumns / nFields, WIDEST_FIELD);
    if (nWidth < NARROWEST_FIELD) {
        return lines;
    }
    size_t nInLine = 0;
    for (const Field& field : Fields(numbers, nWidth >= 27)) {
        if (nInLine == 0) {
            lines.emplace_back();
        }
        lines.back() += FieldText(field, nWidth, screen);
        nInLine = (nInLine + 1) % nFields;
    }
    return lines;
}

// Cells of each column of the list; 0: it is not shown.
struct Columns {
    explicit Columns(size_t nAll) {
        nVerdict = nAll >= 100 ? 12 : 8;
        const size_t nFixed = 1 + 8 + 2 + nVerdict + 2 + nWhat + 1 + nTimes + 2;
        const size_t nRest = nAll > nFixed ? nAll - nFixed : 0;
        if (nAll >= 100) {
            nWhy = std::min<size_t>(nRest * 22 / 100, 36);
            nBy = (nRest - nWhy) * 40 / 100;
        } else {
            nBy = nRest * 40 / 100;
        }
        const size_t nGaps = (nBy > 0 ? 2 : 0) + (nWhy > 0 ? 2 : 0);
        nSubject = nRest - std::min(nRest, nBy + nWhy + nGaps);
    }

    size_t nVerdict = 0;
    size_t nWhat = 11;
    size_t nTimes = 5;
    size_t nSubject = 0;
    size_t nBy = 0;
    size_t nWhy = 0;
};

std::string ColumnHeading(const ScreenFormat& screen) {
    const Columns columns(screen.nColumns);
    const bool bUnicode = screen.bUnicode;
    std::string strLine = " TIME      " +
                          display_width::Fit("VERDICT", columns.nVerdict, bUnicode) + "  " +
                          display_width::Fit("WHAT", columns.nWhat, bUnicode) + " " +
                          display_width::FitRight("TIMES", columns.nTimes, bUnicode) + "  " +
                          display_width::Fit("PROGRAM OR FILE", columns.nSubject, bUnicode);
    if (columns.nBy > 0) {
        strLine += "  " + display_width::Fit("BY", columns.nBy, bUnicode);
    }
    if (columns.nWhy > 0) {
        strLine += "  " + display_width::Fit("OWNER", columns.nWhy, bUnicode);
    }
    return Paint(screen, BOLD, display_width::Fit(strLine, screen.nColumns, bUnicode));
}

// A text of the host or the module takes the whole line.
std::string TextLine(const VerdictRow& row, const ScreenFormat& screen) {
    const size_t nRest = screen.nColumns > 11 ? screen.nColumns - 11 : 0;
    return Paint(screen, DIM, " " + row.strTime) + "  " +
           Paint(screen, YELLOW,
                 display_width::Fit(text::ForTerminal(row.strSubject), nRest, screen.bUnicode));
}

std::string VerdictText(const VerdictRow& row, size_t nWidth, const ScreenFormat& screen) {
    const std::string strText =
        row.nLevel == 0 || nWidth < 12
            ? row.strVerdict
            : CStr::stdformat("%-9s %2d", row.strVerdict.c_str(), row.nLevel);
    const std::string strFit = display_width::Fit(strText, nWidth, screen.bUnicode);
    return Paint(screen, row.nLevel == 0 ? RED : LevelCode(row.nLevel), strFit);
}

std::string RowLine(const VerdictRow& row, const ScreenFormat& screen) {
    if (row.strVerdict.empty()) {
        return TextLine(row, screen);
    }
    const Columns columns(screen.nColumns);
    const bool bUnicode = screen.bUnicode;
    const std::string strTimes =
        row.nTimes < 2 ? "" : (bUnicode ? "\xC3\x97" : "x") + std::to_string(row.nTimes);
    const bool bBad = verdict_level::ClassOf(row.nLevel) == verdict_level::CLASS_BAD;
    const std::string strSubject =
        display_width::FitMiddle(text::ForTerminal(row.strSubject), columns.nSubject, bUnicode);
    std::string strLine =
        Paint(screen, DIM, " " + row.strTime) + "  " + VerdictText(row, columns.nVerdict, screen) +
        "  " + display_width::Fit(row.strWhat, columns.nWhat, bUnicode) + " " +
        Paint(screen, DIM, display_width::FitRight(strTimes, columns.nTimes, bUnicode)) + "  " +
        Paint(screen, bBad ? BOLD_RED : "", strSubject);
    if (columns.nBy > 0) {
        strLine +=
            "  " + display_width::FitMiddle(text::ForTerminal(row.strBy), columns.nBy, bUnicode);
    }
    if (columns.nWhy > 0) {
        const bool bShort =
            !row.strOwner.empty() && verdict_level::ClassOf(row.nLevel) != verdict_level::CLASS_BAD;
        const std::string strWhy = text::ForTerminal(bShort ? row.strOwner : row.strWhy);
        strLine += "  " + Paint(screen, DIM, display_width::Fit(strWhy, columns.nWhy, bUnicode));
    }
    return strLine;
}

}  // namespace

std::vector<std::string> Lines(const ScreenNumbers& numbers, const std::vector<VerdictRow>& rows,
                               const ScreenFormat& screen) {
    std::vector<std::string> lines = {Title(numbers, screen)};
    const std::vector<std::string> fields = FieldLines(numbers, screen);
    // On a screen too small for both the list goes first.
    if (screen.nColumns >= 60 && screen.nRows >= fields.size() + 8) {
        lines.insert(lines.end(), fields.begin(), fields.end());
        lines.emplace_back();
        lines.push_back(ColumnHeading(screen));
    }
    const size_t nRoom = screen.nRows - std::min(screen.nRows, lines.size());
    const size_t nShown = std::min(rows.size(), nRoom);
    if (screen.nColumns < 60) {
        for (size_t i = rows.size() - nShown; i < rows.size(); ++i) {
            const std::string strLine = rows[i].strVerdict + " " + rows[i].strSubject;
            lines.push_back(display_width::FitMiddle(text::ForTerminal(strLine), screen.nColumns,
                                                     screen.bUnicode));
        }
    } else {
        for (size_t i = rows.size() - nShown; i < rows.size(); ++i) {
            lines.push_back(RowLine(rows[i], screen));
        }
    }
    lines.resize(screen.nRows);
    return lines;
}

}  // namespace screen_layout
