// The log library's emit call, for records that carry a log type instead of a level.
//
// Threads: any. Errors: nothing throws.
#ifndef FRAMEWORK_LOG_CLOG_H
#define FRAMEWORK_LOG_CLOG_H

#include "framework/abi/Export.h"

constexpr int LOG_TYPE_ERROR = 3;

class HOSTFRAMEWORK_API CLog {
public:
    // Hands one record to the sink of CLogDebug, with level 4 for LOG_TYPE_ERROR and above and
    // level 2 below it; written only when that level is.
    static void _emit(int nLogType, const char* pszSource, const char* pszFunction, int nLine,
                      const char* pszFormat, ...) __attribute__((format(printf, 5, 6)));
};

#endif
