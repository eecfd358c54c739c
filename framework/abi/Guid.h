// The identity of an endpoint on the host's message router, as it lies in memory on the interface.
#ifndef FRAMEWORK_ABI_GUID_H
#define FRAMEWORK_ABI_GUID_H

#include <cstdint>

// 16 bytes in host byte order. The text form 8-4-4-4-12 prints nData1, nData2 and nData3 as
// numbers and nData4 byte by byte.
struct Guid {
    uint32_t nData1;
    uint16_t nData2;
    uint16_t nData3;
    uint8_t nData4[8];
};

static_assert(sizeof(Guid) == 16, "Guid is 16 bytes on the host interface");
static_assert(alignof(Guid) == 4, "Guid is aligned as its first field");

#endif
