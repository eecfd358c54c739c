#include "host/account/RunJournal.h"

#include <ctime>
#include <limits>
#include <optional>
#include <thread>
#include <utility>

namespace {

constexpr std::chrono::seconds BETWEEN_DROPS(1);  // announced together

// What the host hashes while the module waits for it is not the module's.
thread_local int g_nInHost = 0;

class InHost {
public:
    InHost() { ++g_nInHost; }
    ~InHost() { --g_nInHost; }

    InHost(const InHost&) = delete;
    InHost& operator=(const InHost&) = delete;
};

}  // namespace

RunJournal::RunJournal(const VerdictService& service, EventLedger::KnownMaker fnKnownMaker,
                       bool bWatch, uint64_t nLargestBatch, LaunchHolding* pHolding)
    : m_judge(service),
      m_ledger(std::move(fnKnownMaker)),
      m_pHolding(pHolding),
      m_bWatch(bWatch),
      m_nLargestBatch(nLargestBatch),
      m_passBegun(Clock::now()),
      m_runBegun(m_passBegun) {
    if (pHolding != nullptr) {
        const auto fnChanged = [this](const LaunchChange& change) {
            Record(
                LaunchChanged{change.strFile, change.strHashedKey, change.strKey, change.bAgain});
        };
        m_pAudit = std::make_unique<LaunchAudit>(
            service, *pHolding,
            LaunchAudit::Hooks{[this](const Judgement& judgement) { Announce(judgement, false); },
                               fnChanged});
    }
}

void RunJournal::Digested(const FileVersion& version, const ProgramDigest& digest) {
    m_pAudit->Digested(version, digest);
}

void RunJournal::Hashed(const std::string& strPath, const struct stat& status,
                        const std::string& strKey) {
    if (g_nInHost > 0 || m_moduleThread != std::this_thread::get_id()) {
        return;
    }
    if (const auto stray = m_ledger.Hashed(strPath, m_pAudit->SameAs(status, strKey))) {
        m_pAudit->Changed(*stray, status, strKey);
    }
}

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
    Publish(PassBegun{m_pass});
}

void RunJournal::EndPass(bool bDrained) {
    PassResult result;
    result.counters = m_books.EndPass();
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
    balance.events = bFinal ? m_ledger.FinalState() : m_ledger.State();
    m_books.Fill(balance, m_bWatch);
    return balance;
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

void RunJournal::Count(const LaunchReported& event) {
    const Launch& launch = event.launch;
    m_judge.Note(launch);
    if (m_pAudit != nullptr) {
        m_pAudit->Note(launch.creation.strPath, launch.strStarter, launch.pFile);
    }
}

void RunJournal::Count(const LaunchUnresolved& event) {
    if (m_pAudit != nullptr) {
        m_pAudit->Note(event.event.PathOrName(), "", event.pFile);
    }
}

void RunJournal::Count(const BatchSent& event) {
    const EventBatch& batch = event.batch;
    m_ledger.Report(batch.nNumber, batch.strBody, batch.nEvents, batch.nCopies, batch.files);
}

void RunJournal::Count(const BatchEnded& event) {
    if (event.nResult != 0) {
        m_ledger.Refuse(event.batch.nNumber);
    }
}

void RunJournal::Take(const QueryReceived& event) {
    m_books.Count(event);
    const ModuleOutcome outcome = OutcomeOf(event.query);
    const std::optional<EndedQuery> ended = m_ledger.Match(outcome);
    CloudQuery query = event.query;
    query.strPath = TrueName(query.strPath);
    Publish(QueryReceived{query, event.eFate, event.verdict, IsDoubtful(ended)});
    if (m_bWatch && !IsLost(event.eFate)) {
        Judge(ended, event.verdict, false, [&](const std::optional<ExpectedQuery>& expected) {
            return m_judge.Judge(query, event.eFate, event.verdict, outcome, expected);
        });
    }
}

void RunJournal::Take(const ModuleNoted& event) {
    const InHost inHost;
    const ModuleRecord& note = event.note;
    m_books.Count(event);
    if (note.eNote == NOTE_ANALYSED) {
        m_moduleThread = std::this_thread::get_id();
        const AnalysedMessage message = m_ledger.Analyse(note.strText);
        if (m_pAudit != nullptr) {
            m_pAudit->Begin(note.strText, message.gone);
        }
        Publish(event);
        Publish(MessageAnalysed{message});
        return;
    }
    std::optional<EndedQuery> ended;
    if (note.eNote != NOTE_NOT_SENT) {  // that names nothing
        ended = m_ledger.Match(OutcomeOf(note));
    }
    ModuleRecord shown = note;
    shown.strText = TrueName(note.strText);
    Publish(ModuleNoted{shown, IsDoubtful(ended)});
    if (m_bWatch && note.eNote == NOTE_CACHED) {
        Judge(ended, m_pAudit != nullptr ? m_pAudit->LastHashed() : Verdict(), true,
              [&](const std::optional<ExpectedQuery>& expected) {
                  return m_judge.Judge(shown, expected);
              });
    }
}

void RunJournal::Take(const ModuleLogged& event) {
    ModuleLine line = event.line;
    line.strText = TrueName(line.strText);
    Publish(ModuleLogged{line});
}

// By its own file where that is known: then nothing else is read or kept for it.
void RunJournal::Judge(
    const std::optional<EndedQuery>& ended, const Verdict& moduleVerdict, bool bCached,
    const std::function<Judgement(const std::optional<ExpectedQuery>&)>& fnJudge) {
    std::optional<ExpectedQuery> expected;
    if (ended) {
        expected = ended->expected;
        expected->strFile = TrueName(expected->strFile);
    }
    if (ended && m_pAudit != nullptr && ended->pFile != nullptr) {
        if (const std::optional<Verdict> verdict = m_pAudit->Of(*ended, moduleVerdict)) {
            Announce(m_judge.Launched(expected->strFile, *verdict), bCached);
        }
    } else if (!ended || !ended->bChanged) {
        Announce(fnJudge(expected), bCached);
    }
}

bool RunJournal::IsDoubtful(const std::optional<EndedQuery>& ended) {
    return ended && (ended->bChanged || LaunchAudit::IsDoubtful(*ended));
}

std::string RunJournal::TrueName(const std::string& strPath) const {
    return m_pHolding != nullptr ? m_pHolding->pLinks->TrueNames(strPath) : strPath;
}

void RunJournal::Announce(const Judgement& judgement, bool bCached) {
    Take(ProgramJudged{judgement.strWhat, judgement.strSubject, judgement.strProgram,
                       judgement.strBy, judgement.verdict, bCached});
}
