// Reads the text form of a Guid: 8-4-4-4-12 hexadecimal digits, with or without braces.
//
// In a header alone: the module reads with it under every host, whose base library may not have it.
// Threads: any; no state. Errors: none.
#ifndef FRAMEWORK_BASE_GUIDFIELDS_H
#define FRAMEWORK_BASE_GUIDFIELDS_H

#include <cstdio>

#include "framework/abi/Guid.h"

constexpr int GUID_FIELDS = 11;

// How many of the 11 fields pszText supplies, from the first one on. The others keep the bytes
// they had.
inline int ReadGuidFields(const char* pszText, Guid& guid) {
    uint8_t* p = guid.nData4;
    const char* pszFormat =
        pszText[0] == '{' ? "{%08x-%04hx-%04hx-%02hhx%02hhx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx}"
                          : "%08x-%04hx-%04hx-%02hhx%02hhx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // one of the two literals above
    return std::sscanf(pszText, pszFormat, &guid.nData1, &guid.nData2, &guid.nData3, &p[0], &p[1],
                       &p[2], &p[3], &p[4], &p[5], &p[6], &p[7]);
#pragma GCC diagnostic pop
}

#endif
