#include "host/WatchReport.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "framework/base/FileHash.h"
#include "host/DatabaseLook.h"
#include "host/RunBlock.h"
#include "host/Text.h"
#include "host/WatchBlock.h"

namespace {

constexpr int LEVEL_BAD = 60;  // shown every time, also when the module skips it

JsonObject Record(const char* pszEvent) {
    return JsonObject().Add("event", pszEvent).Add("time", static_cast<int64_t>(time(nullptr)));
}

uint64_t Difference(uint64_t nLeft, uint64_t nRight) {
    return nLeft > nRight ? nLeft - nRight : nRight - nLeft;
}

}  // namespace

uint64_t WatchBalance::Unexplained() const {
    const uint64_t nLaunches = launches.nPrograms + launches.nUnresolvable + launches.nLost +
                               launches.nOwn + launches.nBroken;
    const uint64_t nEnds = module.nAnswers + module.nKnown + module.nNoKey + module.nLost;
    // A query that could not be sent names no path: its event is among the silent ones.
    const uint64_t nSilent = events.nSilent - std::min(events.nSilent, module.nNotSent);
    const uint64_t nUntold = launches.nSensed - std::min(launches.nSensed, nLaunches);
    const uint64_t nTooMany = nLaunches - std::min(launches.nSensed, nLaunches);
    return nTooMany + (bFinal ? nUntold + nSilent : 0) +
           Difference(events.nSent + launches.nBatched, launches.nPrograms + launches.nScripts) +
           Difference(module.nQueries, nEnds);
}

WatchReport::WatchReport(Output& output, const GlobalOptions& options,
                         const VerdictService& service, std::shared_ptr<FILE> pRecord)
    : RunReport(output, options), m_service(service), m_pRecord(std::move(pRecord)) {}

// The module is loaded and not started: the queue is still what the last run left.
void WatchReport::Begin(const std::string& strModule) {
    m_ledger.SetEarlier(database_look::QueueDepth(m_options.ChannelDatabase()).value_or(0));
    RunReport::Begin(strModule);
}

WatchBalance WatchReport::Numbers(bool bFinal) const {
    WatchBalance balance;
    balance.bFinal = bFinal;
    balance.module = TotalCounters();
    balance.events = m_ledger.State();
    const std::lock_guard<std::mutex> lock(m_watchMutex);
    balance.launches = m_launches;
    return balance;
}

void WatchReport::Balance() {
    Write(Numbers(false));
}

void WatchReport::Write(const WatchBalance& balance) {
    if (m_options.bJson) {
        JsonObject record = Record("balance");
        m_output.Line(watch_block::AddNumbers(record, balance).Text());
    } else {
        m_output.Line(watch_block::Text(m_output, balance));
    }
}

void WatchReport::Summary(const RunEnd& end) {
    // Messages that are neither in the queue nor begun with were not stored.
    const LedgerState state = m_ledger.State();
    const uint64_t nStored = end.queueDepth.value_or(state.nWaitingMessages);
    m_ledger.Miss(state.nWaitingMessages - std::min(state.nWaitingMessages, nStored));
    Write(Numbers(true));
    RunReport::Summary(end);
}

void WatchReport::OnDelivered(const EventBatch& batch, uint32_t nResult) {
    if (nResult != 0) {
        m_ledger.Refuse(batch.nNumber);
    }
    RunReport::OnDelivered(batch, nResult);
}

void WatchReport::OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    m_ledger.Hear(query.strPath);
    if (eFate == QUERY_ANSWERED || eFate == QUERY_KNOWN) {
        SetLevel(query.strPath, verdict.nLevel);
    }
    RunReport::OnQuery(query, eFate, verdict);
}

void WatchReport::WriteQueryLine(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    if (eFate != QUERY_ANSWERED && eFate != QUERY_KNOWN) {
        RunReport::WriteQueryLine(query, eFate, verdict);
        return;
    }
    m_output.Line(run_block::VerdictLine(m_output, query, verdict) + StarterText(query.strPath));
}

