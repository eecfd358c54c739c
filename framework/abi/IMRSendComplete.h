// What a sender gives to IMsgRouter::SendWithCompletion to learn how the send ended.
//
// Threads: any, the sender's own included, and several at once where one object serves several
//   sends. Errors: must not throw.
// Ownership: the sender's; it must live until the router has called it.
#ifndef FRAMEWORK_ABI_IMRSENDCOMPLETE_H
#define FRAMEWORK_ABI_IMRSENDCOMPLETE_H

#include <cstdint>

class IMRSendComplete {
public:
    virtual ~IMRSendComplete() = default;  // slots 0 and 1

    // Slot 2. [any] A send has ended, once for each that the router took. nResult: 0, or the
    // router's code, for example for a time-out. pAnswer: nLength bytes that the target answered
    // with, good during the call; may be null. The other arguments are the router's own and may be
    // null. The result is read by nobody.
    virtual int64_t SendComplete(uint32_t nResult, const void* pSource, const void* pAnswer,
                                 uint32_t nLength, void* pContext, int64_t nExtra) = 0;
};

#endif
