// Endpoint identities as the router compares them.
#ifndef HOST_TRANSPORT_ENDPOINTIDS_H
#define HOST_TRANSPORT_ENDPOINTIDS_H

#include <cstdio>
#include <cstring>

#include "framework/abi/Guid.h"
#include "framework/abi/MsgTypes.h"

// The sensor whose events this host delivers.
constexpr char SENSOR_ENDPOINT[] = "6D0A5E0B-57E6-4C6B-8B0F-2C1B7D7C3A11";

// The identity behind 8-4-4-4-12 hexadecimal digits; zero for another text. (The module has a
// reader of its own, which keeps the bytes that a text does not supply.)
inline Guid GuidFromText(const char* pszText) {
    Guid guid = {};
    unsigned nTail[8] = {};
    const int nFields =
        std::sscanf(pszText, "%8x-%4hx-%4hx-%2x%2x-%2x%2x%2x%2x%2x%2x", &guid.nData1, &guid.nData2,
                    &guid.nData3, &nTail[0], &nTail[1], &nTail[2], &nTail[3], &nTail[4], &nTail[5],
                    &nTail[6], &nTail[7]);
    if (nFields != 11) {
        return Guid{};
    }
    for (int i = 0; i < 8; ++i) {
        guid.nData4[i] = static_cast<uint8_t>(nTail[i]);
    }
    return guid;
}

// An order for maps; it means nothing else.
struct GuidLess {
    bool operator()(const Guid& left, const Guid& right) const {
        return std::memcmp(&left, &right, sizeof(Guid)) < 0;
    }
};

#endif
