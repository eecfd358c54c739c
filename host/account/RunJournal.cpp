#include "host/account/RunJournal.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <optional>
#include <utility>

#include "host/base/ModuleFacts.h"
#include "host/verdict/VerdictLevel.h"

namespace {

constexpr std::chrono::seconds BETWEEN_DROPS(1);  // announced together

uint64_t FileSize(const std::string& strPath) {
    struct stat status = {};
    const bool bKnown = stat(strPath.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return bKnown ? static_cast<uint64_t>(status.st_size) : 0;
}

ModuleOutcome OutcomeOf(const CloudQuery& query) {
    ModuleOutcome outcome;
    outcome.eKind = expected_queries::KindOfEvent(query.strEvent, outcome.strOperation);
    outcome.strName = query.strPath;
    outcome.bNamesProgram = outcome.eKind == EXPECTED_PIPE || outcome.eKind == EXPECTED_UNIT;
    return outcome;
}

ModuleOutcome OutcomeOf(const ModuleRecord& note) {
    ModuleOutcome outcome;
    outcome.eEnd = note.eNote == NOTE_CACHED       ? OUTCOME_CACHED
                   : note.eNote == NOTE_UNREADABLE ? OUTCOME_UNREADABLE
                                                   : OUTCOME_STAT_FAILED;
    outcome.eKind = note.eExpected;
    outcome.strName = note.strText;
    outcome.strOperation = note.strOperation;
    outcome.bNamesProgram = note.bNamesProgram;
    return outcome;
}

}  // namespace

RunJournal::RunJournal(const VerdictService& service, EventLedger::KnownMaker fnKnownMaker,
                       bool bWatch, uint64_t nLargestBatch)
    : m_judge(service),
      m_ledger(std::move(fnKnownMaker)),
      m_bWatch(bWatch),
      m_nLargestBatch(nLargestBatch),
      m_passBegun(Clock::now()),
      m_runBegun(m_passBegun) {}

void RunJournal::Publish(const RunEvent& event) {
    const auto tmWhen = static_cast<int64_t>(time(nullptr));
    for (IRunListener* pListener : m_listeners) {
        pListener->OnEvent(event, tmWhen);
    }
}

void RunJournal::Begin(const std::string& strModule, uint64_t nEarlier) {
    m_ledger.SetEarlier(nEarlier);
    Publish(RunBegun{strModule});
}

void RunJournal::BeginPass(const PassInfo& pass) {
    m_pass = pass;
    m_passBegun = Clock::now();
    {
        const MutexLock lock(m_mutex);
        m_nInputBefore = m_nInput;
    }
    Publish(PassBegun{m_pass});
}

void RunJournal::EndPass(bool bDrained) {
    PassResult result;
    {
        const MutexLock lock(m_mutex);
        result.counters = m_counters;
        m_total.Add(m_counters);
        m_counters = RunCounters();
    }
    result.dSeconds = std::chrono::duration<double>(Clock::now() - m_passBegun).count();
    if (m_passes.size() < PASSES_KEPT) {
        m_passes.push_back(result);
    }
    Publish(PassEnded{m_pass, result, bDrained});
}

void RunJournal::Progress(const std::string& strDoing) {
    AnnounceDropped(false);
    Publish(RunProgressed{strDoing});
}

void RunJournal::ShowBalance() {
    const Balance balance = CurrentBalance(false);
    Publish(BalanceRequested{balance});
}

void RunJournal::End(const RunEnd& end) {
    Publish(RunEnding{});
    m_ledger.End(end.queueDepth.value_or(std::numeric_limits<uint64_t>::max()));
    m_bEnded = true;
    AnnounceDropped(true);
    const Balance balance = CurrentBalance(true);
    const PassResult total = {balance.module,
                              std::chrono::duration<double>(Clock::now() - m_runBegun).count()};
    Publish(RunEnded{end, total, m_passes, balance});
}

Balance RunJournal::CurrentBalance(bool bFinal) const {
    Balance balance;
    balance.bFinal = bFinal;
    balance.nLargestBatch = m_nLargestBatch;
    balance.module = TotalCounters();
    balance.events = bFinal ? m_ledger.FinalState() : m_ledger.State();
    const MutexLock lock(m_mutex);
    balance.launches = m_launches;
    balance.files = m_files;
    if (!m_bWatch) {
        balance.input = m_nInput;
        balance.nUnsent = bFinal ? m_nUnsent : m_nTaken - std::min(m_nTaken, balance.events.nSent);
    }
    return balance;
}

RunCounters RunJournal::PassCounters() const {
    const MutexLock lock(m_mutex);
    return m_counters;
}

RunCounters RunJournal::TotalCounters() const {
    const MutexLock lock(m_mutex);
    RunCounters total = m_total;
    total.Add(m_counters);
    return total;
}

// What was captured and reported, and never came into the module's queue.
void RunJournal::AnnounceDropped(bool bLast) {
    const auto now = std::chrono::steady_clock::now();
    if (!bLast && now < m_announced + BETWEEN_DROPS) {
        return;
    }
    const LedgerState events = m_ledger.State();
    if (events.nRefused > m_nRefusedAnnounced || events.nNotStored > m_nNotStoredAnnounced) {
        m_announced = now;
    }
    AnnounceDropped(DROP_REFUSED, events.nRefused, m_nRefusedAnnounced);
    AnnounceDropped(DROP_NOT_STORED, events.nNotStored, m_nNotStoredAnnounced);
}

void RunJournal::AnnounceDropped(DropReason eReason, uint64_t nTotal, uint64_t& nAnnounced) {
    if (nTotal > nAnnounced) {
        const uint64_t nNew = nTotal - std::exchange(nAnnounced, nTotal);
        Publish(EventsDropped{eReason, nNew, nTotal});
    }
}

void RunJournal::Count(const InputUnusable&) {
    const MutexLock lock(m_mutex);
    ++m_counters.nUnusable;
}

void RunJournal::Count(const LaunchCounters& counters) {
    const MutexLock lock(m_mutex);
    m_launches = counters;
}

void RunJournal::Count(const FileCounters& counters) {
    const MutexLock lock(m_mutex);
    m_files = counters;
}

void RunJournal::Count(const LaunchReported& event) {
    m_judge.Note(event.launch);
}

void RunJournal::Count(const BatchTaken& event) {
    const MutexLock lock(m_mutex);
    m_nInput = m_nInputBefore + event.nSourceEvents;
    m_nTaken += event.batch.nEvents;
}

void RunJournal::Count(const BatchSent& event) {
    const EventBatch& batch = event.batch;
    m_ledger.Report(batch.nNumber, batch.strBody, batch.nEvents, batch.nCopies);
}

void RunJournal::Count(const BatchUnsent& event) {
    const MutexLock lock(m_mutex);
    m_nUnsent += event.batch.nEvents;
    ++m_counters.nNotDelivered;
}

void RunJournal::Count(const BatchEnded& event) {
    if (event.nResult != 0) {
        m_ledger.Refuse(event.batch.nNumber);
    }
    const MutexLock lock(m_mutex);
    m_counters.CountDelivery(event.batch, event.nResult == 0);
}

void RunJournal::Count(const QueryReceived& event) {
    const CloudQuery& query = event.query;
    const bool bHashed = query.strFunc == module_facts::CONTEXT_LAUNCHES ||
                         query.strFunc == module_facts::FUNC_MAKER;
    const uint64_t nBytes = bHashed ? FileSize(query.strPath) : 0;
    const MutexLock lock(m_mutex);
    m_counters.CountQuery(event.eFate, event.verdict);
    m_counters.nHashedBytes += nBytes;
    m_counters.lastWork = Clock::now();
}

void RunJournal::Count(const ModuleNoted& event) {
    const ModuleNote eNote = event.note.eNote;
    const bool bHashed = eNote == NOTE_CACHED && event.note.eExpected == EXPECTED_LAUNCH;
    const uint64_t nBytes = bHashed ? FileSize(event.note.strText) : 0;
    const MutexLock lock(m_mutex);
    m_counters.CountNote(eNote);
    m_counters.nHashedBytes += nBytes;
    m_counters.lastWork = Clock::now();
    if (!m_counters.firstWork) {
        m_counters.firstWork = m_counters.lastWork;
    }
}

void RunJournal::Count(const CentreRecord&) {
    const MutexLock lock(m_mutex);
    ++m_counters.nCentre;
}

void RunJournal::Take(const QueryReceived& event) {
    Count(event);
    const ModuleOutcome outcome = OutcomeOf(event.query);
    const std::optional<ExpectedQuery> expected = m_ledger.Match(outcome);
    Publish(event);
    if (m_bWatch && !IsLost(event.eFate)) {
        Announce(m_judge.Judge(event.query, event.eFate, event.verdict, outcome, expected), false);
    }
}

void RunJournal::Take(const ModuleNoted& event) {
    const ModuleRecord& note = event.note;
    Count(event);
    if (note.eNote == NOTE_ANALYSED) {
        const AnalysedMessage message = m_ledger.Analyse(note.strText);
        Publish(event);
        Publish(MessageAnalysed{message});
        return;
    }
    std::optional<ExpectedQuery> expected;
    if (note.eNote != NOTE_NOT_SENT) {  // that names nothing
        expected = m_ledger.Match(OutcomeOf(note));
    }
    Publish(event);
    if (m_bWatch && note.eNote == NOTE_CACHED) {
        Announce(m_judge.Judge(note, expected), true);
    }
}

void RunJournal::Announce(const Judgement& judgement, bool bCached) {
    if (verdict_level::ClassOf(judgement.verdict.nLevel) == verdict_level::CLASS_BAD) {
        const MutexLock lock(m_mutex);
        ++m_counters.nBadRuns;
    }
    Publish(ProgramJudged{judgement.strWhat, judgement.strSubject, judgement.strProgram,
                          judgement.strBy, judgement.verdict, bCached});
}
