#include "public/pluginhelper/LogPrint.h"

#include <cstdarg>

#include "framework/log/CLogDebug.h"

int LogPrint(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
             const char* pszFormat, ...) {
    CLogDebug* pLog = CLogDebug::Instance();
    if (pLog == nullptr || !pLog->CheckLogLevel(nLevel, 1)) {
        return 0;
    }
    va_list args;
    va_start(args, pszFormat);
    const int nResult = pLog->LogPrintV(nLevel, pszSource, pszFunction, nLine, pszFormat, args);
    va_end(args);
    return nResult;
}
