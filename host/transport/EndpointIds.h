// Endpoint identities as the router compares them.
#ifndef HOST_TRANSPORT_ENDPOINTIDS_H
#define HOST_TRANSPORT_ENDPOINTIDS_H

#include <cstring>

#include "framework/abi/Guid.h"
#include "framework/abi/MsgTypes.h"
#include "framework/base/GuidFields.h"

// The sensor whose events this host delivers.
constexpr char SENSOR_ENDPOINT[] = "6D0A5E0B-57E6-4C6B-8B0F-2C1B7D7C3A11";

// The identity behind 8-4-4-4-12 hexadecimal digits; zero for another text.
inline Guid GuidFromText(const char* pszText) {
    Guid guid = {};
    return ReadGuidFields(pszText, guid) == GUID_FIELDS ? guid : Guid{};
}

// An order for maps; it means nothing else.
struct GuidLess {
    bool operator()(const Guid& left, const Guid& right) const {
        return std::memcmp(&left, &right, sizeof(Guid)) < 0;
    }
};

#endif
