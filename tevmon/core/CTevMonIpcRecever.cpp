#include "tevmon/core/CTevMonIpcRecever.h"

#include <utility>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/GuidText.h"
#include "public/pluginhelper/LogPrint.h"
#include "tevmon/core/CTevCallGate.h"
#include "tevmon/core/CTevMonIpcMsgHandler.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevMonIpcRecever";
constexpr int LINE_RECEIVED = 20;  // fixed, read by log filters

}  // namespace

CTevMonIpcRecever::CTevMonIpcRecever() {
    AddHandler(std::make_unique<CHipsMsgHandler>());
    AddHandler(std::make_unique<CCloudQueryRetHandler>());
}

int64_t CTevMonIpcRecever::ReceiveCallback(const Guid* pSender, int64_t nMsgType, const void* pData,
                                           uint32_t nLength, void* pReplyHandle,
                                           int64_t /*nExtra*/) {
    const CTevCallGate gate;
    if (!gate.IsOpen()) {
        return 0;
    }
    try {
        const std::string strBody(pData != nullptr ? static_cast<const char*>(pData) : "",
                                  pData != nullptr ? nLength : 0);
        std::string strReply = "success";
        int32_t nStatus = 1;
        char sender[GUID_TEXT_SIZE] = {};
        FormatGuid(pSender != nullptr ? *pSender : Guid{}, sender, false);
        LogPrint(LOG_TRACE, SOURCE, "ReceiveCallback", LINE_RECEIVED, "rvce <<< %s\n",
                 strBody.c_str());
        (void)Dispatch(nMsgType, sender, strBody, strReply, &nStatus);
        if (pReplyHandle != nullptr && nStatus == MSG_STATUS_REPLY) {
            CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
            if (pHolder != nullptr) {
                (void)pHolder->Reply(nMsgType, strReply.data(),
                                     static_cast<uint32_t>(strReply.size()), pReplyHandle);
            }
        }
    } catch (...) {  // nothing crosses onto the host's thread
    }
    return 0;
}

void CTevMonIpcRecever::AddHandler(std::unique_ptr<IMsgFunc> pHandler) {
    const int64_t nMsgType = pHandler->GetMsgType();
    (void)m_handlers.try_emplace(nMsgType, std::move(pHandler));
}

int32_t CTevMonIpcRecever::Dispatch(int64_t nMsgType, const std::string& strSender,
                                    const std::string& strBody, std::string& strReply,
                                    int32_t* pStatus) {
    const auto it = m_handlers.find(nMsgType);
    if (it == m_handlers.end()) {
        return -1;
    }
    try {
        return it->second->Run(strSender, strBody, strReply, pStatus);
    } catch (...) {
        *pStatus = 1;
        return 0;
    }
}
