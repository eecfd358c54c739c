#include "host/base/Text.h"

#include <cinttypes>
#include <ctime>

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

std::string JsonQuote(const std::string& strText, BadBytes eBadBytes) {
    std::string strJson = "\"";
    size_t nPos = 0;
    while (nPos < strText.size()) {
        const char c = strText[nPos];
        const size_t nLength = Utf8Length(strText, nPos);
        if (c == '"' || c == '\\') {
            strJson += '\\';
            strJson += c;
        } else if (nLength == 1 && static_cast<unsigned char>(c) < 0x20) {
            strJson += CStr::stdformat("\\u%04x", static_cast<unsigned>(c));
        } else if (nLength == 0 && eBadBytes == BAD_BYTES_REPLACE) {
            strJson += "\xEF\xBF\xBD";
        } else {
            strJson.append(strText, nPos, nLength == 0 ? 1 : nLength);
        }
        nPos += nLength == 0 ? 1 : nLength;
    }
    return strJson + '"';
}

std::string Bytes(uint64_t nBytes) {
    static const char* const UNITS[] = {"KiB", "MiB", "GiB", "TiB"};
    if (nBytes < 1024) {
        return CStr::stdformat("%" PRIu64 " B", nBytes);
    }
    double dValue = static_cast<double>(nBytes) / 1024;
    size_t nUnit = 0;
    while (dValue >= 1024 && nUnit < 3) {
        dValue /= 1024;
        ++nUnit;
    }
    return CStr::stdformat("%.1f %s", dValue, UNITS[nUnit]);
}

std::string Number(uint64_t nNumber) {
    std::string strNumber = std::to_string(nNumber);
    for (size_t nPos = strNumber.size(); nPos > 3;) {
        nPos -= 3;
        strNumber.insert(nPos, ",");
    }
    return strNumber;
}

std::string LocalTime(int64_t tmSeconds) {
    const time_t tmTime = tmSeconds;
    struct tm local = {};
    char szText[64] = "";
    if (localtime_r(&tmTime, &local) == nullptr ||
        strftime(szText, sizeof(szText), "%Y-%m-%d %H:%M:%S", &local) == 0) {
        return CStr::stdformat("%" PRId64, tmSeconds);
    }
    return szText;
}

std::string ClockNow() {
    const std::string strTime = LocalTime(time(nullptr));
    return strTime.size() > 11 ? strTime.substr(11) : strTime;
}

std::string LevelWord(int nLevel) {
    switch (nLevel) {
        case 10:
            return "packaged";
        case 20:
            return "allowed";
        case 40:
            return "unknown";
        case 70:
            return "blocked";
        default:
            return CStr::stdformat("level %d", nLevel);
    }
}

}  // namespace text

JsonObject& JsonObject::AddJson(const std::string& strKey, const std::string& strJson) {
    m_strMembers += m_strMembers.empty() ? "{" : ",";
    m_strMembers += text::JsonQuote(strKey) + ":" + strJson;
    return *this;
}

JsonObject& JsonObject::Add(const std::string& strKey, const std::string& strValue) {
    return AddJson(strKey, text::JsonQuote(strValue));
}

JsonObject& JsonObject::Add(const std::string& strKey, const char* pszValue) {
    return AddJson(strKey, text::JsonQuote(pszValue));
}

JsonObject& JsonObject::Add(const std::string& strKey, int64_t nValue) {
    return AddJson(strKey, std::to_string(nValue));
}

JsonObject& JsonObject::Add(const std::string& strKey, uint64_t nValue) {
    return AddJson(strKey, std::to_string(nValue));
}

JsonObject& JsonObject::Add(const std::string& strKey, int nValue) {
    return AddJson(strKey, std::to_string(nValue));
}

JsonObject& JsonObject::Add(const std::string& strKey, double dValue) {
    return AddJson(strKey, CStr::stdformat("%.3f", dValue));
}

JsonObject& JsonObject::Add(const std::string& strKey, bool bValue) {
    return AddJson(strKey, bValue ? "true" : "false");
}
