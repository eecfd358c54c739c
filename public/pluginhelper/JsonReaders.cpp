#include "public/pluginhelper/JsonReaders.h"

#include <json/reader.h>

#include <cstddef>

namespace {

// What collecting comments may cost: for each, the reader looks back as far as the last value.
constexpr size_t LOOK_BACK_LIMIT = size_t{256} * 1024 * 1024;

// False for a text whose comments could cost their number times its length. Nobody here reads
// comments, and collecting them does not change what is accepted or what it means.
bool MayCollectComments(const std::string& strText) {
    const size_t nMost = LOOK_BACK_LIMIT / strText.size();
    if (strText.size() / 2 <= nMost) {
        return true;  // there is no room for more
    }
    size_t nComments = 0;
    for (size_t n = strText.find('/'); n != std::string::npos && nComments <= nMost;
         n = strText.find('/', n + 1)) {
        const char cNext = strText[n + 1];  // the NUL behind the text at its end
        nComments += cNext == '*' || cNext == '/' ? 1 : 0;
    }
    return nComments <= nMost;
}

}  // namespace

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
        // By its ends: the other form keeps a copy of the text for that error text.
        return reader.parse(strText.data(), strText.data() + strText.size(), jsonRoot,
                            MayCollectComments(strText));
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
