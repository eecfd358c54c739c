// What a sender gives to IMsgRouter::SendWithCompletion to learn how the send ended.
#ifndef FRAMEWORK_ABI_IMRSENDCOMPLETE_H
#define FRAMEWORK_ABI_IMRSENDCOMPLETE_H

#include <cstdint>

class IMRSendComplete {
public:
    virtual ~IMRSendComplete() = default;  // slots 0 and 1

    // Slot 2. [transport] The send named by the router ended. nResult and pAnswer (nLength bytes)
    // are the router's; the other arguments are its own. Must not throw.
    virtual int64_t SendComplete(uint32_t nResult, const void* pSource, const void* pAnswer,
                                 uint32_t nLength, void* pContext, int64_t nExtra) = 0;
};

#endif
