#include "host/report/JsonLines.h"

#include "host/event/EventMessage.h"
#include "host/report/text/BalanceText.h"
#include "host/report/text/EventLine.h"
#include "host/report/text/RunText.h"
#include "host/verdict/VerdictLevel.h"

namespace {

JsonObject Record(const char* pszEvent, int64_t tmWhen) {
    return JsonObject().Add("event", pszEvent).Add("time", tmWhen);
}

void AddContext(JsonObject& record, const LaunchContext& context) {
    record.Add("uid", static_cast<uint64_t>(context.nUid)).Add("cgroup", context.strCgroup);
    record.Add("container", context.strContainer);
}

}  // namespace

void JsonLines::OnEvent(const RunEvent& event, int64_t tmWhen) {
    std::visit([this, tmWhen](const auto& happened) { Write(happened, tmWhen); }, event);
}

void JsonLines::Write(const RunBegun& event, int64_t tmWhen) {
    JsonObject record = Record("start", tmWhen);
    record.Add("module", event.strModule).Add("state_dir", m_options.strStateDir);
    m_output.Line(record.Text());
}

void JsonLines::Write(const PassBegun& event, int64_t) {
    m_strUnit = event.pass.strUnit;
}

void JsonLines::Write(const PassEnded& event, int64_t tmWhen) {
    m_output.Progress("");
    JsonObject record = Record("pass", tmWhen);
    record.Add("pass", event.pass.nPass).Add("passes", event.pass.nPasses);
    record.Add("drained", event.bDrained);
    run_text::AddCounters(record, event.result.counters, event.result.dSeconds);
    m_output.Line(record.Text());
}

void JsonLines::Write(const RunProgressed& event, int64_t) {
    if (m_output.HasProgress()) {
        m_output.Progress(event_line::Progress(event.strDoing, m_journal.PassCounters()));
    }
}

void JsonLines::Write(const BalanceRequested& event, int64_t tmWhen) {
    WriteBalance(event.balance, tmWhen);
}

void JsonLines::WriteBalance(const Balance& balance, int64_t tmWhen) {
    JsonObject record = Record("balance", tmWhen);
    m_output.Line(balance_text::AddNumbers(record, balance).Text());
}

void JsonLines::Write(const RunEnded& event, int64_t tmWhen) {
    WriteBalance(event.balance, tmWhen);
    m_output.Progress("");
    JsonObject record = Record("summary", tmWhen);
    record.Add("drained", event.end.bDrained).Add("signal", event.end.nSignal);
    record.AddJson("queue_depth", event.end.queueDepth ? std::to_string(*event.end.queueDepth)
                                                       : std::string("null"));
    run_text::AddCounters(record, event.total.counters, event.total.dSeconds);
    m_output.Line(record.Text());
}

void JsonLines::Write(const InputUnusable& event, int64_t tmWhen) {
    JsonObject record = Record("unusable", tmWhen);
    record.Add("line", event.nNumber).Add("reason", event.strReason);
    m_output.Line(record.Text());
    m_output.Complain(event_line::Input(event));
}

void JsonLines::Write(const LaunchReported& event, int64_t tmWhen) {
    WriteLaunch(event.launch, false, tmWhen);
}

void JsonLines::Write(const LaunchRepeated& event, int64_t tmWhen) {
    WriteLaunch(event.launch, true, tmWhen);
}

void JsonLines::WriteLaunch(const Launch& launch, bool bRepeated, int64_t tmWhen) {
    static const char* const ORIGINS[] = {"none", "invoked", "resolved", "proc", "held"};
    JsonObject record = Record("launch", tmWhen);
    record.Add("path", launch.creation.strPath).Add("cmd", launch.creation.strCommand);
    record.Add("pid", static_cast<uint64_t>(launch.creation.nPid));
    record.Add("starter", launch.strStarter).Add("origin", ORIGINS[launch.eOrigin]);
    record.Add("script", launch.bScript).Add("args_cut", launch.bArgsCut);
    AddContext(record, launch.context);
    m_output.Line(record.Add("repeated", bRepeated).Text());
}

void JsonLines::Write(const LaunchUnresolved& event, int64_t tmWhen) {
    const LaunchEvent& launch = event.event;
    JsonObject record = Record("unresolved", tmWhen);
    record.Add("name", launch.PathOrName());
    record.Add("cmd", launch.strCommand).Add("pid", static_cast<uint64_t>(launch.nPid));
    AddContext(record, event.context);
    m_output.Line(record.Text());
}

void JsonLines::Write(const LaunchesLost& event, int64_t tmWhen) {
    JsonObject record = Record("lost", tmWhen);
    m_output.Line(record.Add("launches", event.nLaunches).Add("total", event.nTotal).Text());
}

