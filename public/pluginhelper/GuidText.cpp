#include "public/pluginhelper/GuidText.h"

#include <cstdio>

#include "framework/base/GuidFields.h"

void ParseGuid(const char* pszText, Guid* pGuid) {
    if (pszText == nullptr) {
        *pGuid = Guid{};
        return;
    }
    (void)ReadGuidFields(pszText, *pGuid);
}

char* FormatGuid(const Guid& guid, char* pszBuffer, bool bBraces) {
    const uint8_t* p = guid.nData4;
    (void)snprintf(pszBuffer, GUID_TEXT_SIZE,
                   "%s%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X%s", bBraces ? "{" : "",
                   guid.nData1, guid.nData2, guid.nData3, p[0], p[1], p[2], p[3], p[4], p[5], p[6],
                   p[7], bBraces ? "}" : "");
    return pszBuffer;
}
