#include "host/base/HumanText.h"

#include <cinttypes>
#include <ctime>

#include "framework/base/CStr.h"

namespace text {

std::string Bytes(uint64_t nBytes) {
    static const char* const UNITS[] = {"KiB", "MiB", "GiB", "TiB"};
    if (nBytes < 1024) {
        return CStr::stdformat("%" PRIu64 " B", nBytes);
    }
    double dValue = static_cast<double>(nBytes) / 1024;
    size_t nUnit = 0;
    while (dValue >= 1024 && nUnit < 3) {
        dValue /= 1024;
        ++nUnit;
    }
    return CStr::stdformat("%.1f %s", dValue, UNITS[nUnit]);
}

std::string Number(uint64_t nNumber) {
    std::string strNumber = std::to_string(nNumber);
    for (size_t nPos = strNumber.size(); nPos > 3;) {
        nPos -= 3;
        strNumber.insert(nPos, ",");
    }
    return strNumber;
}

std::string Count(uint64_t nNumber, const std::string& strOne, const std::string& strMany) {
    return Number(nNumber) + " " +
           (nNumber == 1 ? strOne : (strMany.empty() ? strOne + "s" : strMany));
}

std::string LocalTime(int64_t tmSeconds) {
    const time_t tmTime = tmSeconds;
    struct tm local = {};
    char szText[64] = "";
    if (localtime_r(&tmTime, &local) == nullptr ||
        strftime(szText, sizeof(szText), "%Y-%m-%d %H:%M:%S", &local) == 0) {
        return CStr::stdformat("%" PRId64, tmSeconds);
    }
    return szText;
}

std::string ClockNow() {
    const std::string strTime = LocalTime(time(nullptr));
    return strTime.size() > 11 ? strTime.substr(11) : strTime;
}

}  // namespace text
