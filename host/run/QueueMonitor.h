// The module's queue during a run: room in it for new messages, its state as the journal has it,
// and its depth as the database has it.
//
// Threads: the limiter's from any; the rest on the control thread.
// Errors: a queue that cannot be read leaves the count as it is.
// Ownership: the journal must outlive it.
#ifndef HOST_RUN_QUEUEMONITOR_H
#define HOST_RUN_QUEUEMONITOR_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/account/RunJournal.h"
#include "host/module/QueueLimiter.h"

class QueueMonitor {
public:
    // strFile: the module's channel database.
    QueueMonitor(std::string strFile, const QueueLimits& limits, RunJournal& journal);

    // Counts what waits before the module starts.
    void Begin();
    // Announces what changed, and sets the count right now and then: messages that were not stored,
    // or that were analysed more than once, would falsify it.
    void Turn();

    QueueLimiter& Limiter() { return m_limiter; }
    uint64_t Waiting() const { return m_limiter.Load().nRows; }
    // As the database has it; nothing when it cannot be read.
    std::optional<uint64_t> Depth() const;
    const std::string& File() const { return m_strFile; }

private:
    void CountAnalysed();

    const std::string m_strFile;
    RunJournal& m_journal;
    QueueLimiter m_limiter;
    uint64_t m_nAnalysed = 0;                           // of the pass, as far as the limiter knows
    std::chrono::steady_clock::time_point m_corrected;  // when the database was looked into
};

#endif
