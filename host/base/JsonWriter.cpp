#include "host/base/JsonWriter.h"

#include "framework/base/CStr.h"
#include "host/base/EscapedText.h"

namespace json_writer {

std::string Quote(const std::string& strText, BadBytes eBadBytes) {
    std::string strJson = "\"";
    size_t nPos = 0;
    while (nPos < strText.size()) {
        const char c = strText[nPos];
        const size_t nLength = text::Utf8Length(strText, nPos);
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
