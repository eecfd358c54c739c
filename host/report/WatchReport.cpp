#include "host/report/WatchReport.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>
#include <utility>

#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/JsonWriter.h"
#include "host/database/DatabaseProbe.h"
#include "host/report/metrics/MetricsText.h"
#include "host/report/text/BalanceText.h"
#include "host/report/text/RunText.h"
#include "host/verdict/VerdictLevel.h"

namespace {

constexpr std::chrono::seconds BETWEEN_LOSSES(1);  // announced together

JsonObject Record(const char* pszEvent) {
    return JsonObject().Add("event", pszEvent).Add("time", static_cast<int64_t>(time(nullptr)));
}

}  // namespace

// What is known of a question that the module asked, or skipped.
struct WatchReport::Judgement {
    std::string strWhat;
    std::string strSubject;
    std::string strProgram;  // that the verdict is on
    std::string strBy;
    Verdict verdict;
    bool bCached = false;
    bool bRecorded = false;  // --json has a record of the verdict already
};

WatchReport::WatchReport(Console& output, const HostOptions& options, const VerdictService& service,
                         WatchOptions watch)
    : RunReport(output, options),
      m_service(service),
      m_programs(service),
      m_ledger([this](const std::string& strProgram) { return IsKnownMaker(strProgram); }),
      m_watch(std::move(watch)),
      m_tmStart(time(nullptr)) {}

// The module is loaded and not started: the queue is still what the last run left.
void WatchReport::Begin(const std::string& strModule) {
    m_ledger.SetEarlier(database_probe::QueueDepth(m_options.ChannelDatabase()).value_or(0));
    RunReport::Begin(strModule);
    BeginMetrics();
    if (!m_options.bJson && !m_watch.bPlain) {
        auto pView = std::make_unique<LiveScreen>(
            m_output, [this] { return HeadNumbers(); }, [this] { m_output.Break(EIO); });
        if (pView->Begin()) {
            m_pView = std::move(pView);
        }
    }
}

void WatchReport::BeginMetrics() {
    if (m_watch.strMetricsFile.empty()) {
        return;
    }
    m_pMetrics = std::make_unique<MetricsFile>(
        m_watch.strMetricsFile, m_watch.metricsInterval,
        [this] { return metrics_text::Text(Numbers(m_bEnded), m_tmStart); },
        [this](const std::string& strError) { m_output.Complain(strError); });
    m_pMetrics->Begin();
}

void WatchReport::BeginPass(const PassInfo& pass) {
    if (m_pView != nullptr) {
        SetPass(pass);
        m_pView->State("watching");
    } else {
        RunReport::BeginPass(pass);
    }
}

void WatchReport::Progress(const std::string& strDoing) {
    AnnounceLosses(false);
    if (m_pView != nullptr) {
        m_pView->State(strDoing == "delivering" ? "watching" : "ending: " + strDoing);
    } else {
        RunReport::Progress(strDoing);
    }
}

ViewNumbers WatchReport::HeadNumbers() const {
    const WatchBalance balance = Numbers(false);
    const auto answers = [&balance](int nLevel) {
        const auto found = balance.module.answersByLevel.find(nLevel);
        return found == balance.module.answersByLevel.end() ? 0 : found->second;
    };
    ViewNumbers numbers;
    numbers.nLaunches = balance.launches.nSensed;
    numbers.nFiles = balance.files.nSensed;
    numbers.nBacklogEvents = balance.events.nWaiting;
    numbers.nBacklogMessages = balance.events.nWaitingMessages + balance.events.nEarlierWaiting;
    numbers.nQueries = balance.module.nQueries;
    numbers.nCached = balance.module.nCached;
    numbers.nPackaged = answers(verdict_level::PACKAGED);
    numbers.nAllowed = answers(verdict_level::ALLOWED);
    numbers.nUnknown = answers(verdict_level::UNKNOWN);
    numbers.nBlocked = answers(verdict_level::BLOCKED);
    numbers.nBadSeen = m_nBadSeen;
    numbers.nLost = balance.launches.nLost + balance.events.nRefused + balance.events.nNotStored;
    numbers.nOverflows = balance.files.nOverflows;
    numbers.nUnexplained = balance.Unexplained();
    return numbers;
}

