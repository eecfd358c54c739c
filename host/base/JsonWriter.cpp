#include "host/base/JsonWriter.h"

#include "framework/base/CStr.h"
#include "host/base/EscapedText.h"

namespace json_writer {

namespace {

// The code point of a whole UTF-8 sequence.
unsigned CodePoint(const std::string& strText, size_t nPos, size_t nLength) {
    static constexpr unsigned FIRST_BITS[] = {0, 0x7f, 0x1f, 0x0f, 0x07};
    unsigned nPoint = static_cast<unsigned char>(strText[nPos]) & FIRST_BITS[nLength];
    for (size_t i = 1; i < nLength; ++i) {
        nPoint = nPoint << 6 | (static_cast<unsigned char>(strText[nPos + i]) & 0x3f);
    }
    return nPoint;
}

// For readers other than the module what steers a terminal, or has text read in another order or
// line.
bool IsEscaped(unsigned nPoint, BadBytes eBadBytes) {
    if (nPoint < 0x20 || eBadBytes == BAD_BYTES_KEEP) {
        return nPoint < 0x20;
    }
    return (nPoint >= 0x7f && nPoint < 0xa0) || nPoint == 0x61c || nPoint == 0x200e ||
           nPoint == 0x200f || (nPoint >= 0x2028 && nPoint <= 0x202e) ||
           (nPoint >= 0x2066 && nPoint <= 0x2069);
}

}  // namespace

std::string Quote(const std::string& strText, BadBytes eBadBytes) {
    std::string strJson = "\"";
    size_t nPos = 0;
    while (nPos < strText.size()) {
        const char c = strText[nPos];
        const size_t nLength = text::Utf8Length(strText, nPos);
        if (c == '"' || c == '\\') {
            strJson += '\\';
            strJson += c;
        } else if (nLength > 0 && IsEscaped(CodePoint(strText, nPos, nLength), eBadBytes)) {
            strJson += CStr::stdformat("\\u%04x", CodePoint(strText, nPos, nLength));
        } else if (nLength == 0 && eBadBytes == BAD_BYTES_REPLACE) {
            strJson += "\xEF\xBF\xBD";
        } else {
            strJson.append(strText, nPos, nLength == 0 ? 1 : nLength);
        }
        nPos += nLength == 0 ? 1 : nLength;
    }
    return strJson + '"';
}

}  // namespace json_writer

JsonObject& JsonObject::AddJson(const std::string& strKey, const std::string& strJson) {
    m_strMembers += m_strMembers.empty() ? "{" : ",";
    m_strMembers += json_writer::Quote(strKey) + ":" + strJson;
    return *this;
}

JsonObject& JsonObject::Add(const std::string& strKey, const std::string& strValue) {
    return AddJson(strKey, json_writer::Quote(strValue));
}

JsonObject& JsonObject::Add(const std::string& strKey, const char* pszValue) {
    return AddJson(strKey, json_writer::Quote(pszValue));
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
