// The texts of a run report: lines, blocks of counters, and the same counters as JSON members.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_REPORT_TEXT_RUNTEXT_H
#define HOST_REPORT_TEXT_RUNTEXT_H

#include <string>
#include <vector>

#include "host/account/RunCounters.h"
#include "host/account/RunFacts.h"
#include "host/base/Console.h"
#include "host/base/JsonWriter.h"
#include "host/cloud/CloudQuery.h"
#include "host/verdict/IVerdictSource.h"

namespace run_text {

// One line each, without a line feed.
std::string Heading(const Console& output, const PassInfo& pass);
std::string SummaryHeading(const Console& output, const RunEnd& end);
std::string QueueLine(const RunEnd& end);
std::string VerdictLine(const Console& output, const CloudQuery& query, const Verdict& verdict);
std::string QueryLine(const Console& output, const CloudQuery& query, const std::string& strFate);
std::string SkipLine(const Console& output, const std::string& strPath);

// The counters in lines, for people; dSeconds is how long it all took.
std::string Text(const Console& output, const RunCounters& counters, double dSeconds);

// What each pass counted, side by side.
std::string PassTable(const Console& output, const std::vector<PassResult>& passes);

// The counters as members of record.
JsonObject& AddCounters(JsonObject& record, const RunCounters& counters, double dSeconds);

}  // namespace run_text

#endif
