#include "host/report/RunLines.h"

#include "host/report/text/BalanceText.h"
#include "host/report/text/EventLine.h"
#include "host/report/text/RunText.h"
#include "host/verdict/VerdictLevel.h"

void RunLines::OnEvent(const RunEvent& event, int64_t /*tmWhen*/) {
    std::visit([this](const auto& happened) { Write(happened); }, event);
}

void RunLines::Write(const PassBegun& event) {
    m_output.Line(run_text::Heading(m_output, event.pass));
}

void RunLines::Write(const PassEnded& event) {
    m_output.Progress("");
    if (event.pass.nPasses > 1) {
        m_output.Line(run_text::Text(m_output, event.result.counters, event.result.dSeconds));
    }
}

void RunLines::Write(const RunProgressed& event) {
    if (m_output.HasProgress()) {
        m_output.Progress(event_line::Progress(event.strDoing, m_journal.PassCounters()));
    }
}

void RunLines::Write(const BalanceRequested& event) {
    m_output.Line(balance_text::Text(m_output, event.balance));
}

void RunLines::Write(const RunEnded& event) {
    m_output.Progress("");
    m_output.Line(balance_text::Text(m_output, event.balance));
    m_output.Line(run_text::SummaryHeading(m_output, event.end));
    m_output.Line(event.passes.size() > 1
                      ? run_text::PassTable(m_output, event.passes)
                      : run_text::Text(m_output, event.total.counters, event.total.dSeconds));
    m_output.Line(run_text::QueueLine(event.end));
}

void RunLines::Write(const InputUnusable& event) {
    m_output.Complain(event_line::Input(event));
}

void RunLines::Write(const EventsDropped& event) {
    m_output.Line(verdict_row::Text(m_output, event_line::Dropped(event)));
}

void RunLines::Write(const QueueChanged& event) {
    m_output.Line(event_line::Queue(m_output, event.load));
}

// Packaged programs are the many that nobody needs to look at.
void RunLines::Write(const QueryReceived& event) {
    const bool bVerdict = event.eFate == QUERY_ANSWERED || event.eFate == QUERY_KNOWN;
    if (bVerdict && event.verdict.nLevel == verdict_level::PACKAGED && !m_options.bVerbose) {
        return;
    }
    m_output.Line(
        bVerdict ? run_text::VerdictLine(m_output, event.query, event.verdict)
                 : run_text::QueryLine(m_output, event.query, event_line::FateWord(event.eFate)));
}

void RunLines::Write(const ModuleNoted& event) {
    if (m_options.bVerbose && event.note.eNote == NOTE_CACHED) {
        m_output.Line(run_text::SkipLine(m_output, event.note.strText));
    }
}

void RunLines::Write(const CentreRecord& event) {
    m_output.Line(event_line::Centre(event));
}
