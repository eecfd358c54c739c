// The text form of a Guid: 8-4-4-4-12 hexadecimal digits, with or without braces.
//
// Threads: any; no state. Errors: none.
#ifndef PUBLIC_PLUGINHELPER_GUIDTEXT_H
#define PUBLIC_PLUGINHELPER_GUIDTEXT_H

#include "framework/abi/Guid.h"

// What FormatGuid writes into: 36 characters, two braces, the end, and two bytes to spare.
constexpr int GUID_TEXT_SIZE = 41;

// Reads pszText into *pGuid. A null text gives 16 zero bytes. Fields that the text does not
// supply keep the bytes they had: *pGuid is not cleared first.
void ParseGuid(const char* pszText, Guid* pGuid);

// Writes upper-case hexadecimal, within braces when bBraces, and returns pszBuffer, which holds
// GUID_TEXT_SIZE bytes.
char* FormatGuid(const Guid& guid, char* pszBuffer, bool bBraces);

#endif
