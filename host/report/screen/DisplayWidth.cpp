#include "host/report/screen/DisplayWidth.h"

#include <clocale>
#include <cwchar>
#include <vector>

#include "host/base/EscapedText.h"

namespace display_width {

namespace {

// wcwidth asks the thread's locale, and the process's is "C" as a rule.
class Utf8Locale {
public:
    Utf8Locale() : m_locale(Locale()) {
        if (m_locale != nullptr) {
            m_old = uselocale(m_locale);
        }
    }
    ~Utf8Locale() {
        if (m_locale != nullptr) {
            (void)uselocale(m_old);
        }
    }

    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    static locale_t Locale() {
        static const locale_t LOCALE = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return LOCALE;
    }

    const locale_t m_locale;
    locale_t m_old = nullptr;
};

struct Cell {
    size_t nPos;     // of its first byte
    size_t nLength;  // bytes
    size_t nWidth;
};

size_t WidthOf(const std::string& strText, size_t nPos, size_t nLength) {
    static const unsigned MASKS[] = {0xFF, 0x7F, 0x1F, 0x0F, 0x07};
    if (nLength <= 1) {
        return 1;
    }
    unsigned nCode = static_cast<unsigned char>(strText[nPos]) & MASKS[nLength];
    for (size_t i = 1; i < nLength; ++i) {
        nCode = (nCode << 6U) | (static_cast<unsigned char>(strText[nPos + i]) & 0x3FU);
    }
    const int nWidth = wcwidth(static_cast<wchar_t>(nCode));
    return nWidth < 0 ? 1 : static_cast<size_t>(nWidth);
}

std::vector<Cell> Cells(const std::string& strText) {
    const Utf8Locale locale;
    std::vector<Cell> cells;
    for (size_t nPos = 0; nPos < strText.size();) {
        const size_t nFound = text::Utf8Length(strText, nPos);
        const size_t nLength = nFound == 0 ? 1 : nFound;
        cells.push_back({nPos, nLength, WidthOf(strText, nPos, nLength)});
        nPos += nLength;
    }
    return cells;
}

size_t Sum(const std::vector<Cell>& cells) {
    size_t nWidth = 0;
    for (const Cell& cell : cells) {
        nWidth += cell.nWidth;
    }
    return nWidth;
}

std::string Blanks(size_t nCount) {
    return std::string(nCount, ' ');
}

const char* Mark(bool bUnicode) {
    return bUnicode ? "\xE2\x80\xA6" : "~";
}

// The first nHead cells and the last nTail ones with a mark between them.
std::string Shorten(const std::string& strText, const std::vector<Cell>& cells, size_t nHead,
                    size_t nTail, bool bUnicode) {
    size_t nHeadWidth = 0;
    size_t nHeadEnd = 0;
    for (const Cell& cell : cells) {
        if (nHeadWidth + cell.nWidth > nHead) {
            break;
        }
        nHeadWidth += cell.nWidth;
        nHeadEnd = cell.nPos + cell.nLength;
    }
    size_t nTailWidth = 0;
    size_t nTailBegin = strText.size();
    for (auto it = cells.rbegin(); it != cells.rend() && nTailWidth + it->nWidth <= nTail; ++it) {
        nTailWidth += it->nWidth;
        nTailBegin = it->nPos;
    }
    return strText.substr(0, nHeadEnd) + Mark(bUnicode) + strText.substr(nTailBegin) +
           Blanks(nHead - nHeadWidth + nTail - nTailWidth);
}

}  // namespace

size_t Width(const std::string& strText) {
    return Sum(Cells(strText));
}

std::string Fit(const std::string& strText, size_t nWidth, bool bUnicode) {
    const std::vector<Cell> cells = Cells(strText);
    const size_t nCells = Sum(cells);
    if (nCells <= nWidth) {
        return strText + Blanks(nWidth - nCells);
    }
    return nWidth == 0 ? "" : Shorten(strText, cells, nWidth - 1, 0, bUnicode);
}

std::string FitMiddle(const std::string& strText, size_t nWidth, bool bUnicode) {
    const std::vector<Cell> cells = Cells(strText);
    const size_t nCells = Sum(cells);
    if (nCells <= nWidth) {
        return strText + Blanks(nWidth - nCells);
    }
    const size_t nHead = nWidth == 0 ? 0 : (nWidth - 1) / 3;
    return nWidth == 0 ? "" : Shorten(strText, cells, nHead, nWidth - 1 - nHead, bUnicode);
}

std::string FitRight(const std::string& strText, size_t nWidth, bool bUnicode) {
    const size_t nCells = Width(strText);
    return nCells < nWidth ? Blanks(nWidth - nCells) + strText : Fit(strText, nWidth, bUnicode);
}

}  // namespace display_width
