// The numbers of a run: what the sensors captured, what was taken and delivered, what the module
// made of it. What becomes of each event is the ledger's.
//
// Threads: any; one mutex. Errors: none but std::bad_alloc.
#ifndef HOST_ACCOUNT_RUNBOOKS_H
#define HOST_ACCOUNT_RUNBOOKS_H

#include <cstdint>

#include "host/account/Balance.h"
#include "host/account/RunCounters.h"
#include "host/account/RunEvents.h"
#include "host/base/Mutex.h"

class RunBooks {
public:
    using Clock = RunCounters::Clock;

    RunCounters EndPass();  // of the pass

    template <class Event>
    void Count(const Event&) {}  // of what no book is kept
    void Count(const InputUnusable& event);
    void Count(const LaunchCounters& counters);
    void Count(const FileCounters& counters);
    void Count(const LaunchChanged& event);
    void Count(const BatchTaken& event);
    void Count(const BatchEnded& event);
    void Count(const BatchUnsent& event);
    void Count(const QueryReceived& event);
    void Count(const ModuleNoted& event);
    void Count(const CentreRecord& event);
    void Count(const ProgramJudged& event);

    RunCounters Pass() const;
    // What the module did and the sensors captured; or instead of that the input, and what of it is
    // not sent, for which the balance has the ledger's numbers.
    void Fill(Balance& balance, bool bWatch) const;

private:
    mutable Mutex m_mutex;
    RunCounters m_counters TEV_GUARDED_BY(m_mutex);  // of the pass
    RunCounters m_total TEV_GUARDED_BY(m_mutex);     // of the passes before
    LaunchCounters m_launches TEV_GUARDED_BY(m_mutex);
    FileCounters m_files TEV_GUARDED_BY(m_mutex);
    // Events that the sources say they gave, in all and before this pass; and those taken.
    uint64_t m_nInput TEV_GUARDED_BY(m_mutex) = 0;
    uint64_t m_nInputBefore TEV_GUARDED_BY(m_mutex) = 0;
    uint64_t m_nTaken TEV_GUARDED_BY(m_mutex) = 0;
    uint64_t m_nUnsent TEV_GUARDED_BY(m_mutex) = 0;  // of these: the run ended before
};

#endif
