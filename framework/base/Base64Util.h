// Base64 with the standard alphabet.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef FRAMEWORK_BASE_BASE64UTIL_H
#define FRAMEWORK_BASE_BASE64UTIL_H

#include <cstddef>
#include <string>

#include "framework/abi/Export.h"

class HOSTFRAMEWORK_API Base64Util {
public:
    // Padded, without line breaks; "" for "".
    static std::string Base64Encode(const std::string& strData);

    // The same, appended to strText.
    static void Base64Append(std::string& strText, const std::string& strData);

    // The bytes that strText stands for. Characters outside the alphabet are skipped, the first
    // "=" ends the text, and bits that do not fill a byte are dropped.
    static std::string Base64Decode(const std::string& strText);
    static std::string Base64Decode(const char* pText, size_t nLength);
};

#endif