WatchBalance WatchReport::Numbers(bool bFinal) const {
    WatchBalance balance;
    balance.bFinal = bFinal;
    balance.module = TotalCounters();
    balance.events = bFinal ? m_ledger.FinalState() : m_ledger.State();
    const MutexLock lock(m_watchMutex);
    balance.launches = m_launches;
    balance.files = m_files;
    return balance;
}

void WatchReport::Balance() {
    Write(Numbers(false));
}

void WatchReport::Write(const WatchBalance& balance) {
    if (m_options.bJson) {
        JsonObject record = Record("balance");
        m_output.Line(balance_text::AddNumbers(record, balance).Text());
    } else {
        m_output.Line(balance_text::Text(m_output, balance));
    }
}

void WatchReport::Summary(const RunEnd& end) {
    if (m_pView != nullptr) {
        m_pView->End();
    }
    m_ledger.End(end.queueDepth.value_or(std::numeric_limits<uint64_t>::max()));
    m_bEnded = true;
    AnnounceLosses(true);
    Write(Numbers(true));
    RunReport::Summary(end);
    if (m_pMetrics != nullptr) {
        m_pMetrics->End();
    }
}

// What was sensed and told, and never came into the module's queue.
void WatchReport::AnnounceLosses(bool bLast) {
    const auto now = std::chrono::steady_clock::now();
    if (!bLast && now < m_lossesTold + BETWEEN_LOSSES) {
        return;
    }
    const LedgerState events = m_ledger.State();
    if (events.nRefused > m_nRefusedTold || events.nNotStored > m_nNotStoredTold) {
        m_lossesTold = now;
    }
    Announce("refused", "the module's queue is full, or it takes no messages", events.nRefused,
             m_nRefusedTold);
    Announce("not_stored", "the module could not store them", events.nNotStored, m_nNotStoredTold);
}

void WatchReport::Announce(const char* pszRecord, const char* pszWhy, uint64_t nTotal,
                           uint64_t& nAnnounced) {
    if (nTotal <= nAnnounced) {
        return;
    }
    const uint64_t nNew = nTotal - std::exchange(nAnnounced, nTotal);
    if (m_options.bJson) {
        m_output.Line(Record(pszRecord).Add("events", nNew).Add("total", nTotal).Text());
        return;
    }
    const VerdictRow row = verdict_row::Told(
        "lost", "event", std::to_string(nNew) + (nNew == 1 ? " event" : " events"),
        std::string(pszWhy) + "; " + std::to_string(nTotal) + " since the start");
    if (m_bEnded) {
        m_output.Line(verdict_row::Text(m_output, row));  // the view is gone
    } else {
        Show(row);
    }
}

void WatchReport::OnDelivered(const EventBatch& batch, uint32_t nResult) {
    if (nResult != 0) {
        m_ledger.Refuse(batch.nNumber);
    }
    RunReport::OnDelivered(batch, nResult);
}

void WatchReport::OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    RunReport::OnQuery(query, eFate, verdict);
    ModuleSign sign;
    sign.eKind = expected_queries::KindOfEvent(query.strEvent, sign.strOperation);
    sign.strName = query.strPath;
    sign.bNamesProgram = sign.eKind == QUESTION_PIPE || sign.eKind == QUESTION_UNIT;
    const std::optional<ModuleQuestion> question = m_ledger.Hear(sign);
    if (eFate == QUERY_UNREADABLE || eFate == QUERY_NOT_DELIVERED) {
        return;
    }
    Judgement judgement;
    judgement.strWhat = sign.eKind == QUESTION_LAUNCH ? "launch" : query.strEvent;
    judgement.strSubject = question ? question->strFile : query.strPath;
    judgement.strProgram = sign.eKind == QUESTION_LAUNCH ? judgement.strSubject
                           : question                    ? question->strProgram
                           : sign.bNamesProgram          ? query.strPath
                                                         : "";
    judgement.verdict = verdict;
    judgement.bRecorded = eFate == QUERY_ANSWERED;
    if (eFate != QUERY_NO_KEY) {
        m_programs.SetVerdict(judgement.strProgram, verdict);
    } else if (!judgement.strProgram.empty()) {
        judgement.verdict = m_programs.VerdictOf(judgement.strProgram);
    }
    judgement.strBy = sign.eKind == QUESTION_LAUNCH ? m_programs.Starter(judgement.strSubject)
                                                    : judgement.strProgram;
    ShowJudgement(judgement);
}

