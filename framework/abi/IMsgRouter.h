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

    // Slot 2. [control] Names the endpoint that this router speaks for: the sender of every message
    // that it posts or sends from now on. Called before anything is registered. The plug-in reads
    // no result.
    virtual uint32_t SetLocalIdentity(const Guid* pIdentity) = 0;

    // Slot 3. [control] Ends all traffic of this endpoint; the last call that a plug-in makes here
    // of its own accord. When it has returned every send has ended and its completion was called:
    // the completion goes with the plug-in's library. Later sends, from threads that have not
    // ended, are to be refused with a code: the router's memory must stay until the plug-in is
    // unloaded.
    virtual void Close() = 0;

    // Slot 4. [any] Sends nLength bytes to pTarget and returns without waiting for delivery. pData
    // is copied or sent before it returns, and may be of length 0. 0 when it was taken; another
    // code when it was not, which the plug-in logs and passes over. A router that makes its caller
    // wait here makes the plug-in's analysis wait, and one that ends the thread ends the analysis.
    virtual uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                          uint32_t nLength) = 0;

    // Slots 5 to 8. No plug-in calls them; a host gives them any body.
    virtual int64_t Reserved5() = 0;
    virtual int64_t Reserved6() = 0;
    virtual int64_t Reserved7() = 0;
    virtual int64_t Reserved8() = 0;

    // Slot 9. [control] From now on messages of nMsgType go to pReceiver. nReserved is 0. The first
    // may come before this has returned, on any thread. A second registration of a type is the same
    // receiver again, or replaces the first. The plug-in reads no result.
    virtual uint32_t RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver,
                                      int64_t nReserved) = 0;

    // Slot 10. [control] Ends what RegisterReceiver began. When it has returned, no call into the
    // receiver for this type is running or will start: so it is not called from within one. For a
    // type that nobody registered it may answer with a code; the plug-in reads none.
    virtual uint32_t UnregisterReceiver(int64_t nMsgType) = 0;

    // Slot 11. [transport] Answers the message that came with pReplyHandle, at most once and within
    // its ReceiveCallback. nReserved is 0. pData is copied or sent before it returns. Another code
    // than 0 for a handle that is not, or no longer, the router's.
    virtual uint32_t Reply(int64_t nReserved, int64_t nMsgType, const void* pData, uint32_t nLength,
                           void* pReplyHandle) = 0;

    // Slot 12. [any] Sends nLength bytes to pTarget and calls pComplete when the send has ended or
    // nTimeout milliseconds have passed, whichever comes first, and exactly once; it may come
    // before this has returned. A router may treat more than a day as a day. One that has no memory
    // for the time-out goes without: the send then ends when it is delivered, or by Close.
    // nReserved is 0; *pOut, 0 before, is the router's to write, with its number for the send. On
    // another code than 0 nothing was sent and pComplete is not called.
    virtual uint32_t SendWithCompletion(const Guid* pTarget, int64_t nMsgType, const void* pData,
                                        uint32_t nLength, IMRSendComplete* pComplete,
                                        int64_t nReserved, uint32_t* pOut, int64_t nTimeout) = 0;
};

#endif
