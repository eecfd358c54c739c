// Text helpers of the framework.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef FRAMEWORK_BASE_CSTR_H
#define FRAMEWORK_BASE_CSTR_H

#include <cstdarg>
#include <string>
#include <vector>

#include "framework/abi/Export.h"

class HOSTFRAMEWORK_API CStr {
public:
    // What printf would print, of any length. An impossible format gives "".
    static std::string stdformat(const char* pszFormat, ...) __attribute__((format(printf, 1, 2)));
    static std::string stdformatV(const char* pszFormat, va_list args)
        __attribute__((format(printf, 1, 0)));

    // The pieces of strText between separators, in order; empty pieces are not produced.
    static std::vector<std::string> split2(const std::string& strText, char cSeparator);

    // The same into pieces, whose former content goes.
    static void splitlines(const std::string& strText, std::vector<std::string>& pieces,
                           char cSeparator);
};

#endif
