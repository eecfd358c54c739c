#include "host/run/ManagerSigns.h"

#include <string>

#include "host/base/HumanText.h"

void ManagerSigns::Turn(uint64_t nWaiting,
                        const std::optional<std::chrono::steady_clock::time_point>& lastWork) {
    if (!m_manager.IsWanted()) {
        return;
    }
    if (m_watchdog.IsSignDue(std::chrono::steady_clock::now(), nWaiting > 0, lastWork)) {
        m_manager.Send("WATCHDOG=1\nSTATUS=" + text::Count(nWaiting, "message") +
                       (nWaiting == 1 ? " waits" : " wait") + " for the module");
    }
    if (m_watchdog.IsModuleSilent() && !m_bSilenceReported) {
        m_manager.Send("STATUS=the module has shown no activity for ten minutes");
        m_journal.Record(ModuleSilent{});
    }
    m_bSilenceReported = m_watchdog.IsModuleSilent();
}
