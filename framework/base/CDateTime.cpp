#include "framework/base/CDateTime.h"

#include <cstddef>
#include <ctime>

#include "framework/base/CStr.h"

CDateTime CDateTime::currentDateTime() {
    return CDateTime(time(nullptr));
}

std::string CDateTime::toString(const std::string& strPattern) const {
    const time_t tmSeconds = m_tmSeconds;
    tm local = {};
    if (localtime_r(&tmSeconds, &local) == nullptr) {
        return "";
    }

    const struct {
        const char* pszToken;
        std::string strValue;
    } fields[] = {
        // The greatest year that a tm holds does not fit an int.
        {"yyyy", CStr::stdformat("%04lld", local.tm_year + 1900LL)},
        {"MM", CStr::stdformat("%02d", local.tm_mon + 1)},
        {"dd", CStr::stdformat("%02d", local.tm_mday)},
        {"hh", CStr::stdformat("%02d", local.tm_hour)},
        {"mm", CStr::stdformat("%02d", local.tm_min)},
        {"ss", CStr::stdformat("%02d", local.tm_sec)},
    };
    std::string strResult;
    size_t nPos = 0;
    while (nPos < strPattern.size()) {
        size_t nTaken = 0;
        for (const auto& field : fields) {
            const size_t nToken = std::string::traits_type::length(field.pszToken);
            if (strPattern.compare(nPos, nToken, field.pszToken) == 0) {
                strResult += field.strValue;
                nTaken = nToken;
                break;
            }
        }
        if (nTaken == 0) {
            strResult += strPattern[nPos];
            nTaken = 1;
        }
        nPos += nTaken;
    }
    return strResult;
}
