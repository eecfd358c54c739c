#include "public/pluginhelper/CCentreSession.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "framework/abi/MsgTypes.h"
#include "framework/base/CStr.h"
#include "framework/base/FdWriter.h"
#include "framework/log/CLog.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/GuidText.h"

namespace {

constexpr int LINE_SEND_FAILED = 61;  // fixed, read by log filters
constexpr size_t NAME_OFFSET = 16;
constexpr size_t SUBNAME_OFFSET = 80;
constexpr size_t NAME_SIZE = 64;
constexpr size_t LENGTH_OFFSET = 144;
constexpr size_t PAYLOAD_OFFSET = 148;
constexpr int64_t SEND_TIMEOUT_MS = 60000;

CLogCacheAsynCallback* AsynCallback() {
    static CLogCacheAsynCallback s_callback;  // made at the first send, gone at unload
    return &s_callback;
}

void PutNumber(char* pBuffer, size_t nOffset, uint32_t nNumber) {
    memcpy(pBuffer + nOffset, &nNumber, sizeof(nNumber));
}

void PutName(char* pBuffer, size_t nOffset, const char* pszName) {
    memcpy(pBuffer + nOffset, pszName, strnlen(pszName, NAME_SIZE - 1));
}

}  // namespace

int64_t CLogCacheAsynCallback::SendComplete(uint32_t /*nResult*/, const void* /*pSource*/,
                                            const void* /*pAnswer*/, uint32_t /*nLength*/,
                                            void* /*pContext*/, int64_t /*nExtra*/) {
    return 0;
}

bool CCentreSession::sendhub(const std::string& strPayload, const std::string& strBusinessId,
                             uint32_t nValue, int32_t /*nIgnored*/, int nMode) {
    try {
        CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
        IMsgRouter* pRouter = pHolder != nullptr ? pHolder->GetRouter() : nullptr;
        if (pRouter == nullptr) {
            return false;
        }
        std::vector<std::string> parts;
        CStr::splitlines(strBusinessId, parts, '/');
        if (parts.size() != 2) {
            (void)CFdWriter::Write(
                STDOUT_FILENO,
                CStr::stdformat("sendhub:: strBusinessId error [%s]\n", strBusinessId.c_str()));
            return false;
        }
        if (nMode != 0 && nMode != 1) {
            return false;
        }
        const uint32_t nResult =
            SendRecord(pRouter, {nMode == 0 ? 2U : 1U, parts[0].c_str(), parts[1].c_str(), nValue,
                                 1, strPayload.c_str()});
        if (nResult != 0) {
            CLog::_emit(LOG_TYPE_ERROR, "public/pluginhelper/CCentreSession", "sendhub",
                        LINE_SEND_FAILED, "[%s]发送消息失败[ret:%d]", strBusinessId.c_str(),
                        static_cast<int>(nResult));
            return false;
        }
        return true;
    } catch (...) {
        return false;  // out of memory
    }
}

bool CCentreSession::sendhub2(const std::string& strPayload, const std::string& strBusinessId,
                              uint32_t nValue, int nMode) {
    return sendhub(strPayload, strBusinessId, nValue, 2, nMode);
}

bool CCentreSession::sendhub1(const std::string& strPayload, const std::string& strBusinessId,
                              uint32_t nValue, int nMode) {
    return sendhub(strPayload, strBusinessId, nValue, 1, nMode);
}

uint32_t CCentreSession::SendRecord(IMsgRouter* pRouter, const SendhubRecord& record) {
    if (pRouter == nullptr || record.pszName == nullptr || record.pszSubName == nullptr ||
        record.pszPayload == nullptr) {
        return ERROR_BAD_ARGUMENT;
    }
    if (record.nType < 1 || record.nType > 3) {  // 3 is taken, though no mode selects it
        return ERROR_BAD_RECORD_TYPE;
    }
    const size_t nPayload = strlen(record.pszPayload);
    if (nPayload == 0) {
        return ERROR_BAD_ARGUMENT;
    }
    if (nPayload > std::numeric_limits<uint32_t>::max() - RECORD_OVERHEAD) {
        return ERROR_OUT_OF_MEMORY;
    }
    const size_t nSize = nPayload + RECORD_OVERHEAD;
    const std::unique_ptr<char[]> pBuffer(new (std::nothrow) char[nSize]());
    if (pBuffer == nullptr) {
        return ERROR_OUT_OF_MEMORY;
    }
    PutNumber(pBuffer.get(), 0, record.nType);
    PutNumber(pBuffer.get(), 4, record.nValue);
    PutNumber(pBuffer.get(), 8, record.nFlag);
    if (record.pszName[0] != '\0' && record.pszSubName[0] != '\0') {
        PutName(pBuffer.get(), NAME_OFFSET, record.pszName);
        PutName(pBuffer.get(), SUBNAME_OFFSET, record.pszSubName);
    }
    PutNumber(pBuffer.get(), LENGTH_OFFSET, static_cast<uint32_t>(nPayload));
    memcpy(pBuffer.get() + PAYLOAD_OFFSET, record.pszPayload, nPayload);

    Guid centre = {};
    ParseGuid(CENTRE_ENDPOINT, &centre);
    uint32_t nOut = 0;
    return pRouter->SendWithCompletion(&centre, MSG_TYPE_SENDHUB, pBuffer.get(),
                                       static_cast<uint32_t>(nSize), AsynCallback(), 0, &nOut,
                                       SEND_TIMEOUT_MS);
}
