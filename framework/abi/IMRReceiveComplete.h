// What a plug-in registers with the router to receive messages of one type.
//
// Threads: the router's transport threads, several at once.
// Errors: must not throw. Ownership: the plug-in's; it must live until UnregisterReceiver returned.
#ifndef FRAMEWORK_ABI_IMRRECEIVECOMPLETE_H
#define FRAMEWORK_ABI_IMRRECEIVECOMPLETE_H

#include <cstdint>

#include "framework/abi/Guid.h"

class IMRReceiveComplete {
public:
    virtual ~IMRReceiveComplete() = default;  // slots 0 and 1

    // Slot 2. [transport, several threads at once] One message of a registered type.
    //   pSender      who sent it; null counts as the zero Guid
    //   nMsgType     its type
    //   pData        nLength bytes, not NUL-terminated, valid until the call returns; may be null
    //                with any nLength, which counts as an empty message
    //   pReplyHandle what IMsgRouter::Reply wants back; null when no reply is expected
    //   nExtra       unused
    // The plug-in may take as long as storing the message takes, and may call the router meanwhile,
    // but for Close and UnregisterReceiver. Returns 0, which is read by nobody.
    virtual int64_t ReceiveCallback(const Guid* pSender, int64_t nMsgType, const void* pData,
                                    uint32_t nLength, void* pReplyHandle, int64_t nExtra) = 0;
};

#endif
