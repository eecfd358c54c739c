// Any text reads as some Guid, and what is written of that reads as the same.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/Require.h"
#include "public/pluginhelper/GuidText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const std::string strText(reinterpret_cast<const char*>(pData), nSize);
    Guid first = {};
    ParseGuid(strText.c_str(), &first);

    for (const bool bBraces : {false, true}) {
        char szText[GUID_TEXT_SIZE];
        Guid second = {};
        ParseGuid(FormatGuid(first, szText, bBraces), &second);
        Require(std::memcmp(&first, &second, sizeof(first)) == 0);
    }
    return 0;
}
