// Reads foreign JSON. A member of the wrong type is as good as absent; nothing here throws. No
// other place calls the JSON library's conversions, which throw for what they cannot convert.
//
// Threads: any; no state.
#ifndef PUBLIC_PLUGINHELPER_JSONREADERS_H
#define PUBLIC_PLUGINHELPER_JSONREADERS_H

#include <json/value.h>

#include <cstdint>
#include <string>

// Parses strText into jsonRoot, comments collected. False, without parsing, for an empty text;
// false for whatever does not parse; jsonRoot's content then means nothing.
bool ParseJsonText(const std::string& strText, Json::Value& jsonRoot);

// False for whatever is not an object.
bool JsonHasMember(const Json::Value& json, const char* pszKey);

// The member, a null value when it is absent.
const Json::Value& JsonMember(const Json::Value& json, const char* pszKey);

// The elements of an array, 0 for whatever is not one.
Json::ArrayIndex JsonArraySize(const Json::Value& json);

// The member as text: a number or a bool in its text form, "" when absent or not convertible.
std::string JsonText(const Json::Value& json, const char* pszKey);

// The member as a number, 0 when absent, not convertible or out of range.
int32_t JsonInt(const Json::Value& json, const char* pszKey);
int64_t JsonInt64(const Json::Value& json, const char* pszKey);

#endif
