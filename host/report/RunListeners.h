// Who shows and keeps what happens in a run, as the command line asks.
//
// Threads: the control thread. Errors: none but std::bad_alloc.
// Ownership: the caller's; console, options and journal must outlive the listeners.
#ifndef HOST_REPORT_RUNLISTENERS_H
#define HOST_REPORT_RUNLISTENERS_H

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/account/RunJournal.h"
#include "host/base/Console.h"
#include "host/base/HostOptions.h"

using RunListeners = std::vector<std::unique_ptr<IRunListener>>;

struct WatchOptions {
    std::shared_ptr<FILE> pRecord;  // gets every message, one a line; null for none
    std::string strMetricsFile;     // absolute; "" for none
    std::chrono::milliseconds metricsInterval{10000};
    bool bPlain = false;  // lines also on a terminal
};

RunListeners MakeRunListeners(Console& output, const HostOptions& options,
                              const RunJournal& journal);
RunListeners MakeWatchListeners(Console& output, const HostOptions& options,
                                const RunJournal& journal, const WatchOptions& watch);

#endif