// The lines of queries that have a verdict are made where their question is known.
void WatchReport::WriteQueryLine(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    if (eFate == QUERY_UNREADABLE || eFate == QUERY_NOT_DELIVERED) {
        RunReport::WriteQueryLine(query, eFate, verdict);
    }
}

void WatchReport::OnModuleNote(const ModuleRecord& note) {
    RunReport::OnModuleNote(note);
    if (note.eNote == NOTE_ANALYSED) {
        m_ledger.Begin(note.strText);
        return;
    }
    if (note.eNote == NOTE_NOT_SENT) {
        return;  // names nothing
    }
    ModuleSign sign;
    sign.eEnd = note.eNote == NOTE_CACHED    ? SIGN_CACHED
                : note.eNote == NOTE_NO_HASH ? SIGN_NO_HASH
                                             : SIGN_NO_STAT;
    sign.eKind = note.eQuestion;
    sign.strName = note.strText;
    sign.strOperation = note.strOperation;
    sign.bNamesProgram = note.bNamesProgram;
    const std::optional<ModuleQuestion> question = m_ledger.Hear(sign);
    if (note.eNote != NOTE_CACHED) {
        return;
    }
    const bool bLaunch = note.eQuestion == QUESTION_LAUNCH;
    Judgement judgement;
    judgement.strWhat = expected_queries::EventOf(note.eQuestion, note.strOperation);
    judgement.strSubject = note.strText;
    judgement.strProgram = bLaunch ? note.strText : question ? question->strProgram : "";
    judgement.verdict = m_programs.VerdictOf(judgement.strProgram);
    judgement.strBy = bLaunch ? m_programs.Starter(note.strText) : judgement.strProgram;
    judgement.bCached = true;
    ShowJudgement(judgement);
}

// Skipped programs have lines of ShowJudgement.
void WatchReport::WriteNote(const ModuleRecord& note) {
    if (m_options.bJson) {
        RunReport::WriteNote(note);
    }
}

void WatchReport::ShowJudgement(const Judgement& judgement) {
    const bool bBad = verdict_level::ClassOf(judgement.verdict.nLevel) == verdict_level::CLASS_BAD;
    m_nBadSeen += bBad ? 1 : 0;
    if (!m_options.bJson) {
        if (bBad || !judgement.bCached || m_options.bVerbose || m_pView != nullptr) {
            Show(verdict_row::Judged(judgement.strWhat, judgement.strSubject, judgement.strBy,
                                     judgement.verdict, judgement.bCached));
        }
    } else if (bBad && !judgement.bRecorded) {
        JsonObject record = Record("bad");
        record.Add("path", judgement.strProgram).Add("level", judgement.verdict.nLevel);
        record.Add("what", judgement.strWhat).Add("file", judgement.strSubject);
        m_output.Line(record.Add("cached", judgement.bCached).Text());
    }
}

void WatchReport::Show(const VerdictRow& row) {
    if (m_pView != nullptr) {
        m_pView->Add(row);
    } else {
        m_output.Line(verdict_row::Text(m_output, row));
    }
}

// The module skips a pipe whose maker has a good verdict in its cache.
bool WatchReport::IsKnownMaker(const std::string& strProgram) const {
    const std::string strKey = ProgramVerdicts::KeyOf(strProgram);
    return !strKey.empty() &&
           verdict_level::ClassOf(m_service.Decide(strKey).nLevel) == verdict_level::CLASS_GOOD &&
           database_probe::HasVerdict(m_options.CacheDatabase(), strKey).value_or(false);
}

