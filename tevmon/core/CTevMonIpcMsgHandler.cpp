#include "tevmon/core/CTevMonIpcMsgHandler.h"

#include <cstdlib>

#include "framework/abi/MsgTypes.h"
#include "public/pluginhelper/JsonReaders.h"
#include "public/pluginhelper/LogPrint.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevMonIpcMsgHandler";
constexpr int LINE_BEFORE = 61;  // fixed, read by log filters
constexpr int LINE_AFTER = 70;
constexpr int32_t DEFAULT_LEVEL = 40;

void QueueForElement(const Json::Value& jsonElement, const std::string& strBody) {
    if (JsonText(jsonElement, "grup") != "cloudquery" || !JsonHasMember(jsonElement, "context")) {
        return;
    }
    const std::string strContext = JsonText(jsonElement, "context");
    LogPrint(LOG_TRACE, SOURCE, "Run", LINE_BEFORE, "CTevChennalMgr before ---> %s\n",
             strContext.c_str());
    const int32_t nMid = FuncToMid(strContext);
    if (nMid != 0) {
        CTevChennalMgr* pManager = CTevChennalMgr::Instance();
        if (pManager != nullptr) {
            // The whole body, once per element that asks for it: this is relied on.
            (void)pManager->PushMsg(strBody, nMid);  // a failed push has been printed
        }
    }
    LogPrint(LOG_TRACE, SOURCE, "Run", LINE_AFTER, "CTevChennalMgr after ---> %s\n",
             strContext.c_str());
}

// One element never costs its neighbours.
void QueueFenced(const Json::Value& jsonElement, const std::string& strBody) {
    try {
        QueueForElement(jsonElement, strBody);
    } catch (...) {  // out of memory
    }
}

}  // namespace

int32_t FuncToMid(const std::string& strFunc) {
    if (strFunc == "cloudad") {
        return MID_PROCESS;
    }
    return strFunc == "cloudfd" ? MID_FILE : 0;
}

int32_t CHipsMsgHandler::Run(const std::string& /*strSender*/, const std::string& strBody,
                             std::string& /*strReply*/, int32_t* pStatus) {
    *pStatus = 1;
    try {
        Json::Value jsonRoot;
        if (!ParseJsonText(strBody, jsonRoot)) {
            return 0;
        }
        const Json::Value& jsonParam = JsonMember(jsonRoot, "param");
        for (Json::ArrayIndex i = 0; i < JsonArraySize(jsonParam); ++i) {
            QueueFenced(jsonParam[i], strBody);
        }
    } catch (...) {  // out of memory; nothing is left half done
    }
    return 0;
}

int64_t CHipsMsgHandler::GetMsgType() {
    return MSG_TYPE_HIPS_EVENT;
}

int32_t CCloudQueryRetHandler::Run(const std::string& /*strSender*/, const std::string& strBody,
                                   std::string& /*strReply*/, int32_t* pStatus) {
    *pStatus = 1;
    try {
        Json::Value jsonRoot;
        if (!ParseJsonText(strBody, jsonRoot) || JsonText(jsonRoot, "msg_type") != "cloudqr") {
            return 0;
        }
        const Json::Value& jsonParam = JsonMember(jsonRoot, "param");
        // A text that is no number asks for level 0, which is never recorded.
        const int32_t nLevel = JsonHasMember(jsonParam, "result")
                                   ? atoi(JsonText(jsonParam, "result").c_str())
                                   : DEFAULT_LEVEL;
        const std::string strKey = JsonText(jsonParam, "context");
        if (strKey.empty()) {
            return 0;
        }
        CTevCloudCachoMgr* pCache = CTevCloudCachoMgr::Instance();
        if (pCache != nullptr) {
            (void)pCache->Record(strKey, nLevel, CTevCloudCachoMgr::DEFAULT_LIFETIME,
                                 FuncToMid(JsonText(jsonParam, "func")), "");
        }
    } catch (...) {  // out of memory; the next launch of the program asks again
    }
    return 0;
}

int64_t CCloudQueryRetHandler::GetMsgType() {
    return MSG_TYPE_CLOUD_RESULT;
}
