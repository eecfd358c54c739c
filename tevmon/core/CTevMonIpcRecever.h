// Receives the host's messages and hands each to the handler of its type.
//
// Threads: ReceiveCallback [transport, several at once]. The handlers are only read after
//   construction.
// Errors: nothing throws; a message of a type without handler is dropped after its log line.
// Ownership: owns its handlers. The host's router holds a pointer to it from zkp_setopt to
//   zkp_uninit.
#ifndef TEVMON_CORE_CTEVMONIPCRECEVER_H
#define TEVMON_CORE_CTEVMONIPCRECEVER_H

#include <map>
#include <memory>
#include <string>

#include "framework/abi/IMRReceiveComplete.h"
#include "tevmon/core/IMsgFunc.h"

class CTevMonIpcRecever : public IMRReceiveComplete {
public:
    CTevMonIpcRecever();  // with the handlers of types 20002 and 20003

    // See IMRReceiveComplete. Always returns 0.
    int64_t ReceiveCallback(const Guid* pSender, int64_t nMsgType, const void* pData,
                            uint32_t nLength, void* pReplyHandle, int64_t nExtra) override;

    // [exit] Deletes the handlers. The gate of calls is shut by then, or no router knows of this
    // object: no call looks at them any more.
    void DropHandlers() { m_handlers.clear(); }

protected:
    // [construction] Takes a handler over under the type it names; one whose type is taken is
    // deleted and the first one stays.
    void AddHandler(std::unique_ptr<IMsgFunc> pHandler);

private:
    // The handler's result, -1 when there is none for the type.
    int32_t Dispatch(int64_t nMsgType, const std::string& strSender, const std::string& strBody,
                     std::string& strReply, int32_t* pStatus);

    std::map<int64_t, std::unique_ptr<IMsgFunc>> m_handlers;
};

#endif
