// What a run is at a moment: its passes, and how it ended.
#ifndef HOST_ACCOUNT_RUNFACTS_H
#define HOST_ACCOUNT_RUNFACTS_H

#include <cstdint>
#include <optional>
#include <string>

#include "host/account/RunCounters.h"

struct PassInfo {
    int nPass = 1;
    int nPasses = 1;
    std::string strUnit;  // what a batch is made of: "line" of a recording, "batch" of a walk
    std::string strName;  // the source
};

struct PassResult {
    RunCounters counters;
    double dSeconds = 0;
};

struct RunEnd {
    std::optional<uint64_t> queueDepth;  // nothing when the queue could not be read
    bool bDrained = false;
    int nSignal = 0;  // the signal that ended the run, or 0
};

#endif
