// The balance of a run: what the kernel or a recording had, what became of each of it, and what
// does not add up.
//
// Threads: any; no state. Errors: none.
#ifndef HOST_ACCOUNT_BALANCE_H
#define HOST_ACCOUNT_BALANCE_H

#include <cstdint>
#include <optional>

#include "host/account/EventLedger.h"
#include "host/account/RunCounters.h"
#include "host/event/FileOperation.h"
#include "host/kernel/launch/Launch.h"

// All numbers of a balance: what the kernel had, and what became of each of it.
struct Balance {
    LaunchCounters launches;
    FileCounters files;
    LedgerState events;
    RunCounters module;
    // Events in a recording or of a walk; nothing where sensors count what they captured.
    std::optional<uint64_t> input;
    uint64_t nUnsent = 0;  // of these: waiting for room in the queue, or the run ended before
    // Events that may be between a source and the module at one moment.
    uint64_t nLargestBatch = 0;
    bool bFinal = false;  // nothing is on its way any more

    // Programs, scripts and file operations that were reported.
    uint64_t Reported() const {
        return input.value_or(launches.nReported + launches.nScripts + launches.nAgain +
                              files.nReported);
    }
    // Of these: in a batch that is not full yet.
    uint64_t Batched() const { return launches.nBatched + files.nBatched; }
    // Of the events sent: those that were not refused. Some of them may not have arrived yet.
    uint64_t Delivered() const { return events.nSent - events.nRefused; }
    // Queries that no answer is due for or was given to.
    uint64_t Outstanding() const;
    // Launches, file operations, events and queries that no cause was found for.
    uint64_t Unexplained() const;
};

#endif
