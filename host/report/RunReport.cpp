#include "host/report/RunReport.h"

#include <sys/stat.h>

#include <cinttypes>
#include <ctime>

#include "framework/base/CStr.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/JsonWriter.h"
#include "host/base/ModuleFacts.h"
#include "host/report/text/RunText.h"
#include "host/verdict/VerdictLevel.h"

namespace {

constexpr size_t PASSES_SHOWN = 6;

const char* FateWord(QueryFate eFate) {
    switch (eFate) {
        case QUERY_ANSWERED:
            return "answered";
        case QUERY_KNOWN:
            return "known";
        case QUERY_NO_KEY:
            return "no key";
        case QUERY_UNREADABLE:
            return "unreadable";
        case QUERY_NOT_DELIVERED:
            return "not delivered";
    }
    return "";
}

uint64_t FileSize(const std::string& strPath) {
    struct stat status = {};
    const bool bKnown = stat(strPath.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return bKnown ? static_cast<uint64_t>(status.st_size) : 0;
}

JsonObject Record(const char* pszEvent) {
    return JsonObject().Add("event", pszEvent).Add("time", static_cast<int64_t>(time(nullptr)));
}

}  // namespace

RunReport::RunReport(Console& output, const HostOptions& options)
    : m_output(output),
      m_options(options),
      m_passBegun(RunCounters::Clock::now()),
      m_runBegun(m_passBegun) {}

void RunReport::Begin(const std::string& strModule) {
    if (m_options.bJson) {
        m_output.Line(Record("start")
                          .Add("module", strModule)
                          .Add("state_dir", m_options.strStateDir)
                          .Text());
    }
}

void RunReport::SetPass(const PassInfo& pass) {
    m_pass = pass;
    m_passBegun = RunCounters::Clock::now();
}

void RunReport::BeginPass(const PassInfo& pass) {
    SetPass(pass);
    if (!m_options.bJson) {
        m_output.Line(run_text::Heading(m_output, pass));
    }
}

void RunReport::EndPass(bool bDrained) {
    RunCounters counters;
    {
        const MutexLock lock(m_mutex);
        counters = m_counters;
        m_total.Add(m_counters);
        m_counters = RunCounters();
    }
    m_output.Progress("");
    const std::chrono::duration<double> taken = RunCounters::Clock::now() - m_passBegun;
    if (m_passes.size() < PASSES_SHOWN) {
        m_passes.push_back({counters, taken.count()});
    }
    if (m_options.bJson) {
        JsonObject record = Record("pass");
        record.Add("pass", m_pass.nPass).Add("passes", m_pass.nPasses).Add("drained", bDrained);
        m_output.Line(run_text::AddCounters(record, counters, taken.count()).Text());
    } else if (m_pass.nPasses > 1) {
        m_output.Line(run_text::Text(m_output, counters, taken.count()));
    }
}

void RunReport::Summary(const RunEnd& end) {
    RunCounters counters;
    {
        const MutexLock lock(m_mutex);
        m_total.Add(m_counters);  // what came after the last pass
        m_counters = RunCounters();
        counters = m_total;
    }
    m_output.Progress("");
    const std::chrono::duration<double> taken = RunCounters::Clock::now() - m_runBegun;
    if (m_options.bJson) {
        JsonObject record = Record("summary");
        record.Add("drained", end.bDrained).Add("signal", end.nSignal);
        record.AddJson("queue_depth",
                       end.queueDepth ? std::to_string(*end.queueDepth) : std::string("null"));
        m_output.Line(run_text::AddCounters(record, counters, taken.count()).Text());
        return;
    }
    m_output.Line(run_text::SummaryHeading(m_output, end));
    m_output.Line(m_passes.size() > 1 ? run_text::PassTable(m_output, m_passes)
                                      : run_text::Text(m_output, counters, taken.count()));
    m_output.Line(run_text::QueueLine(end));
}

void RunReport::Progress(const std::string& strDoing) {
    if (!m_output.HasProgress()) {
        return;
    }
    const RunCounters counters = PassCounters();
    m_output.Progress(CStr::stdformat("%s: %" PRIu64 " delivered, %" PRIu64 " looked at, %" PRIu64
                                      " queries, %" PRIu64 " from cache, %s hashed",
                                      strDoing.c_str(), counters.nMessages, counters.nAnalysed,
                                      counters.nQueries, counters.nCached,
                                      text::Bytes(counters.nHashedBytes).c_str()));
}

void RunReport::OnQueue(const QueueLoad& load) {
    static const char* const STATES[] = {"normal", "high", "full"};
    if (m_options.bJson) {
        JsonObject record = Record("queue");
        record.Add("state", STATES[load.eState]).Add("rows", load.nRows).Add("bytes", load.nBytes);
        record.Add("refused_messages", load.nRefusedMessages);
        m_output.Line(record.Add("refused_events", load.nRefusedEvents).Text());
        return;
    }
    static const char* const WORDS[] = {"has room again", "is nearly full", "is full"};
    std::string strLine = text::ClockNow() + "  queue          " + WORDS[load.eState] + ": " +
                          std::to_string(load.nRows) + " messages, " + text::Bytes(load.nBytes);
    if (load.nRefusedMessages > 0) {
        strLine += "; refused so far " + std::to_string(load.nRefusedMessages) + " messages with " +
                   std::to_string(load.nRefusedEvents) + " events";
    }
    const auto eColour = load.eState == QUEUE_FULL ? Console::COLOUR_RED : Console::COLOUR_YELLOW;
    m_output.Line(
        m_output.Paint(load.eState == QUEUE_NORMAL ? Console::COLOUR_NONE : eColour, strLine));
}

void RunReport::OnRemark(uint64_t nNumber, const std::string& strText) {
    {
        const MutexLock lock(m_mutex);
        ++m_counters.nUnusable;
    }
    if (m_options.bJson) {
        m_output.Line(Record("unusable").Add("line", nNumber).Add("reason", strText).Text());
    }
    const std::string strWhere =
        nNumber == 0 ? "" : m_pass.strName + ", line " + std::to_string(nNumber) + ": ";
    m_output.Complain(strWhere + strText);
}

void RunReport::OnDelivered(const EventBatch& batch, uint32_t nResult) {
    {
        const MutexLock lock(m_mutex);
        if (nResult == 0) {
            ++m_counters.nMessages;
            m_counters.nCopies += batch.nCopies;
            m_counters.nEvents += batch.nEvents;
        } else {
            ++m_counters.nNotDelivered;
        }
    }
    if (m_options.bJson && nResult == 0) {
        m_output.Line(Record("delivered")
                          .Add(m_pass.strUnit, batch.nNumber)
                          .Add("events", batch.nEvents)
                          .Text());
    }
}

RunCounters RunReport::TotalCounters() const {
    const MutexLock lock(m_mutex);
    RunCounters total = m_total;
    total.Add(m_counters);
    return total;
}

RunCounters RunReport::PassCounters() const {
    const MutexLock lock(m_mutex);
    return m_counters;
}

void RunReport::OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    CountQuery(query, eFate, verdict);
    if (m_options.bJson) {
        WriteQueryJson(query, eFate, verdict);
    } else {
        WriteQueryLine(query, eFate, verdict);
    }
}

