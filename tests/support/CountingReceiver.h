// A receiver of messages that counts them and answers 0.
#ifndef TESTS_SUPPORT_COUNTINGRECEIVER_H
#define TESTS_SUPPORT_COUNTINGRECEIVER_H

#include <atomic>

#include "framework/abi/IMRReceiveComplete.h"

class CountingReceiver : public IMRReceiveComplete {
public:
    int64_t ReceiveCallback(const Guid*, int64_t, const void*, uint32_t, void*, int64_t) override {
        ++m_nCalls;
        return 0;
    }

    std::atomic<int> m_nCalls{0};
};

#endif
