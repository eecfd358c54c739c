#include "host/report/MetricsListener.h"

#include <ctime>

#include "host/report/metrics/MetricsText.h"

MetricsListener::MetricsListener(Console& output, const RunJournal& journal,
                                 const std::string& strFile, std::chrono::milliseconds interval)
    : m_file(
          strFile, interval,
          [&journal, tmStart = static_cast<int64_t>(time(nullptr))] {
              return metrics_text::Text(journal.CurrentBalance(journal.HasEnded()), tmStart);
          },
          [&output](const std::string& strError) { output.Complain(strError); }) {}

void MetricsListener::OnEvent(const RunEvent& event, int64_t /*tmWhen*/) {
    if (std::holds_alternative<RunBegun>(event)) {
        m_file.Begin();
    } else if (std::holds_alternative<RunEnded>(event)) {
        m_file.End();
    }
}
