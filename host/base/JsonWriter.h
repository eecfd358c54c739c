// JSON written member by member; foreign text made safe for it.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_BASE_JSONWRITER_H
#define HOST_BASE_JSONWRITER_H

#include <cstdint>
#include <string>

namespace json_writer {

enum BadBytes {
    BAD_BYTES_KEEP,     // as they are: the module is to see the very bytes of a path
    BAD_BYTES_REPLACE,  // U+FFFD each: the text is to be valid JSON for any reader
};

// strText as a JSON string with its quotes. With BAD_BYTES_REPLACE all is escaped that steers a
// terminal or turns the order of text, with BAD_BYTES_KEEP only what JSON demands.
std::string Quote(const std::string& strText, BadBytes eBadBytes = BAD_BYTES_REPLACE);

}  // namespace json_writer

// One JSON object written member by member in the given order.
class JsonObject {
public:
    JsonObject& Add(const std::string& strKey, const std::string& strValue);
    JsonObject& Add(const std::string& strKey, const char* pszValue);
    JsonObject& Add(const std::string& strKey, int64_t nValue);
    JsonObject& Add(const std::string& strKey, uint64_t nValue);
    JsonObject& Add(const std::string& strKey, int nValue);
    JsonObject& Add(const std::string& strKey, double dValue);  // three decimals
    JsonObject& Add(const std::string& strKey, bool bValue);
    // strJson is a JSON text already.
    JsonObject& AddJson(const std::string& strKey, const std::string& strJson);

    std::string Text() const { return m_strMembers.empty() ? "{}" : m_strMembers + "}"; }

private:
    std::string m_strMembers;  // "" or begins with "{"
};

#endif
