// One run of a module from loading to unloading, fed by event sources: what the commands replay,
// scan and watch share.
//
// Threads: the control thread.
// Errors: an exit code, after a text on standard error that names what is wrong and what to do.
#ifndef HOST_RUN_RUNSESSION_H
#define HOST_RUN_RUNSESSION_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/base/Console.h"
#include "host/base/ExitCodes.h"
#include "host/base/HostOptions.h"
#include "host/event/IEventSource.h"
#include "host/module/PluginLoader.h"
#include "host/module/QueueLimiter.h"
#include "host/process/ShutdownSignal.h"
#include "host/process/SystemdNotifier.h"
#include "host/process/Watchdog.h"
#include "host/report/RunReport.h"
#include "host/transport/Router.h"
#include "host/verdict/VerdictService.h"

struct RunOptions {
    std::vector<std::string> blockLists;
    std::vector<std::string> allowLists;
    bool bPackages = true;
    double dForSeconds = 0;     // the run's time limit, 0 for none
    bool bDrain = false;        // end when everything delivered was looked at and answered
    int nPasses = 1;            // a pass begins when the one before is drained
    std::string strUnit;        // what the source numbers: "line" or "batch"
    double dSettleSeconds = 0;  // after dForSeconds, to wait for the module to look at the rest
    int nNoSourceCode = EXIT_CODE_INPUT;  // when the source cannot be started
    bool bKeepPrivileges = false;
    QueueLimits queue;
    bool bRefuseWhenFull = false;  // messages beyond the limits, rather than wait for room
    // A new source for each pass.
    std::function<std::unique_ptr<IEventSource>(SourceRemark)> fnMakeSource;
    // The run's report, when it is another than RunReport; it goes after the source.
    std::function<std::unique_ptr<RunReport>(Console&, const HostOptions&, const VerdictService&)>
        fnMakeReport;
};

class RunSession {
public:
    RunSession(const HostOptions& global, RunOptions options);

    int Run();  // an ExitCode

private:
    enum DrainResult { DRAINED, DRAIN_ENDED, DRAIN_UNREADABLE };

    bool LoadVerdicts();
    bool LoadList(const std::string& strFile, int nLevel);
    bool StartSource();
    int RunModule();
    int RunPasses();
    void Deliver();
    void HandOver(EventBatch& batch);
    bool TakeRoom(const EventBatch& batch);
    void Turn();
    void WatchQueue();
    void TellManager();
    void CountAnalysed();
    void Wait();  // for the end of a run without bDrain
    DrainResult Drain();
    void EndModule();
    void TidyUpDatabases();
    void Summarise();
    bool MustEnd() const;
    int Fail(int nExitCode, const std::string& strError);
    std::string Doing(const std::string& strWhat) const;

    const HostOptions m_global;
    const RunOptions m_options;
    const SystemdNotifier m_manager;
    Watchdog m_health;
    ShutdownSignal m_stop;
    Console m_output;
    VerdictService m_service;
    const std::unique_ptr<RunReport> m_pReport;
    std::unique_ptr<IEventSource> m_pSource;
    std::unique_ptr<Router> m_pRouter;
    QueueLimiter m_queue;
    uint64_t m_nAnalysed = 0;                           // of the pass, as far as m_queue was told
    std::chrono::steady_clock::time_point m_queueLook;  // when the queue was looked into
    PluginLoader m_loader;                              // goes before the router
    std::optional<std::chrono::steady_clock::time_point> m_due;
    PassInfo m_pass;
    bool m_bDrained = false;
    bool m_bToldSilence = false;
};

#endif
