#include "utils/time_utils.h"

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

namespace time_utils {

std::string FormatTimeStr(int64_t tmSeconds, const std::string& strFormat, int nZone) {
    if (strFormat.empty()) {
        // Not assert(): release builds define NDEBUG, and this stop is relied on there as well.
        (void)fputs("utils/time_utils: assertion failed: !format.empty()\n", stderr);
        abort();
    }
    const time_t tmTime = static_cast<time_t>(tmSeconds);
    tm parts = {};
    const tm* pParts =
        nZone == ZONE_LOCAL ? localtime_r(&tmTime, &parts) : gmtime_r(&tmTime, &parts);
    if (pParts == nullptr) {
        return "";
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the format is the caller's, by design
    char text[64];
    const size_t nUsual = strftime(text, sizeof(text), strFormat.c_str(), pParts);
    if (nUsual != 0) {
        return std::string(text, nUsual);
    }
    // strftime answers 0 both for "does not fit" and for an output that is empty; the latter
    // doubles until the allocation fails, which is accepted.
    for (size_t nSize = 2 * sizeof(text); nSize != 0; nSize *= 2) {
        const std::unique_ptr<char[]> pBuffer(new (std::nothrow) char[nSize]);
        if (pBuffer == nullptr) {
            return "";
        }
        const size_t nLength = strftime(pBuffer.get(), nSize, strFormat.c_str(), pParts);
        if (nLength != 0) {
            return std::string(pBuffer.get(), nLength);
        }
    }
#pragma GCC diagnostic pop
    return "";
}

}  // namespace time_utils