void RunReport::CountQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    const bool bHashed = query.strFunc == module_facts::CONTEXT_LAUNCHES ||
                         query.strFunc == module_facts::FUNC_MAKER;
    const uint64_t nBytes = bHashed ? FileSize(query.strPath) : 0;
    const MutexLock lock(m_mutex);
    ++m_counters.nQueries;
    m_counters.nHashedBytes += nBytes;
    m_counters.lastWork = RunCounters::Clock::now();
    m_counters.nAnswers += eFate == QUERY_ANSWERED ? 1 : 0;
    m_counters.nKnown += eFate == QUERY_KNOWN ? 1 : 0;
    m_counters.nNoKey += eFate == QUERY_NO_KEY ? 1 : 0;
    m_counters.nLost += eFate == QUERY_UNREADABLE || eFate == QUERY_NOT_DELIVERED ? 1 : 0;
    if (eFate == QUERY_ANSWERED) {
        ++m_counters.answersByLevel[verdict.nLevel];
    }
    if (eFate == QUERY_ANSWERED || eFate == QUERY_KNOWN) {
        ++m_counters.queriesByLevel[verdict.nLevel];
        if (verdict.nLevel == verdict_level::PACKAGED) {
            ++m_counters.queriesByPackage[verdict.strOwner];
        }
    }
}

