// The module's one log call.
#ifndef PUBLIC_PLUGINHELPER_LOGPRINT_H
#define PUBLIC_PLUGINHELPER_LOGPRINT_H

// Levels in use.
constexpr int LOG_SKIP = 1;   // an event that needs no query
constexpr int LOG_TRACE = 2;  // life cycle and traffic
constexpr int LOG_FAIL = 4;   // a failure; the work item is dropped

// Hands one record to the host's log. pszSource is the path of the source in the tree without its
// ending, as in "tevmon/core/CTevChennalMgr". Returns what the log returns, 0 when there is no
// log or nLevel is off. Threads: any. Nothing throws.
int LogPrint(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
             const char* pszFormat, ...) __attribute__((format(printf, 5, 6)));

#endif
