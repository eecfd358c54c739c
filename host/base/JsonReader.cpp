#include "host/base/JsonReader.h"

#include <json/reader.h>

#include <cstring>
#include <exception>
#include <memory>

namespace json_reader {

bool Parse(const std::string& strText, Json::Value& jsonOut) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    try {
        const std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
        // No error text is asked for: making it costs more than it is worth.
        return pReader->parse(strText.data(), strText.data() + strText.size(), &jsonOut, nullptr);
    } catch (const std::exception&) {
        return false;
    }
}

const Json::Value* Member(const Json::Value& jsonValue, const char* pszKey) {
    if (!jsonValue.isObject()) {
        return nullptr;
    }
    return jsonValue.find(pszKey, pszKey + std::strlen(pszKey));
}

std::string Text(const Json::Value& jsonValue, const char* pszKey) {
    const Json::Value* const pMember = Member(jsonValue, pszKey);
    return pMember != nullptr && pMember->isString() ? pMember->asString() : std::string();
}

uint64_t Number(const Json::Value& jsonValue, const char* pszKey) {
    const Json::Value* const pMember = Member(jsonValue, pszKey);
    return pMember != nullptr && pMember->isUInt64() ? pMember->asUInt64() : 0;
}

}  // namespace json_reader
