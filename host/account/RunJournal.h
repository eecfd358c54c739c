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
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/account/EventLedger.h"
#include "host/account/IRunListener.h"
#include "host/account/LaunchAudit.h"
#include "host/account/ProgramJudge.h"
#include "host/account/RunBooks.h"

class RunJournal {
public:
    // Of passes that ended, the first few are kept whole.
    static constexpr size_t PASSES_KEPT = 6;

    // bWatch: sensors count what they captured, and ProgramJudged follows from queries and skips,
    // which costs a look at the program, and its digest where the verdict on it is not known here.
    // pHolding: launches are held against the files that were started; must outlive it.
    RunJournal(const VerdictService& service, EventLedger::KnownMaker fnKnownMaker, bool bWatch,
               uint64_t nLargestBatch = 0, LaunchHolding* pHolding = nullptr);

    RunJournal(const RunJournal&) = delete;
    RunJournal& operator=(const RunJournal&) = delete;

    // Before the first event.
    void AddListener(IRunListener& listener) { m_listeners.push_back(&listener); }

    // What happened outside: of the sensors, the queue, the router, the module and the cloud.
    void Record(const RunEvent& event) {
        std::visit([this](const auto& happened) { Take(happened); }, event);
    }

    // nEarlier: messages that wait from earlier runs.
    // [lanes] The digest of a held file is there.
    void Digested(const FileVersion& version, const ProgramDigest& digest);
    // [any] Somebody has hashed strPath; what counts is the module's thread.
    void Hashed(const std::string& strPath, const struct stat& status, const std::string& strKey);
    void Begin(const std::string& strModule, uint64_t nEarlier);
    void BeginPass(const PassInfo& pass);
    void EndPass(bool bDrained);
    void Progress(const std::string& strDoing);
    void ShowBalance();
    void End(const RunEnd& end);

    // bFinal: the module has stopped; files are examined then for what has no outcome.
    Balance CurrentBalance(bool bFinal) const;
    bool HasEnded() const { return m_bEnded; }
    RunCounters PassCounters() const { return m_books.Pass(); }

private:
    using Clock = RunCounters::Clock;

    template <class Event>
    void Take(const Event& event) {
        m_books.Count(event);
        Count(event);
        Publish(event);
    }
    // The books first, for all of it: what a listener does must not keep anything from them.
    void Take(const QueryReceived& event);
    void Take(const ModuleNoted& event);
    void Take(const ModuleLogged& event);

    template <class Event>
    void Count(const Event&) {}
    void Count(const LaunchReported& event);
    void Count(const LaunchUnresolved& event);
    void Count(const BatchSent& event);
    void Count(const BatchEnded& event);

    void Judge(const std::optional<EndedQuery>& ended, const Verdict& moduleVerdict, bool bCached,
               const std::function<Judgement(const std::optional<ExpectedQuery>&)>& fnJudge);
    void Announce(const Judgement& judgement, bool bCached);
    static bool IsDoubtful(const std::optional<EndedQuery>& ended);
    std::string TrueName(const std::string& strPath) const;
    void Publish(const RunEvent& event);
    void AnnounceDropped(bool bLast);
    void AnnounceDropped(DropReason eReason, uint64_t nTotal, uint64_t& nAnnounced);

    std::vector<IRunListener*> m_listeners;
    ProgramJudge m_judge;
    EventLedger m_ledger;
    RunBooks m_books;
    std::atomic<std::thread::id> m_moduleThread{};  // that analyses messages
    const LaunchHolding* const m_pHolding;
    std::unique_ptr<LaunchAudit> m_pAudit;  // null without a holding
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
};

#endif
