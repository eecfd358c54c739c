#include "host/base/EscapedText.h"

#include "framework/base/CStr.h"

namespace text {

namespace {

bool IsTail(const std::string& strText, size_t nPos, unsigned nLow, unsigned nHigh) {
    if (nPos >= strText.size()) {
        return false;
    }
    const auto cByte = static_cast<unsigned char>(strText[nPos]);
    return cByte >= nLow && cByte <= nHigh;
}

std::string HexBytes(const std::string& strText, size_t nPos, size_t nLength) {
    std::string strHex;
    for (size_t i = nPos; i < nPos + nLength; ++i) {
        strHex += CStr::stdformat("\\x%02X", static_cast<unsigned char>(strText[i]));
    }
    return strHex;
}

// C1 controls, the marks that turn the writing direction, and line and paragraph separators.
bool SteersTerminal(const std::string& strText, size_t nPos, size_t nLength) {
    const auto c0 = static_cast<unsigned char>(strText[nPos]);
    const auto c1 = static_cast<unsigned char>(nLength > 1 ? strText[nPos + 1] : 0);
    const auto c2 = static_cast<unsigned char>(nLength > 2 ? strText[nPos + 2] : 0);
    if (nLength == 2) {
        return (c0 == 0xC2 && c1 < 0xA0) || (c0 == 0xD8 && c1 == 0x9C);
    }
    if (nLength != 3 || c0 != 0xE2) {
        return false;
    }
    const bool bMarks = c1 == 0x80 && (c2 == 0x8E || c2 == 0x8F || (c2 >= 0xA8 && c2 <= 0xAE));
    return bMarks || (c1 == 0x81 && c2 >= 0xA6 && c2 <= 0xAF);
}

}  // namespace

size_t Utf8Length(const std::string& strText, size_t nPos) {
    if (nPos >= strText.size()) {
        return 0;
    }
    const auto cFirst = static_cast<unsigned char>(strText[nPos]);
    if (cFirst < 0x80) {
        return 1;
    }
    if (cFirst >= 0xC2 && cFirst <= 0xDF) {
        return IsTail(strText, nPos + 1, 0x80, 0xBF) ? 2 : 0;
    }
    if (cFirst >= 0xE0 && cFirst <= 0xEF) {
        const unsigned nLow = cFirst == 0xE0 ? 0xA0 : 0x80;
        const unsigned nHigh = cFirst == 0xED ? 0x9F : 0xBF;  // surrogates are no characters
        return IsTail(strText, nPos + 1, nLow, nHigh) && IsTail(strText, nPos + 2, 0x80, 0xBF) ? 3
                                                                                               : 0;
    }
    if (cFirst >= 0xF0 && cFirst <= 0xF4) {
        const unsigned nLow = cFirst == 0xF0 ? 0x90 : 0x80;
        const unsigned nHigh = cFirst == 0xF4 ? 0x8F : 0xBF;
        const bool bGood = IsTail(strText, nPos + 1, nLow, nHigh) &&
                           IsTail(strText, nPos + 2, 0x80, 0xBF) &&
                           IsTail(strText, nPos + 3, 0x80, 0xBF);
        return bGood ? 4 : 0;
    }
    return 0;
}

std::string ForTerminal(const std::string& strText) {
    std::string strSafe;
    strSafe.reserve(strText.size());
    size_t nPos = 0;
    while (nPos < strText.size()) {
        const char c = strText[nPos];
        const size_t nLength = Utf8Length(strText, nPos);
        const bool bControl = nLength == 1 && (static_cast<unsigned char>(c) < 0x20 || c == 0x7F);
        if (nLength == 0 || bControl) {
            strSafe += HexBytes(strText, nPos, 1);
        } else if (c == '\\') {
            strSafe += "\\\\";
        } else if (SteersTerminal(strText, nPos, nLength)) {
            strSafe += HexBytes(strText, nPos, nLength);
        } else {
            strSafe.append(strText, nPos, nLength);
        }
        nPos += nLength == 0 ? 1 : nLength;
    }
    return strSafe;
}

}  // namespace text
