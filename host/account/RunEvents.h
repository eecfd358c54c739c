// What happens in a run, as one typed stream: the journal keeps its books by it and hands it on to
// everyone who shows or keeps something.
//
// What an event refers to is there for the call only.
#ifndef HOST_ACCOUNT_RUNEVENTS_H
#define HOST_ACCOUNT_RUNEVENTS_H

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/account/Balance.h"
#include "host/account/RunFacts.h"
#include "host/account/RunLaunchEvents.h"
#include "host/cloud/CloudQuery.h"
#include "host/event/FileOperation.h"
#include "host/event/IEventSource.h"
#include "host/module/ModuleLog.h"
#include "host/module/QueueLimiter.h"
#include "host/verdict/IVerdictSource.h"

// The module is loaded and not started.
struct RunBegun {
    const std::string& strModule;
};

struct PassBegun {
    const PassInfo& pass;
};

struct PassEnded {
    const PassInfo& pass;
    const PassResult& result;
    bool bDrained;
};

// Now and then, with what the run is at.
struct RunProgressed {
    const std::string& strDoing;
};

// All input is delivered, and the run goes on until a signal ends it.
struct InputDelivered {};

// A wait for the queue to empty has seen no change of it for a while.
struct QueueStalled {};

// Messages wait, and the module has shown no activity for so long that the service manager gets no
// more signs of life.
struct ModuleSilent {};

// The user asked for the balance.
struct BalanceRequested {
    const Balance& balance;
};

// The module has stopped; what is announced from now on is the last.
struct RunEnding {};

struct RunEnded {
    const RunEnd& end;
    const PassResult& total;
    const std::vector<PassResult>& passes;  // the first few
    const Balance& balance;
};

// A piece of input that no message could be made of.
struct InputUnusable {
    const std::string& strSource;
    uint64_t nNumber;  // its line, 0 when it has none
    const std::string& strReason;
};

// It was made part of a message.
struct FileOperationReported {
    const FileOperation& operation;
};

// The kernel's queue of file operations was full.
struct FileQueueOverflowed {
    uint64_t nTimes;
    uint64_t nTotal;  // since the start
};

// What a sensor says of itself or of what it cannot see.
struct SensorNotice {
    const std::string& strText;
};

// A message was taken from its source; it may wait for room in the queue.
struct BatchTaken {
    const EventBatch& batch;
    uint64_t nSourceEvents;  // that the source has given in this pass, by its own count
};

// The message is on its way to the module, or is refused before that.
struct BatchSent {
    const EventBatch& batch;
};

// It was delivered, or refused. That the module stored it is seen later: by its MessageAnalysed, or
// by EventsDropped.
struct BatchEnded {
    const EventBatch& batch;  // its body may be gone
    uint32_t nResult;         // 0, or the router's or the queue limit's code
};

// The run ended before the message could be sent.
struct BatchUnsent {
    const EventBatch& batch;
};

enum DropReason { DROP_REFUSED, DROP_NOT_STORED };

// Events that never came into the module's queue.
struct EventsDropped {
    DropReason eReason;
    uint64_t nEvents;
    uint64_t nTotal;  // since the start
};

struct QueueChanged {
    const QueueLoad& load;
};

struct QueryReceived {
    const CloudQuery& query;
    QueryFate eFate;
    const Verdict& verdict;
    // Of a launch: on another content than the one that was started, or on what may be another.
    bool bChanged = false;
};

// The answer reached the module, or did not.
struct AnswerEnded {
    const std::string& strKey;
    int nLevel;
    bool bDelivered;
};

struct ModuleNoted {
    const ModuleRecord& note;
    bool bChanged = false;  // likewise
};

// A line of the module's log that is shown.
struct ModuleLogged {
    const ModuleLine& line;
};

// A line that the module printed on its standard output.
struct ModulePrinted {
    const std::string& strLine;
};

// The module has begun to analyse a message.
struct MessageAnalysed {
    const AnalysedMessage& message;
};

// A program was judged, or its known verdict came up again.
struct ProgramJudged {
    const std::string& strWhat;     // "launch", "FileCreate", ...
    const std::string& strSubject;  // the program started or the file changed
    const std::string& strProgram;  // that the verdict is on
    const std::string& strBy;       // the program that did it, "" when nobody knows
    const Verdict& verdict;
    bool bCached;  // the module skipped it, the verdict is known
};

struct CentreRecord {
    int64_t nMsgType;
    uint64_t nBytes;
};

using RunEvent =
    std::variant<RunBegun, PassBegun, PassEnded, RunProgressed, InputDelivered, QueueStalled,
                 ModuleSilent, BalanceRequested, RunEnding, RunEnded, InputUnusable, LaunchReported,
                 LaunchUnresolved, LaunchRepeated, LaunchesLost, LaunchCounters,
                 FileOperationReported, FileQueueOverflowed, FileCounters, SensorNotice, BatchTaken,
                 BatchSent, BatchEnded, BatchUnsent, EventsDropped, QueueChanged, QueryReceived,
                 AnswerEnded, ModuleNoted, ModuleLogged, ModulePrinted, MessageAnalysed,
                 ProgramJudged, LaunchChanged, CentreRecord>;

#endif
