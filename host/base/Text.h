// Foreign text made safe for where it goes: a terminal, or a JSON text.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_BASE_TEXT_H
#define HOST_BASE_TEXT_H

#include <cstdint>
#include <string>

namespace text {

// strText with control characters, DEL and bytes that are not UTF-8 written as \xNN and a
// backslash doubled, so that a file name can neither steer the terminal nor forge a line. C1
// controls and the characters that turn the writing direction are escaped as well.
std::string ForTerminal(const std::string& strText);

enum BadBytes {
    BAD_BYTES_KEEP,     // as they are: the module is to see the very bytes of a path
    BAD_BYTES_REPLACE,  // U+FFFD each: the text is to be valid JSON for any reader
};

// strText as a JSON string with its quotes.
std::string JsonQuote(const std::string& strText, BadBytes eBadBytes = BAD_BYTES_REPLACE);

// Length of the UTF-8 sequence that begins at nPos (1 to 4), 0 when none does.
size_t Utf8Length(const std::string& strText, size_t nPos);

// 1536 as "1.5 KiB". bytes below 1024 as "17 B".
std::string Bytes(uint64_t nBytes);

// 1234567 as "1,234,567".
std::string Number(uint64_t nNumber);

// Local time as "2024-05-17 09:30:00".
std::string LocalTime(int64_t tmSeconds);

// The time of day now, "09:30:00".
std::string ClockNow();

// The word for a verdict level: 10 packaged, 20 allowed, 40 unknown, 70 blocked, else "level N".
std::string LevelWord(int nLevel);

}  // namespace text

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
