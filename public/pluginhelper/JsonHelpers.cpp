#include "public/pluginhelper/JsonHelpers.h"

#include <json/writer.h>

#include <utility>

namespace {

template <class T>
int SetMember(const char* pszKey, Json::Value& jsonObject, T&& value) {
    // Tested here, before the library sees it: a null key inside it is a crash.
    if (pszKey == nullptr || pszKey[0] == '\0') {
        return 0;
    }
    try {
        jsonObject[pszKey] = Json::Value(std::forward<T>(value));
        return 1;
    } catch (...) {
        return 0;
    }
}

}  // namespace

int SetJsonString(const char* pszKey, Json::Value& jsonObject, const char* pszText) {
    return SetMember(pszKey, jsonObject, pszText);
}

int SetJsonString(const char* pszKey, Json::Value& jsonObject, const std::string& strText) {
    return SetMember(pszKey, jsonObject, strText);
}

int SetJsonInt(const char* pszKey, Json::Value& jsonObject, int nNumber) {
    return SetMember(pszKey, jsonObject, nNumber);
}

int SetJsonValue(const char* pszKey, Json::Value& jsonObject, const Json::Value& jsonValue) {
    return SetMember(pszKey, jsonObject, jsonValue);
}

int SetJsonValue(const char* pszKey, Json::Value& jsonObject, Json::Value&& jsonValue) {
    return SetMember(pszKey, jsonObject, std::move(jsonValue));
}

int JsonToText(const Json::Value& jsonValue, std::string& strText, bool bFast) {
    try {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // what these write is relied on
        strText =
            bFast ? Json::FastWriter().write(jsonValue) : Json::StyledWriter().write(jsonValue);
#pragma GCC diagnostic pop
    } catch (...) {
        return 0;
    }
    if (!strText.empty() && strText.back() == '\n') {
        strText.pop_back();
    }
    return 1;
}
