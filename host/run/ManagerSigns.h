// What is reported to the service manager: that the run is ready, signs of life while the module
// shows some, and that the run ends.
//
// Threads: the control thread. Errors: none; without a service manager nothing is sent.
// Ownership: the journal must outlive it.
#ifndef HOST_RUN_MANAGERSIGNS_H
#define HOST_RUN_MANAGERSIGNS_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "host/account/RunJournal.h"
#include "host/process/SystemdNotifier.h"
#include "host/process/Watchdog.h"

class ManagerSigns {
public:
    explicit ManagerSigns(RunJournal& journal)
        : m_journal(journal), m_watchdog(m_manager.Watchdog()) {}

    void Ready() const { m_manager.Send("READY=1"); }
    void Stopping() const { m_manager.Send("STOPPING=1"); }
    // nWaiting messages wait for the module, which was last active at lastWork.
    void Turn(uint64_t nWaiting,
              const std::optional<std::chrono::steady_clock::time_point>& lastWork);

private:
    RunJournal& m_journal;
    const SystemdNotifier m_manager;
    Watchdog m_watchdog;
    bool m_bSilenceReported = false;
};

#endif
