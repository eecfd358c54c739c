// A host's message is read with every reader, whatever its members are, and can be written again.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Require.h"
#include "public/pluginhelper/JsonHelpers.h"
#include "public/pluginhelper/JsonReaders.h"

namespace {

void ReadAll(const Json::Value& json) {
    for (const char* pszKey : {"grup", "context", "path", "pid", "ino", "msg_type", "result"}) {
        const bool bThere = JsonHasMember(json, pszKey);
        Require(bThere || JsonText(json, pszKey).empty());
        Require(bThere || (JsonInt(json, pszKey) == 0 && JsonInt64(json, pszKey) == 0));
        Require(JsonInt(json, pszKey) == 0 || JsonInt64(json, pszKey) == JsonInt(json, pszKey));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    Json::Value jsonRoot;
    if (!ParseJsonText(std::string(reinterpret_cast<const char*>(pData), nSize), jsonRoot)) {
        return 0;
    }
    ReadAll(jsonRoot);
    const Json::Value& jsonParam = JsonMember(jsonRoot, "param");
    ReadAll(jsonParam);
    for (Json::ArrayIndex i = 0; i < JsonArraySize(jsonParam); ++i) {
        ReadAll(jsonParam[i]);
    }
    std::string strText;
    Require(JsonToText(jsonRoot, strText, true) == 1);
    return 0;
}
