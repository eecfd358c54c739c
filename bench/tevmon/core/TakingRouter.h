// A host's router that takes what is posted, as a host would, into a text of its own.
#ifndef BENCH_TEVMON_CORE_TAKINGROUTER_H
#define BENCH_TEVMON_CORE_TAKINGROUTER_H

#include <cstdint>
#include <string>

#include "tests/support/SilentRouter.h"

class TakingRouter : public SilentRouter {
public:
    uint32_t Post(const Guid*, int64_t, const void* pData, uint32_t nLength) override {
        ++nPosts;
        strLast.assign(static_cast<const char*>(pData), nLength);
        return 0;
    }

    std::string strLast;
    int64_t nPosts = 0;
};

#endif
