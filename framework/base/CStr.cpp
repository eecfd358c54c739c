#include "framework/base/CStr.h"

#include <cstddef>
#include <cstdio>
#include <utility>

std::string CStr::stdformat(const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    std::string strResult = stdformatV(pszFormat, args);
    va_end(args);
    return strResult;
}

std::string CStr::stdformatV(const char* pszFormat, va_list args) {
    va_list measureArgs;
    va_copy(measureArgs, args);
    const int nLength = vsnprintf(nullptr, 0, pszFormat, measureArgs);
    va_end(measureArgs);
    if (nLength <= 0) {
        return "";
    }

    std::string strResult(static_cast<size_t>(nLength), '\0');
    // The terminating NUL lands on the string's own.
    const int nWritten = vsnprintf(strResult.data(), strResult.size() + 1, pszFormat, args);
    if (nWritten < 0) {
        return "";
    }
    // Shorter when another thread shortened an argument between the two calls.
    if (nWritten < nLength) {
        strResult.resize(static_cast<size_t>(nWritten));
    }
    return strResult;
}

std::vector<std::string> CStr::split2(const std::string& strText, char cSeparator) {
    std::vector<std::string> pieces;
    size_t nStart = 0;
    while (nStart < strText.size()) {
        size_t nEnd = strText.find(cSeparator, nStart);
        if (nEnd == std::string::npos) {
            nEnd = strText.size();
        }
        if (nEnd > nStart) {
            pieces.push_back(strText.substr(nStart, nEnd - nStart));
        }
        nStart = nEnd + 1;
    }
    return pieces;
}

void CStr::splitlines(const std::string& strText, std::vector<std::string>& pieces,
                      char cSeparator) {
    // Split before the old content goes: strText may be one of the pieces.
    std::vector<std::string> newPieces = split2(strText, cSeparator);
    pieces = std::move(newPieces);
}
