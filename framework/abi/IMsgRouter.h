// The host's message transport as a plug-in sees it: a table of virtual slots. The slot numbers
// are the interface; a plug-in calls only the slots that are named here, the reserved ones exist
// so that the named ones keep their places.
//
// Threads: every call may come from any thread, several at once.
// Errors: results are 32-bit codes, 0 is success; no call throws.
// Ownership: pointers stay the caller's and are read only during the call, except the receiver
//   given to RegisterReceiver, which must live until UnregisterReceiver has returned, and the
//   completion given to SendWithCompletion, which must live until it was called.
#ifndef FRAMEWORK_ABI_IMSGROUTER_H
#define FRAMEWORK_ABI_IMSGROUTER_H

#include <cstdint>

#include "framework/abi/Guid.h"
#include "framework/abi/IMRReceiveComplete.h"
#include "framework/abi/IMRSendComplete.h"

class IMsgRouter {
public:
    virtual ~IMsgRouter() = default;  // slots 0 and 1

    // Slot 2. [control] Names the endpoint that this router speaks for.
    virtual uint32_t SetLocalIdentity(const Guid* pIdentity) = 0;

    // Slot 3. [control] Ends all traffic of this endpoint.
    virtual void Close() = 0;

    // Slot 4. [any] Sends nLength bytes to pTarget and returns without waiting for delivery.
    virtual uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                          uint32_t nLength) = 0;

    virtual int64_t Reserved5() = 0;
    virtual int64_t Reserved6() = 0;
    virtual int64_t Reserved7() = 0;
    virtual int64_t Reserved8() = 0;

    // Slot 9. [control] From now on messages of nMsgType go to pReceiver. nReserved is 0.
    virtual uint32_t RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver,
                                      int64_t nReserved) = 0;

    // Slot 10. [control] Ends what RegisterReceiver began. When it has returned, no call into the
    // receiver for this type is running or will start.
    virtual uint32_t UnregisterReceiver(int64_t nMsgType) = 0;

    // Slot 11. [transport] Answers the message that came with pReplyHandle. nReserved is 0.
    virtual uint32_t Reply(int64_t nReserved, int64_t nMsgType, const void* pData, uint32_t nLength,
                           void* pReplyHandle) = 0;

    // Slot 12. [any] Sends nLength bytes to pTarget and calls pComplete when the send has ended or
    // nTimeout milliseconds have passed. nReserved is 0; *pOut is the router's to write.
    virtual uint32_t SendWithCompletion(const Guid* pTarget, int64_t nMsgType, const void* pData,
                                        uint32_t nLength, IMRSendComplete* pComplete,
                                        int64_t nReserved, uint32_t* pOut, int64_t nTimeout) = 0;
};

#endif
