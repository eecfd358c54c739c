// Builds JSON messages. Every call but the last catches whatever the library throws.
//
// Threads: any; no state.
// Errors: 1 on success, 0 otherwise. The setters answer 0 and change nothing when the key is null
//   or empty, and 0 when jsonObject is neither an object nor null.
#ifndef PUBLIC_PLUGINHELPER_JSONHELPERS_H
#define PUBLIC_PLUGINHELPER_JSONHELPERS_H

#include <json/value.h>

#include <string>

// jsonObject[pszKey] = the text, also when it is empty.
int SetJsonString(const char* pszKey, Json::Value& jsonObject, const char* pszText);
int SetJsonString(const char* pszKey, Json::Value& jsonObject, const std::string& strText);

// jsonObject[pszKey] = the number.
int SetJsonInt(const char* pszKey, Json::Value& jsonObject, int nNumber);

// jsonObject[pszKey] = a copy of the value; of an rvalue, the value itself.
int SetJsonValue(const char* pszKey, Json::Value& jsonObject, const Json::Value& jsonValue);
int SetJsonValue(const char* pszKey, Json::Value& jsonObject, Json::Value&& jsonValue);

// Writes jsonValue in one line (bFast) or indented, without the one line feed the writer ends
// with. strText is replaced; on failure it may hold anything.
int JsonToText(const Json::Value& jsonValue, std::string& strText, bool bFast);

// Appends strText to strJson as a JSON string with its quotes, to the byte as the one-line writer
// writes it, without a value made for it. Returns nothing and throws what the library throws.
void AppendJsonString(std::string& strJson, const std::string& strText);

#endif
