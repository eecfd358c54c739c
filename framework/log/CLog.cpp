#include "framework/log/CLog.h"

#include <cstdarg>

#include "framework/log/CLogDebug.h"

void CLog::_emit(int nLogType, const char* pszSource, const char* pszFunction, int nLine,
                 const char* pszFormat, ...) {
    CLogDebug* pLog = CLogDebug::Instance();
    const int nLevel = nLogType >= LOG_TYPE_ERROR ? 4 : 2;
    if (!pLog->CheckLogLevel(nLevel, 1)) {
        return;
    }
    va_list args;
    va_start(args, pszFormat);
    pLog->Hand({nLevel, nLogType, pszSource, pszFunction, nLine, pszFormat}, args);
    va_end(args);
}
