#include "host/ModuleLog.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

#include "framework/base/CStr.h"
#include "host/Text.h"

namespace {

constexpr int LEVEL_FAILURE = 4;
constexpr int LEVEL_ALL = 1;

struct KnownFormat {
    std::string_view strFormat;  // without a line feed at its end
    ModuleNote eNote;
    bool bHasPath;  // the first argument is a path
    bool bProgram;  // that of the hashed program
};

constexpr KnownFormat KNOWN_FORMATS[] = {
    {"handler===> %s", NOTE_ANALYSED, false, false},
    {"[CTevPsMonitor] %s in cacho, skip [lanuch]", NOTE_CACHED, true, true},
    {"[CTevPsMonitor] stat faid [%s]", NOTE_NO_STAT, true, false},
    {"[CTevPsMonitor] calc md5 faid! [%s][lanuch]", NOTE_NO_HASH, true, false},
    {"[CTevFsMonitor] %s in cacho, skip [%s]", NOTE_CACHED, true, false},
    {"[CTevFsMonitor] stat faid [%s]", NOTE_NO_STAT, true, false},
    {"[CTevFsMonitor] calc exepath md5 faid! [%s][%s]", NOTE_NO_HASH, true, false},
    {"[CTevFsMonitor] calc md5 faid! [%s]", NOTE_NO_HASH, true, false},
    {"[AddAutoRunsHandler] %s in cacho, skip [%s]", NOTE_CACHED, true, false},
    {"[AddAutoRunsHandler] calc md5 faid! [%s]", NOTE_NO_HASH, true, false},
    {"[CTevCloudInterface] : ipc fail.", NOTE_NOT_SENT, false, false},
};

}  // namespace

ModuleLog::ModuleLog(Output& output, IModuleLogObserver& observer, int nShowLevel)
    : m_output(output), m_observer(observer), m_nShowLevel(nShowLevel) {
    CLogDebug::Instance()->SetSink(this);
    CLogDebug::Instance()->SetLevel(std::min(nShowLevel, LEVEL_ALL));
}

ModuleLog::~ModuleLog() {
    CLogDebug::Instance()->SetSink(nullptr);
    CLogDebug::Instance()->SetLevel(LEVEL_FAILURE);
}

int ModuleLog::OnLog(const LogRecord& record, va_list args) {
    va_list noteArgs;
    va_copy(noteArgs, args);
    try {
        Note(record, noteArgs);
        if (record.nLevel >= m_nShowLevel) {
            Show(record, args);
        }
    } catch (const std::exception&) {
        // Out of memory: the record is lost, the module goes on.
    }
    va_end(noteArgs);
    return 1;
}

void ModuleLog::Note(const LogRecord& record, va_list args) {
    std::string_view strFormat = record.pszFormat;
    if (!strFormat.empty() && strFormat.back() == '\n') {
        strFormat.remove_suffix(1);
    }
    for (const KnownFormat& known : KNOWN_FORMATS) {
        if (known.strFormat == strFormat) {
            const char* const pszPath = known.bHasPath ? va_arg(args, const char*) : "";
            m_observer.OnModuleNote(known.eNote, pszPath == nullptr ? "" : pszPath, known.bProgram);
            return;
        }
    }
}

void ModuleLog::Show(const LogRecord& record, va_list args) {
    std::string strMessage = CLogDebug::MessageOf(record, args);
    if (!strMessage.empty() && strMessage.back() == '\n') {
        strMessage.pop_back();
    }
    std::string strLine = text::ClockNow() + CStr::stdformat("  module L%d  ", record.nLevel) +
                          text::ForTerminal(strMessage);
    if (*record.pszFunction != '\0') {
        strLine += std::string("  (") + record.pszFunction + ")";
    }
    m_output.Error(strLine);
}
