// A router that does nothing and says yes, to be overridden where a program looks.
#ifndef TESTS_SUPPORT_SILENTROUTER_H
#define TESTS_SUPPORT_SILENTROUTER_H

#include <cstdint>

#include "framework/abi/IMsgRouter.h"

class SilentRouter : public IMsgRouter {
public:
    uint32_t SetLocalIdentity(const Guid*) override { return 0; }
    void Close() override {}
    uint32_t Post(const Guid*, int64_t, const void*, uint32_t) override { return 0; }
    int64_t Reserved5() override { return 0; }
    int64_t Reserved6() override { return 0; }
    int64_t Reserved7() override { return 0; }
    int64_t Reserved8() override { return 0; }
    uint32_t RegisterReceiver(int64_t, IMRReceiveComplete*, int64_t) override { return 0; }
    uint32_t UnregisterReceiver(int64_t) override { return 0; }
    uint32_t Reply(int64_t, int64_t, const void*, uint32_t, void*) override { return 0; }
    uint32_t SendWithCompletion(const Guid*, int64_t, const void*, uint32_t, IMRSendComplete*,
                                int64_t, uint32_t*, int64_t) override {
        return 0;
    }
};

#endif
