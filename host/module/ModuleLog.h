// The module's log as the host sees it: an observer gets failures as lines, and the records that
// say what became of an event, which are known by their format, before any argument is put into
// it.
//
// Threads: any. Errors: nothing throws.
#ifndef HOST_MODULE_MODULELOG_H
#define HOST_MODULE_MODULELOG_H

#include <string>

#include "framework/log/CLogDebug.h"
#include "host/module/ExpectedQueries.h"

enum ModuleNote {
    NOTE_ANALYSED,     // the analysis of a message begins, on this thread
    NOTE_CACHED,       // an event was skipped, its program's verdict is known
    NOTE_STAT_FAILED,  // an event was skipped, its file's status cannot be had
    NOTE_UNREADABLE,   // an event was skipped, its program cannot be read
    NOTE_NOT_SENT,     // a query could not be sent
};

struct ModuleRecord {
    ModuleNote eNote = NOTE_ANALYSED;
    std::string strText;  // the file that it names, or the message; "" where it has none
    ExpectedKind eExpected = EXPECTED_NONE;  // the expected query that this ends
    std::string strOperation = {};           // of EXPECTED_FILE
    bool bNamesProgram = false;              // strText is the acting program
};

struct ModuleLine {
    int nLevel = 0;
    std::string strText;      // as the module wrote it, without the line feed
    std::string strFunction;  // of the module; "" when it names none
};

class IModuleLogObserver {
public:
    virtual ~IModuleLogObserver() = default;
    // [any] A record that says what became of an event.
    virtual void OnModuleNote(const ModuleRecord& record) = 0;
    // [any] A record of the level that is shown, or above.
    virtual void OnModuleLine(const ModuleLine& line) = 0;
};

class ModuleLog : public ILogSink {
public:
    // Takes the process's log; records of nShowLevel and above are shown as lines.
    ModuleLog(IModuleLogObserver& observer, int nShowLevel);
    ~ModuleLog() override;  // gives the log back; no module may be running

    ModuleLog(const ModuleLog&) = delete;
    ModuleLog& operator=(const ModuleLog&) = delete;

    int OnLog(const LogRecord& record, va_list args) override;

private:
    void Note(const LogRecord& record, va_list args);
    void Show(const LogRecord& record, va_list args);

    IModuleLogObserver& m_observer;
    const int m_nShowLevel;
};

#endif
