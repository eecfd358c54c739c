// The framework's log. Every record reaches one place with its parts still apart: level, source,
// function, line, format and arguments.
//
// Unless a host sets a sink of its own, a record becomes one line on standard error, written
// whole: local time, "L" and the level, source, function:line, message, a blank between them, as in
//   2031-05-17 08:30:00.125 L4 tevmon/core/CTevChennalMgr Start:57 [CTevChennalMgr]: ...
// An empty source or function stands as "-". One line feed at the end of the message is dropped;
// control characters are written as \xNN, so that a message can never forge a line. A line that
// standard error does not take at once is dropped and counted.
//
// Threads: any. Errors: nothing throws.
// Ownership: the one instance lives until the process ends, so that threads may log until then; a
//   sink stays the host's and must live until the SetSink that replaces it has returned.
#ifndef FRAMEWORK_LOG_CLOGDEBUG_H
#define FRAMEWORK_LOG_CLOGDEBUG_H

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>

#include "framework/abi/Export.h"
#include "framework/base/ObserverSlot.h"

// One record, valid during the call. Texts are never null.
struct LogRecord {
    int nLevel;             // 1 a skipped event, 2 life cycle and traffic, 4 failure
    int nLogType;           // 0 for a levelled record, the log type for one of CLog::_emit
    const char* pszSource;  // as in "tevmon/core/CTevChennalMgr"
    const char* pszFunction;
    int nLine;
    const char* pszFormat;
};

class ILogSink {
public:
    virtual ~ILogSink() = default;
    // [any, several at once] Returns what LogPrintV is to return. args belong to the caller and
    // may be read once. Must not throw, log or call SetSink.
    virtual int OnLog(const LogRecord& record, va_list args) = 0;
};

class HOSTFRAMEWORK_API CLogDebug {
public:
    // The process's log; on first use it takes the level from HOSTFRAMEWORK_LOG_LEVEL (default 4).
    static CLogDebug* Instance();

    CLogDebug(const CLogDebug&) = delete;
    CLogDebug& operator=(const CLogDebug&) = delete;

    // True when records of nLevel are written. nModule is ignored.
    bool CheckLogLevel(int nLevel, int nModule) const;

    // Hands one record to the sink. Returns the sink's result; the standard sink's is the number
    // of bytes written, 0 when the line was dropped.
    int LogPrintV(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
                  const char* pszFormat, va_list args) __attribute__((format(printf, 6, 0)));

    // The record's message, for sinks: what printf would print, of any length.
    static std::string MessageOf(const LogRecord& record, va_list args);

    // The lowest level written.
    void SetLevel(int nLevel);
    // Where records go; null for standard error. Returns when no call into the sink that it
    // replaces is in progress, however long such a call takes, and none can begin any more.
    void SetSink(ILogSink* pSink);
    // Lines that standard error did not take.
    uint64_t DroppedLines() const;

private:
    friend class CLog;
    CLogDebug();
    ~CLogDebug() = default;
    int Hand(const LogRecord& record, va_list args);
    int WriteLine(const LogRecord& record, va_list args);

    std::atomic<int> m_nLevel;
    std::atomic<uint64_t> m_nDropped{0};

    ObserverSlot<ILogSink> m_sink;
};

#endif
