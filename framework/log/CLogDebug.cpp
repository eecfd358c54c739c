#include "framework/log/CLogDebug.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <new>
#include <string>

#include "framework/base/CStr.h"
#include "framework/base/FdWriter.h"
#include "framework/digest/DigestPair.h"

namespace {

constexpr int LEVEL_FAILURE = 4;
constexpr int DEFAULT_LEVEL = LEVEL_FAILURE;

int LevelFromEnvironment() {
    const char* pszLevel = getenv("HOSTFRAMEWORK_LOG_LEVEL");
    if (pszLevel == nullptr) {
        return DEFAULT_LEVEL;
    }
    const char* pszEnd = pszLevel + strlen(pszLevel);
    int nLevel = 0;
    const auto result = std::from_chars(pszLevel, pszEnd, nLevel);
    return result.ec == std::errc() && result.ptr == pszEnd ? nLevel : DEFAULT_LEVEL;
}

const char* TextOf(const char* pszText) {
    return pszText == nullptr ? "" : pszText;
}

void AppendTime(std::string& strLine) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char szTime[64] = "";
    strftime(szTime, sizeof(szTime), "%Y-%m-%d %H:%M:%S", &local);
    char szMilliseconds[16] = "";
    snprintf(szMilliseconds, sizeof(szMilliseconds), ".%03d",
             static_cast<int>(now.tv_nsec / 1000000));
    strLine.append(szTime).append(szMilliseconds);
}

void AppendEscaped(std::string& strLine, const std::string& strText) {
    constexpr char DIGITS[] = "0123456789abcdef";
    for (const char c : strText) {
        const unsigned nByte = static_cast<unsigned char>(c);
        if (nByte >= 0x20 && nByte != 0x7f) {
            strLine += c;
        } else {
            strLine.append("\\x").append(1, DIGITS[nByte >> 4]).append(1, DIGITS[nByte & 0x0f]);
        }
    }
}

// A part before the message; never empty, so that a line's parts can be known by their place.
void AppendName(std::string& strLine, const char* pszName) {
    AppendEscaped(strLine, *pszName == '\0' ? "-" : pszName);
}

std::string LineOf(const LogRecord& record, va_list args) {
    std::string strMessage = CLogDebug::MessageOf(record, args);
    if (!strMessage.empty() && strMessage.back() == '\n') {
        strMessage.pop_back();
    }
    std::string strLine;
    strLine.reserve(strMessage.size() + 128);
    AppendTime(strLine);
    strLine.append(" L").append(std::to_string(record.nLevel)).append(" ");
    AppendName(strLine, record.pszSource);
    strLine += ' ';
    AppendName(strLine, record.pszFunction);
    strLine.append(":").append(std::to_string(record.nLine)).append(" ");
    AppendEscaped(strLine, strMessage);
    strLine += '\n';
    return strLine;
}

int Log(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
        const char* pszFormat, ...) __attribute__((format(printf, 5, 6)));

int Log(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
        const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    const int nResult =
        CLogDebug::Instance()->LogPrintV(nLevel, pszSource, pszFunction, nLine, pszFormat, args);
    va_end(args);
    return nResult;
}

// The digests stand below the log and cannot call it themselves.
void TellDigestCheck(const char* pszPath) {
    (void)Log(LEVEL_FAILURE, "framework/digest/DigestPair", "ChooseDigestPath", __LINE__,
              "[DigestPair] the digests of path [%s] are wrong here, OpenSSL's are in use",
              pszPath);
}

[[maybe_unused]] const bool g_bDigestFaultHandler = [] {
    utils::SetDigestFaultHandler(TellDigestCheck);
    return true;
}();

int CallSink(ILogSink& sink, const LogRecord& record, va_list args) {
    try {
        return sink.OnLog(record, args);
    } catch (const std::exception&) {
        return 0;
    }
}

}  // namespace

CLogDebug::CLogDebug() : m_nLevel(LevelFromEnvironment()) {}

CLogDebug* CLogDebug::Instance() {
    alignas(CLogDebug) static unsigned char s_place[sizeof(CLogDebug)];
    static CLogDebug* const s_pInstance = new (s_place) CLogDebug;
    return s_pInstance;
}

bool CLogDebug::CheckLogLevel(int nLevel, int) const {
    return nLevel >= m_nLevel;
}

int CLogDebug::LogPrintV(int nLevel, const char* pszSource, const char* pszFunction, int nLine,
                         const char* pszFormat, va_list args) {
    return Hand({nLevel, 0, pszSource, pszFunction, nLine, pszFormat}, args);
}

// The compiler has seen the format where the record was made.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string CLogDebug::MessageOf(const LogRecord& record, va_list args) {
    return CStr::stdformatV(record.pszFormat, args);
}
#pragma GCC diagnostic pop

void CLogDebug::SetLevel(int nLevel) {
    m_nLevel = nLevel;
}

void CLogDebug::SetSink(ILogSink* pSink) {
    m_sink.Set(pSink);
}

uint64_t CLogDebug::DroppedLines() const {
    return m_nDropped;
}

int CLogDebug::Hand(const LogRecord& record, va_list args) {
    const LogRecord safe = {record.nLevel,
                            record.nLogType,
                            TextOf(record.pszSource),
                            TextOf(record.pszFunction),
                            record.nLine,
                            TextOf(record.pszFormat)};
    const int nOldErrno = errno;  // a caller may log between a failure and its report
    const int nResult = m_sink.With([&](ILogSink* pSink) {
        return pSink == nullptr ? WriteLine(safe, args) : CallSink(*pSink, safe, args);
    });
    errno = nOldErrno;
    return nResult;
}

int CLogDebug::WriteLine(const LogRecord& record, va_list args) {
    try {
        const std::string strLine = LineOf(record, args);
        if (CFdWriter::Write(STDERR_FILENO, strLine)) {
            return static_cast<int>(strLine.size());
        }
    } catch (const std::exception&) {  // no memory: this line is lost
    }
    ++m_nDropped;
    return 0;
}