void WatchReport::OnModuleNote(ModuleNote eNote, const std::string& strPath, bool bProgram) {
    if (eNote == NOTE_ANALYSED) {
        m_ledger.Begin();
    } else if (!strPath.empty()) {
        m_ledger.Hear(strPath);
    }
    RunReport::OnModuleNote(eNote, strPath, bProgram);
    if (eNote == NOTE_CACHED && !m_options.bVerbose && LevelOf(strPath) >= LEVEL_BAD) {
        CloudQuery query;
        query.strPath = strPath;
        Verdict verdict;
        verdict.nLevel = LevelOf(strPath);
        verdict.strSource = "from the cache";
        if (m_options.bJson) {
            m_output.Line(Record("bad").Add("path", strPath).Add("level", verdict.nLevel).Text());
        } else {
            m_output.Line(run_block::VerdictLine(m_output, query, verdict) + StarterText(strPath));
        }
    }
}

std::string WatchReport::StarterText(const std::string& strPath) const {
    const std::lock_guard<std::mutex> lock(m_watchMutex);
    const auto found = m_programs.find(strPath);
    if (found == m_programs.end() || found->second.strStarter.empty()) {
        return "";
    }
    const std::string strBy = "  by " + text::ForTerminal(found->second.strStarter);
    return m_output.Paint(Output::COLOUR_DIM, strBy);
}

// The level of a program that the module skips: from its last query, or, when that was in an
// earlier run, by its digests, once.
int WatchReport::LevelOf(const std::string& strPath) {
    {
        const std::lock_guard<std::mutex> lock(m_watchMutex);
        const auto found = m_programs.find(strPath);
        if (found != m_programs.end() && found->second.nLevel != 0) {
            return found->second.nLevel;
        }
    }
    std::string strMd5, strSha1;
    (void)utils::getMD5AndSHA1(strPath, strMd5, strSha1);  // empty texts are no key: unknown
    const int nLevel = m_service.Decide(strSha1 + strMd5).nLevel;
    SetLevel(strPath, nLevel);
    return nLevel;
}

void WatchReport::SetLevel(const std::string& strPath, int nLevel) {
    const std::lock_guard<std::mutex> lock(m_watchMutex);
    if (m_programs.size() >= MOST_PROGRAMS && m_programs.count(strPath) == 0) {
        m_programs.clear();
    }
    m_programs[strPath].nLevel = nLevel;
}

void WatchReport::OnLaunch(const Launch& launch) {
    const std::string& strPath = launch.creation.strPath;
    {
        const std::lock_guard<std::mutex> lock(m_watchMutex);
        if (m_programs.size() >= MOST_PROGRAMS && m_programs.count(strPath) == 0) {
            m_programs.clear();
        }
        m_programs[strPath].strStarter = launch.strStarter;
    }
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
        m_output.Line(text::ClockNow() + "  unresolvable   " + text::ForTerminal(strName) +
                      "  no path names its file, so it is not judged");
    }
}

void WatchReport::OnLost(uint64_t nLost, uint64_t nTotal) {
    if (m_options.bJson) {
        m_output.Line(Record("lost").Add("launches", nLost).Add("total", nTotal).Text());
    } else {
        m_output.Line(text::ClockNow() + "  lost           " + std::to_string(nLost) +
                      " launches, the kernel's buffer was full; " + std::to_string(nTotal) +
                      " since the start");
    }
}

void WatchReport::OnBatch(const EventBatch& batch, std::vector<std::string> paths) {
    m_ledger.Send(batch.nNumber, std::move(paths));
    Keep(batch);
}

// Writes the message down for replay.
void WatchReport::Keep(const EventBatch& batch) {
    if (m_pRecord == nullptr) {
        return;
    }
    const std::string strLine = batch.strBody + "\n";
    const bool bWritten =
        std::fwrite(strLine.data(), 1, strLine.size(), m_pRecord.get()) == strLine.size();
    if (!bWritten || std::fflush(m_pRecord.get()) != 0) {
        m_output.Error(std::string("tevmon-host: the recording ends here: ") +
                       std::strerror(errno));
        m_pRecord.reset();
    }
}

void WatchReport::OnCounters(const LaunchCounters& counters) {
    const std::lock_guard<std::mutex> lock(m_watchMutex);
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
    m_ledger.Send(batch.nNumber, {});
    Keep(batch);
}

void WatchReport::OnFileCounters(const FileCounters& counters) {
    const std::lock_guard<std::mutex> lock(m_watchMutex);
    m_files = counters;
}

void WatchReport::OnNotice(const std::string& strText) {
    if (m_options.bJson) {
        m_output.Line(Record("notice").Add("text", strText).Text());
    }
    m_output.Error("tevmon-host: " + text::ForTerminal(strText));
}
