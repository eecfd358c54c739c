#include "host/report/DiagnosticLines.h"

#include "host/base/EscapedText.h"
#include "host/report/text/EventLine.h"

void DiagnosticLines::OnEvent(const RunEvent& event, int64_t /*tmWhen*/) {
    std::visit([this](const auto& happened) { Write(happened); }, event);
}

void DiagnosticLines::Write(const InputDelivered&) {
    m_output.Error(
        "tevmon-host: everything is delivered; Ctrl-C ends the run (--drain would "
        "end it when the queue is empty)");
}

void DiagnosticLines::Write(const QueueStalled&) {
    m_output.Error(
        "tevmon-host: the queue has not moved for a while; see its first "
        "message with: tevmon-host queue list");
}

void DiagnosticLines::Write(const ModuleSilent&) {
    m_output.Error(
        "tevmon-host: the module has shown no activity for ten minutes while messages wait; "
        "the service manager gets no more signs of life");
}

void DiagnosticLines::Write(const ModuleLogged& event) {
    m_output.Error(event_line::ModuleLog(event.line));
}

void DiagnosticLines::Write(const ModulePrinted& event) {
    m_output.Error(text::ForTerminal(event.strLine));
}
