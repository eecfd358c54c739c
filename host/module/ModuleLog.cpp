#include "host/module/ModuleLog.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

#include "host/base/ModuleFacts.h"

namespace {

constexpr int LEVEL_FAILURE = 4;
constexpr int LEVEL_ALL = 1;

// What a record's texts are.
enum Texts {
    TEXTS_NONE,
    TEXTS_FILE,               // the file concerned; the message of NOTE_ANALYSED
    TEXTS_FILE_OPERATION,     // likewise, then the operation
    TEXTS_PROGRAM,            // the acting program
    TEXTS_PROGRAM_OPERATION,  // likewise, then the operation
};

struct KnownFormat {
    std::string_view strFormat;  // without a line feed at its end
    ModuleNote eNote;
    ExpectedKind eExpected;
    Texts eTexts;
};

constexpr KnownFormat KNOWN_FORMATS[] = {
    // clang-format off
    {module_facts::LOG_ANALYSED, NOTE_ANALYSED, EXPECTED_NONE, TEXTS_FILE},
    {module_facts::LOG_LAUNCH_CACHED, NOTE_CACHED, EXPECTED_LAUNCH, TEXTS_FILE},
    {module_facts::LOG_LAUNCH_NO_STAT, NOTE_STAT_FAILED, EXPECTED_LAUNCH, TEXTS_FILE},
    {module_facts::LOG_LAUNCH_NO_HASH, NOTE_UNREADABLE, EXPECTED_LAUNCH, TEXTS_FILE},
    {module_facts::LOG_FILE_CACHED, NOTE_CACHED, EXPECTED_FILE, TEXTS_FILE_OPERATION},
    {module_facts::LOG_FILE_NO_STAT, NOTE_STAT_FAILED, EXPECTED_PIPE, TEXTS_FILE},
    {module_facts::LOG_FILE_NO_HASH, NOTE_UNREADABLE, EXPECTED_FILE,
     TEXTS_PROGRAM_OPERATION},
    {module_facts::LOG_PIPE_NO_HASH, NOTE_UNREADABLE, EXPECTED_PIPE, TEXTS_FILE},
    {module_facts::LOG_UNIT_CACHED, NOTE_CACHED, EXPECTED_UNIT, TEXTS_FILE},
    {module_facts::LOG_UNIT_NO_HASH, NOTE_UNREADABLE, EXPECTED_UNIT, TEXTS_PROGRAM},
    {module_facts::LOG_NOT_SENT, NOTE_NOT_SENT, EXPECTED_NONE, TEXTS_NONE},
    // clang-format on
};

}  // namespace

ModuleLog::ModuleLog(IModuleLogObserver& observer, int nShowLevel)
    : m_observer(observer), m_nShowLevel(nShowLevel) {
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
        if (known.strFormat != strFormat) {
            continue;
        }
        ModuleRecord note;
        note.eNote = known.eNote;
        note.eExpected = known.eExpected;
        if (known.eTexts != TEXTS_NONE) {
            note.strText = va_arg(args, const char*);
        }
        note.bNamesProgram =
            known.eTexts == TEXTS_PROGRAM || known.eTexts == TEXTS_PROGRAM_OPERATION;
        if (known.eTexts == TEXTS_FILE_OPERATION || known.eTexts == TEXTS_PROGRAM_OPERATION) {
            note.strOperation = va_arg(args, const char*);
        }
        // One text for two expected queries: only the function distinguishes them.
        if (note.eNote == NOTE_STAT_FAILED &&
            std::strcmp(record.pszFunction, module_facts::FUNCTION_MODIFY) == 0) {
            note.eExpected = EXPECTED_FILE;
            note.strOperation = module_facts::OPERATION_WRITE;
        }
        m_observer.OnModuleNote(note);
        return;
    }
}

void ModuleLog::Show(const LogRecord& record, va_list args) {
    ModuleLine line;
    line.nLevel = record.nLevel;
    line.strText = CLogDebug::MessageOf(record, args);
    if (!line.strText.empty() && line.strText.back() == '\n') {
        line.strText.pop_back();
    }
    line.strFunction = record.pszFunction;
    m_observer.OnModuleLine(line);
}