void JsonLines::Write(const FileOperationReported& event, int64_t tmWhen) {
    const FileOperation& operation = event.operation;
    JsonObject record = Record("file", tmWhen);
    record.Add("op", event_message::OperationWord(operation.eAct)).Add("path", operation.strPath);
    record.Add("program", operation.strProgram).Add("program_name", operation.strProgramName);
    record.Add("pid", static_cast<uint64_t>(operation.nPid)).Add("fs", operation.strFsType);
    record.Add("place", operation.bPlace).Add("pipe", operation.bPipe);
    m_output.Line(record.Add("found", operation.bFound).Text());
}

void JsonLines::Write(const FileQueueOverflowed& event, int64_t tmWhen) {
    JsonObject record = Record("overflow", tmWhen);
    m_output.Line(record.Add("times", event.nTimes).Add("total", event.nTotal).Text());
}

void JsonLines::Write(const SensorNotice& event, int64_t tmWhen) {
    m_output.Line(Record("notice", tmWhen).Add("text", event.strText).Text());
    m_output.Complain(event.strText);
}

void JsonLines::Write(const BatchEnded& event, int64_t tmWhen) {
    if (event.nResult == 0) {
        JsonObject record = Record("delivered", tmWhen);
        record.Add(m_strUnit, event.batch.nNumber).Add("events", event.batch.nEvents);
        m_output.Line(record.Text());
    }
}

void JsonLines::Write(const EventsDropped& event, int64_t tmWhen) {
    static const char* const NAMES[] = {"refused", "not_stored"};
    JsonObject record = Record(NAMES[event.eReason], tmWhen);
    m_output.Line(record.Add("events", event.nEvents).Add("total", event.nTotal).Text());
}

void JsonLines::Write(const QueueChanged& event, int64_t tmWhen) {
    static const char* const STATES[] = {"normal", "high", "full"};
    const QueueLoad& load = event.load;
    JsonObject record = Record("queue", tmWhen);
    record.Add("state", STATES[load.eState]).Add("rows", load.nRows).Add("bytes", load.nBytes);
    record.Add("refused_messages", load.nRefusedMessages);
    m_output.Line(record.Add("refused_events", load.nRefusedEvents).Text());
}

void JsonLines::Write(const QueryReceived& event, int64_t tmWhen) {
    static const char* const FATES[] = {"answered", "known", "no_key", "malformed", "unanswered"};
    const CloudQuery& query = event.query;
    JsonObject record = Record("query", tmWhen);
    record.Add("path", query.strPath).Add("func", query.strFunc).Add("what", query.strEvent);
    record.Add("key", query.strKey).Add("fate", FATES[event.eFate]);
    if (event.bChanged) {
        record.Add("changed", true);
    }
    m_output.Line(record.Text());
    if (event.eFate == QUERY_ANSWERED && !event.bChanged) {
        const Verdict& verdict = event.verdict;
        JsonObject answer = Record("verdict", tmWhen);
        answer.Add("path", query.strPath).Add("key", query.strKey).Add("level", verdict.nLevel);
        answer.Add("verdict", verdict_level::Word(verdict.nLevel)).Add("owner", verdict.strOwner);
        m_output.Line(answer.Add("source", verdict.strSource).Text());
    }
}

void JsonLines::Write(const ModuleNoted& event, int64_t tmWhen) {
    static const char* const REASONS[] = {"", "cached", "stat_failed", "unreadable"};
    if (event.note.eNote == NOTE_NOT_SENT) {
        m_output.Line(Record("query_not_sent", tmWhen).Text());
    } else if (event.note.eNote != NOTE_ANALYSED) {
        JsonObject record = Record("skip", tmWhen);
        record.Add("path", event.note.strText).Add("reason", REASONS[event.note.eNote]);
        if (event.bChanged) {
            record.Add("changed", true);
        }
        m_output.Line(record.Text());
    }
}

void JsonLines::Write(const MessageAnalysed& event, int64_t tmWhen) {
    JsonObject record = Record("analysed", tmWhen);
    if (event.message.nNumber != 0) {  // of this pass, so that its unit is known
        record.Add(m_strUnit, event.message.nNumber);
    }
    m_output.Line(record.Add("events", event.message.nEvents).Text());
}

void JsonLines::Write(const ProgramJudged& event, int64_t tmWhen) {
    const int nLevel = event.verdict.nLevel;
    if (verdict_level::ClassOf(nLevel) == verdict_level::CLASS_BAD) {
        JsonObject record = Record("bad_run", tmWhen);
        record.Add("path", event.strProgram).Add("level", nLevel).Add("what", event.strWhat);
        m_output.Line(record.Add("file", event.strSubject).Add("cached", event.bCached).Text());
    }
}

void JsonLines::Write(const LaunchChanged& event, int64_t tmWhen) {
    JsonObject record = Record("changed", tmWhen);
    record.Add("path", event.strFile).Add("hashed_key", event.strHashedKey);
    m_output.Line(record.Add("key", event.strKey).Add("again", event.bAgain).Text());
}

void JsonLines::Write(const CentreRecord& event, int64_t tmWhen) {
    JsonObject record = Record("centre", tmWhen);
    m_output.Line(record.Add("type", event.nMsgType).Add("bytes", event.nBytes).Text());
}
