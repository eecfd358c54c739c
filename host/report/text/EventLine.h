// The lines of single events of a run, and the words that records have for them.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_REPORT_TEXT_EVENTLINE_H
#define HOST_REPORT_TEXT_EVENTLINE_H

#include <string>

#include "host/account/RunEvents.h"
#include "host/base/Console.h"
#include "host/report/text/VerdictRow.h"

namespace event_line {

std::string Queue(const Console& output, const QueueLoad& load);
std::string Centre(const CentreRecord& record);
std::string Input(const InputUnusable& input);
std::string ModuleLog(const ModuleLine& line);
// Events that were dropped, as a row.
VerdictRow Dropped(const EventsDropped& dropped);
std::string Progress(const std::string& strDoing, const RunCounters& counters);

// What became of a query: "answered", "known", ...
const char* FateWord(QueryFate eFate);

}  // namespace event_line

#endif
