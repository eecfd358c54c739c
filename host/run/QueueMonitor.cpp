#include "host/run/QueueMonitor.h"

#include <utility>

#include "host/database/DatabaseProbe.h"
#include "host/database/ModuleDatabase.h"

namespace {

constexpr std::chrono::milliseconds BETWEEN_CORRECTIONS(5000);

}  // namespace

QueueMonitor::QueueMonitor(std::string strFile, const QueueLimits& limits, RunJournal& journal)
    : m_strFile(std::move(strFile)), m_journal(journal), m_limiter(limits) {}

void QueueMonitor::Begin() {
    m_limiter.Begin(Depth().value_or(0), ModuleDatabase(m_strFile).UsedBytes());
}

void QueueMonitor::Turn() {
    CountAnalysed();
    for (const QueueLoad& load : m_limiter.TakeChanges()) {
        m_journal.Record(QueueChanged{load});
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - m_corrected < BETWEEN_CORRECTIONS) {
        return;
    }
    m_corrected = now;
    const auto depth = Depth();
    if (depth) {
        m_limiter.Correct(*depth);
    }
}

std::optional<uint64_t> QueueMonitor::Depth() const {
    return database_probe::QueueDepth(m_strFile);
}

// The journal counts the messages whose analysis begins, from the beginning of each pass.
void QueueMonitor::CountAnalysed() {
    const uint64_t nAnalysed = m_journal.PassCounters().nAnalysed;
    for (uint64_t i = nAnalysed < m_nAnalysed ? 0 : m_nAnalysed; i < nAnalysed; ++i) {
        m_limiter.Analysed();
    }
    m_nAnalysed = nAnalysed;
}
