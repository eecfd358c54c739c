// Sends texts to the host's centre endpoint, each wrapped in a binary record.
//
// Threads: any; everything is kept on the stack.
// Errors: results only; nothing throws.
#ifndef PUBLIC_PLUGINHELPER_CCENTRESESSION_H
#define PUBLIC_PLUGINHELPER_CCENTRESESSION_H

#include <cstdint>
#include <string>

#include "framework/abi/IMsgRouter.h"

// What the router calls when a record's send has ended; nothing waits for that.
class CLogCacheAsynCallback : public IMRSendComplete {
public:
    int64_t SendComplete(uint32_t nResult, const void* pSource, const void* pAnswer,
                         uint32_t nLength, void* pContext, int64_t nExtra) override;
};

// One record, little-endian: u32 type, u32 value, u32 flag (1), u32 zero, 64 bytes name, 64 bytes
// sub-name, u32 payload length n, n bytes payload, NUL. 149 + n bytes.
struct SendhubRecord {
    uint32_t nType;          // 1, 2 or 3
    const char* pszName;     // at most 63 bytes count
    const char* pszSubName;  // likewise; both names stay zero unless both are non-empty
    uint32_t nValue;         // the caller's
    uint32_t nFlag;          // 1
    const char* pszPayload;  // not empty
};

class CCentreSession {
public:
    static constexpr size_t RECORD_OVERHEAD = 149;

    // Sends strPayload (up to its first NUL byte) under the business id "name/subname". nMode 0
    // sends a record of type 2, 1 one of type 1, any other nothing. True when it was sent. A
    // business id of other than two parts is reported on standard output, a failed send in the
    // log; without a router nothing is.
    bool sendhub(const std::string& strPayload, const std::string& strBusinessId, uint32_t nValue,
                 int32_t nIgnored, int nMode);

    // sendhub with the ignored argument set to 2 and to 1.
    bool sendhub2(const std::string& strPayload, const std::string& strBusinessId, uint32_t nValue,
                  int nMode);
    bool sendhub1(const std::string& strPayload, const std::string& strBusinessId, uint32_t nValue,
                  int nMode);

    // Builds the record and sends it with a time-out of a minute. Returns the router's result,
    // ERROR_BAD_ARGUMENT for a null pointer or an empty payload, ERROR_BAD_RECORD_TYPE for an
    // unknown type, ERROR_OUT_OF_MEMORY when there is no buffer or the record's length would not
    // fit 32 bits.
    static uint32_t SendRecord(IMsgRouter* pRouter, const SendhubRecord& record);
};

#endif