void WatchReport::OnLaunch(const Launch& launch) {
    const std::string& strPath = launch.creation.strPath;
    m_programs.SetStarter(strPath, launch.strStarter);
    if (m_options.bJson) {
        static const char* const ORIGINS[] = {"none", "invoked", "resolved", "proc"};
        JsonObject record = Record("launch");
        record.Add("path", strPath).Add("cmd", launch.creation.strCommand);
        record.Add("pid", static_cast<uint64_t>(launch.creation.nPid));
        record.Add("starter", launch.strStarter).Add("origin", ORIGINS[launch.eOrigin]);
        record.Add("script", launch.bScript).Add("args_cut", launch.bArgsCut);
        m_output.Line(record.Text());
    }
}

void WatchReport::OnUnresolvable(const LaunchEvent& event) {
    const std::string& strName = event.strPath.empty() ? event.strName : event.strPath;
    if (m_options.bJson) {
        JsonObject record = Record("unresolvable");
        record.Add("name", strName).Add("cmd", event.strCommand);
        m_output.Line(record.Add("pid", static_cast<uint64_t>(event.nPid)).Text());
    } else {
        Show(verdict_row::Told("unresolvable", "launch", strName,
                               "no path names its file, so it is not judged"));
    }
}

void WatchReport::OnLost(uint64_t nLost, uint64_t nTotal) {
    if (m_options.bJson) {
        m_output.Line(Record("lost").Add("launches", nLost).Add("total", nTotal).Text());
    } else {
        Show(verdict_row::Told(
            "lost", "launch", std::to_string(nLost) + (nLost == 1 ? " launch" : " launches"),
            "the kernel's buffer was full; " + std::to_string(nTotal) + " since the start"));
    }
}

void WatchReport::OnBatch(const EventBatch& batch, std::vector<std::string> /*paths*/) {
    m_ledger.Send(batch.nNumber, batch.strBody, batch.nEvents);
    Keep(batch);
}

// Writes the message down for replay.
void WatchReport::Keep(const EventBatch& batch) {
    if (m_watch.pRecord == nullptr) {
        return;
    }
    const std::string strLine = batch.strBody + "\n";
    const bool bWritten =
        std::fwrite(strLine.data(), 1, strLine.size(), m_watch.pRecord.get()) == strLine.size();
    if (!bWritten || std::fflush(m_watch.pRecord.get()) != 0) {
        m_output.Error(std::string("tevmon-host: the recording ends here: ") +
                       std::strerror(errno));
        m_watch.pRecord.reset();
    }
}

void WatchReport::OnCounters(const LaunchCounters& counters) {
    const MutexLock lock(m_watchMutex);
    m_launches = counters;
}

void WatchReport::OnOperation(const FileOperation& operation) {
    if (!m_options.bJson) {
        return;  // its line comes when it is judged
    }
    static const char* const ACTS[] = {"create", "write", "rename", "remove"};
    JsonObject record = Record("file");
    record.Add("op", ACTS[operation.eAct]).Add("path", operation.strPath);
    record.Add("program", operation.strProgram).Add("program_name", operation.strProgramName);
    record.Add("pid", static_cast<uint64_t>(operation.nPid)).Add("fs", operation.strFsType);
    m_output.Line(record.Add("place", operation.bPlace).Add("pipe", operation.bPipe).Text());
}

void WatchReport::OnOverflow(uint64_t nTimes, uint64_t nTotal) {
    if (m_options.bJson) {
        m_output.Line(Record("overflow").Add("times", nTimes).Add("total", nTotal).Text());
    } else {
        m_output.Line(
            text::ClockNow() + "  lost           file operations, the kernel's queue was full; " +
            std::to_string(nTotal) + (nTotal == 1 ? " time" : " times") + " since the start");
    }
}

void WatchReport::OnOperations(const EventBatch& batch, std::vector<FileOperation> /*operations*/) {
    m_ledger.Send(batch.nNumber, batch.strBody, batch.nEvents);
    Keep(batch);
}

void WatchReport::OnFileCounters(const FileCounters& counters) {
    const MutexLock lock(m_watchMutex);
    m_files = counters;
}

void WatchReport::OnNotice(const std::string& strText) {
    if (m_options.bJson) {
        m_output.Line(Record("notice").Add("text", strText).Text());
    }
    m_output.Complain(strText);
}