void RunReport::WriteQueryJson(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    JsonObject record = Record("query");
    record.Add("path", query.strPath).Add("func", query.strFunc).Add("what", query.strEvent);
    m_output.Line(record.Add("key", query.strKey).Add("fate", FateWord(eFate)).Text());
    if (eFate == QUERY_ANSWERED) {
        JsonObject answer = Record("verdict");
        answer.Add("path", query.strPath).Add("key", query.strKey).Add("level", verdict.nLevel);
        answer.Add("verdict", verdict_level::Word(verdict.nLevel)).Add("owner", verdict.strOwner);
        m_output.Line(answer.Add("source", verdict.strSource).Text());
    }
}

// Packaged programs are the many that nobody needs to look at.
void RunReport::WriteQueryLine(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) {
    const bool bVerdict = eFate == QUERY_ANSWERED || eFate == QUERY_KNOWN;
    if (bVerdict && verdict.nLevel == verdict_level::PACKAGED && !m_options.bVerbose) {
        return;
    }
    m_output.Line(bVerdict ? run_text::VerdictLine(m_output, query, verdict)
                           : run_text::QueryLine(m_output, query, FateWord(eFate)));
}

void RunReport::OnModuleNote(const ModuleRecord& note) {
    CountNote(note);
    WriteNote(note);
}

void RunReport::CountNote(const ModuleRecord& note) {
    const ModuleNote eNote = note.eNote;
    const bool bHashed = eNote == NOTE_CACHED && note.eQuestion == QUESTION_LAUNCH;
    const uint64_t nBytes = bHashed ? FileSize(note.strText) : 0;
    const MutexLock lock(m_mutex);
    m_counters.nAnalysed += eNote == NOTE_ANALYSED ? 1 : 0;
    m_counters.nCached += eNote == NOTE_CACHED ? 1 : 0;
    m_counters.nNoStat += eNote == NOTE_NO_STAT ? 1 : 0;
    m_counters.nNoHash += eNote == NOTE_NO_HASH ? 1 : 0;
    m_counters.nNotSent += eNote == NOTE_NOT_SENT ? 1 : 0;
    m_counters.nHashedBytes += nBytes;
    m_counters.lastWork = RunCounters::Clock::now();
    if (!m_counters.firstWork) {
        m_counters.firstWork = m_counters.lastWork;
    }
}

void RunReport::WriteNote(const ModuleRecord& note) {
    const ModuleNote eNote = note.eNote;
    static const char* const REASONS[] = {"", "cached", "no stat", "no hash", "not sent"};
    if (m_options.bJson && eNote != NOTE_ANALYSED) {
        m_output.Line(
            Record("skip").Add("path", note.strText).Add("reason", REASONS[eNote]).Text());
    } else if (m_options.bVerbose && eNote == NOTE_CACHED) {
        m_output.Line(run_text::SkipLine(m_output, note.strText));
    }
}

std::string RunReport::OnMessage(const Guid& /*sender*/, int64_t nMsgType,
                                 const std::string& strBody) {
    {
        const MutexLock lock(m_mutex);
        ++m_counters.nCentre;
    }
    const auto nBytes = static_cast<uint64_t>(strBody.size());
    if (m_options.bJson) {
        m_output.Line(Record("centre").Add("type", nMsgType).Add("bytes", nBytes).Text());
    } else {
        m_output.Line(text::ClockNow() + "  centre         record of type " +
                      std::to_string(nMsgType) + ", " + std::to_string(nBytes) + " bytes");
    }
    return "";
}
