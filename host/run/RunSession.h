// One run of a module from loading to unloading, fed by event sources: what the commands replay,
// scan and watch share.
//
// Threads: the control thread.
// Errors: an exit code, after a text on standard error that names what is wrong and what to do.
#ifndef HOST_RUN_RUNSESSION_H
#define HOST_RUN_RUNSESSION_H

#include <chrono>
#include <memory>
#include <string>

#include "host/run/EventDelivery.h"
#include "host/run/ManagerSigns.h"
#include "host/run/ModuleSession.h"
#include "host/run/QueueMonitor.h"
#include "host/run/RunControl.h"
#include "host/run/RunOptions.h"

class RunSession {
public:
    RunSession(const HostOptions& global, RunOptions options);

    int Run();  // an ExitCode

private:
    bool StartSource();
    int RunModule();
    int RunPasses(ModuleSession& module, EventDelivery& delivery);
    void Deliver(EventDelivery& delivery);
    void Wait();  // for the end of a run without bDrain
    void Summarise();
    void Turn(const std::string& strDoing);
    int Fail(int nExitCode, const std::string& strError);

    const HostOptions m_global;
    const RunOptions m_options;
    Console m_output;
    RunControl m_control{m_output};
    VerdictService m_service;
    LaunchHolding m_holding;
    RunJournal m_journal;
    ManagerSigns m_signs{m_journal};
    const RunListeners m_listeners;
    ModuleObserver m_moduleObserver{m_journal};
    SensorObserver m_sensorObserver{m_journal};
    QueueMonitor m_queue;
    DigestRun m_digests{m_holding.lanes, m_journal};  // ends before what its threads call
    std::unique_ptr<IEventSource> m_pSource;
    std::chrono::steady_clock::time_point m_shown;  // when the progress was recorded
    PassInfo m_pass;
    bool m_bDrained = false;
};

#endif
