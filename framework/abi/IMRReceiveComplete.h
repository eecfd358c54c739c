// What a plug-in registers with the router to receive messages of one type.
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
    // Returns 0. Must not throw.
    virtual int64_t ReceiveCallback(const Guid* pSender, int64_t nMsgType, const void* pData,
                                    uint32_t nLength, void* pReplyHandle, int64_t nExtra) = 0;
};

#endif
