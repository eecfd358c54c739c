#include "public/pluginhelper/JsonHelpers.h"

#include <json/writer.h>

#include <algorithm>
#include <new>
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

// True for what stands in a JSON string as it is.
bool IsPlain(const std::string& strText) {
    return std::all_of(strText.begin(), strText.end(), [](char c) {
        const auto nByte = static_cast<unsigned char>(c);
        return nByte >= 0x20 && nByte <= 0x7f && nByte != '"' && nByte != '\\';
    });
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

void AppendJsonString(std::string& strJson, const std::string& strText) {
    if (IsPlain(strText)) {
        strJson += '"';
        strJson += strText;
        strJson += '"';
        return;
    }
    std::string strEscaped;
    if (JsonToText(Json::Value(strText), strEscaped, true) == 0) {
        throw std::bad_alloc();
    }
    strJson += strEscaped;
}
