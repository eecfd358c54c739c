// Waits until the module has analysed everything and every query is answered.
//
// Threads: the control thread. Errors: DRAIN_UNREADABLE for a queue that cannot be read.
#ifndef HOST_RUN_DRAINWAIT_H
#define HOST_RUN_DRAINWAIT_H

#include <functional>
#include <string>

#include "host/account/RunJournal.h"
#include "host/run/QueueMonitor.h"
#include "host/run/RunControl.h"
#include "host/transport/Router.h"

enum DrainResult {
    DRAINED,
    DRAIN_ENDED,       // the run had to end before
    DRAIN_UNREADABLE,  // several looks at the queue in a row found nothing to read
};

// fnTurn is called between two looks. A queue that stands still for long is recorded.
DrainResult WaitUntilDrained(const Router& router, const QueueMonitor& queue, RunJournal& journal,
                             const RunControl& control,
                             const std::function<void(const std::string& strDoing)>& fnTurn);

#endif
