#include "tevmon/core/CTevCloudInterface.h"

#include "framework/abi/MsgTypes.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/GuidText.h"
#include "public/pluginhelper/JsonHelpers.h"
#include "public/pluginhelper/LogPrint.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevCloudInterface";

// A null text is left out.
void AppendMember(std::string& strJson, const char* pszName, const char* pszText) {
    if (pszText != nullptr) {
        strJson += pszName;
        AppendJsonString(strJson, pszText);
    }
}

// The compact text of the message, members in ascending order as the JSON library writes them. No
// tree is built for it: a launch would have 50 values, each with an allocation of its own.
std::string MessageText(const CloudQuery& query, const std::string& strExt) {
    std::string strText;
    strText.reserve(strExt.size() + query.strPath.size() + query.strContext.size() + 256);
    strText += R"({"msg_type":"cloudq","param":{"context":)";
    AppendJsonString(strText, query.strContext);
    AppendMember(strText, R"(,"event_id_key":)", query.pszIdKey);
    AppendMember(strText, R"(,"event_id_value":)", query.pszIdValue);
    strText += R"(,"ext":)";
    strText += strExt;
    AppendMember(strText, R"(,"func":)", query.pszFunc);
    strText += R"(,"path":)";
    AppendJsonString(strText, query.strPath);
    strText += R"(,"path_type":)" + std::to_string(query.nPathType);
    strText += R"(},"resp_msg_type":)" + std::to_string(MSG_TYPE_CLOUD_RESULT) + "}";
    return strText;
}

// Sends what could be written: nothing, when memory ran out.
bool Send(const std::string& strText) {
    LogPrint(LOG_TRACE, SOURCE, "Post", __LINE__, "reportq = %s", strText.c_str());

    // Parsed for each post: the router gets one of its own, which it may write to.
    Guid target = {};
    ParseGuid(CLOUD_ENDPOINT, &target);
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    const uint32_t nResult = pHolder != nullptr
                                 ? pHolder->Post(target, MSG_TYPE_CLOUD_QUERY, strText.data(),
                                                 static_cast<uint32_t>(strText.size()))
                                 : ERROR_NO_ROUTER;
    if (nResult != 0) {
        LogPrint(LOG_FAIL, SOURCE, "Post", __LINE__, "[CTevCloudInterface] : ipc fail.\n");
    }
    return nResult == 0;
}

}  // namespace

bool CTevCloudInterface::Post(const CloudQuery& query) {
    std::string strExt;
    return JsonToText(query.jsonExt, strExt, true) != 0 ? Post(query, strExt) : PostEmpty();
}

bool CTevCloudInterface::Post(const CloudQuery& query, const std::string& strExt) {
    std::string strText;
    try {
        strText = MessageText(query, strExt);
    } catch (...) {
        strText.clear();
    }
    return Send(strText);
}

bool CTevCloudInterface::PostEmpty() {
    return Send("");
}
