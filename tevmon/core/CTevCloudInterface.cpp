#include "tevmon/core/CTevCloudInterface.h"

#include <utility>

#include "framework/abi/MsgTypes.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/GuidText.h"
#include "public/pluginhelper/JsonHelpers.h"
#include "public/pluginhelper/LogPrint.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevCloudInterface";

}  // namespace

bool CTevCloudInterface::Post(CloudQuery query) {
    Json::Value jsonMessage;
    Json::Value jsonParam;
    // A setter that fails leaves its member out; the query goes all the same.
    (void)SetJsonString("path", jsonParam, query.strPath);
    (void)SetJsonInt("path_type", jsonParam, query.nPathType);
    (void)SetJsonString("event_id_key", jsonParam, query.pszIdKey);
    (void)SetJsonString("event_id_value", jsonParam, query.pszIdValue);
    (void)SetJsonString("func", jsonParam, query.pszFunc);
    (void)SetJsonValue("ext", jsonParam, std::move(query.jsonExt));
    (void)SetJsonString("context", jsonParam, query.strContext);
    (void)SetJsonString("msg_type", jsonMessage, "cloudq");
    (void)SetJsonInt("resp_msg_type", jsonMessage, static_cast<int>(MSG_TYPE_CLOUD_RESULT));
    (void)SetJsonValue("param", jsonMessage, std::move(jsonParam));
    std::string strText;
    (void)JsonToText(jsonMessage, strText, true);
    LogPrint(LOG_TRACE, SOURCE, "Post", __LINE__, "reportq = %s", strText.c_str());

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
