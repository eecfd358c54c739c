// The books of a run. It receives all that happens as one typed stream, counts it, follows every
// event to its end in the ledger, and hands the stream on to its listeners, with what follows from
// it: programs judged, events dropped.
//
// Threads: Record, CurrentBalance, HasEnded and PassCounters from any; the rest on the control
//   thread. No lock is held while a listener is called.
// Errors: nothing throws but std::bad_alloc and what a listener throws.
// Ownership: the service and the listeners must outlive it.
#ifndef HOST_ACCOUNT_RUNJOURNAL_H
#define HOST_ACCOUNT_RUNJOURNAL_H

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/account/EventLedger.h"
#include "host/account/IRunListener.h"
#include "host/account/ProgramJudge.h"
#include "host/base/Mutex.h"

class RunJournal {
public:
    // Of passes that ended, the first few are kept whole.
    static constexpr size_t PASSES_KEPT = 6;

    // bWatch: sensors count what they captured, and ProgramJudged follows from queries and skips,
    // which costs a look at the program, and its digest where the verdict on it is not known here.
    RunJournal(const VerdictService& service, EventLedger::KnownMaker fnKnownMaker, bool bWatch,
               uint64_t nLargestBatch = 0);

    RunJournal(const RunJournal&) = delete;
    RunJournal& operator=(const RunJournal&) = delete;

    // Before the first event.
    void AddListener(IRunListener& listener) { m_listeners.push_back(&listener); }

    // What happened outside: of the sensors, the queue, the router, the module and the cloud.
    void Record(const RunEvent& event) {
        std::visit([this](const auto& happened) { Take(happened); }, event);
    }

    // nEarlier: messages that wait from earlier runs.
    void Begin(const std::string& strModule, uint64_t nEarlier);
    void BeginPass(const PassInfo& pass);
    void EndPass(bool bDrained);
    void Progress(const std::string& strDoing);
    void ShowBalance();
    void End(const RunEnd& end);

    // bFinal: the module has stopped; files are examined then for what has no outcome.
    Balance CurrentBalance(bool bFinal) const;
    bool HasEnded() const { return m_bEnded; }
    RunCounters PassCounters() const;

private:
    using Clock = RunCounters::Clock;

    template <class Event>
    void Take(const Event& event) {
        Count(event);
        Publish(event);
    }
    // The books first, for all of it: what a listener does must not keep anything from them.
    void Take(const QueryReceived& event);
    void Take(const ModuleNoted& event);

    template <class Event>
    void Count(const Event&) {}  // of what no book is kept
    void Count(const InputUnusable& event);
    void Count(const LaunchCounters& counters);
    void Count(const FileCounters& counters);
    void Count(const LaunchReported& event);
    void Count(const BatchTaken& event);
    void Count(const BatchSent& event);
    void Count(const BatchEnded& event);
    void Count(const BatchUnsent& event);
    void Count(const QueryReceived& event);
    void Count(const ModuleNoted& event);
    void Count(const CentreRecord& event);

    void Announce(const Judgement& judgement, bool bCached);
    void Publish(const RunEvent& event);
    RunCounters TotalCounters() const;
    void AnnounceDropped(bool bLast);
    void AnnounceDropped(DropReason eReason, uint64_t nTotal, uint64_t& nAnnounced);

    std::vector<IRunListener*> m_listeners;
    ProgramJudge m_judge;
    EventLedger m_ledger;
    const bool m_bWatch;
    const uint64_t m_nLargestBatch;
    std::atomic<bool> m_bEnded{false};
    // Of the control thread.
    PassInfo m_pass;
    Clock::time_point m_passBegun;
    const Clock::time_point m_runBegun;
    std::vector<PassResult> m_passes;
    uint64_t m_nRefusedAnnounced = 0;
    uint64_t m_nNotStoredAnnounced = 0;
    std::chrono::steady_clock::time_point m_announced;
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
