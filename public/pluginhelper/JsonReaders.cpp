#include "public/pluginhelper/JsonReaders.h"

#include <json/reader.h>

bool ParseJsonText(const std::string& strText, Json::Value& jsonRoot) {
    if (strText.empty()) {
        return false;
    }
    try {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // what this reader accepts is relied on
        Json::Reader reader;
#pragma GCC diagnostic pop
        // Its error text is never asked for: building it reads out of bounds for some texts.
        return reader.parse(strText, jsonRoot, true);
    } catch (...) {
        return false;  // nested deeper than the library goes, or out of memory
    }
}

bool JsonHasMember(const Json::Value& json, const char* pszKey) {
    return json.isObject() && json.isMember(pszKey);
}

const Json::Value& JsonMember(const Json::Value& json, const char* pszKey) {
    return json.isObject() ? json[pszKey] : Json::Value::nullSingleton();
}

Json::ArrayIndex JsonArraySize(const Json::Value& json) {
    return json.isArray() ? json.size() : 0;
}

std::string JsonText(const Json::Value& json, const char* pszKey) {
    try {
        return JsonMember(json, pszKey).asString();
    } catch (...) {
        return "";
    }
}

int32_t JsonInt(const Json::Value& json, const char* pszKey) {
    try {
        return JsonMember(json, pszKey).asInt();
    } catch (...) {
        return 0;
    }
}

int64_t JsonInt64(const Json::Value& json, const char* pszKey) {
    try {
        return JsonMember(json, pszKey).asInt64();
    } catch (...) {
        return 0;
    }
}
