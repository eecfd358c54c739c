// Reading JSON of strangers: whatever is missing or of another type reads as absent. (The module
// reads by rules of its own, which its hosts rely on: numbers and truth values are texts to it.)
//
// Threads: any; no state. Errors: nothing throws but std::bad_alloc.
#ifndef HOST_BASE_JSONREADER_H
#define HOST_BASE_JSONREADER_H

#include <json/value.h>

#include <string>

namespace json_reader {

// False when strText is no JSON text, also when it is nested too deep.
bool Parse(const std::string& strText, Json::Value& jsonOut);

// The member of an object, null when jsonValue is no object or has none of that name.
const Json::Value* Member(const Json::Value& jsonValue, const char* pszKey);

// The text of that member, "" when it is absent or no text.
std::string Text(const Json::Value& jsonValue, const char* pszKey);

// The whole number under pszKey, 0 unless it is one from 0 on.
uint64_t Number(const Json::Value& jsonValue, const char* pszKey);

}  // namespace json_reader

#endif
