// What a run is asked for: the commands replay, scan and watch fill it in.
#ifndef HOST_RUN_RUNOPTIONS_H
#define HOST_RUN_RUNOPTIONS_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/base/Console.h"
#include "host/base/HostOptions.h"
#include "host/event/IEventSource.h"
#include "host/module/QueueLimiter.h"
#include "host/process/ExitCodes.h"
#include "host/report/RunListeners.h"
#include "host/run/JournalObservers.h"

struct RunOptions {
    std::vector<std::string> badLists;
    std::vector<std::string> goodLists;
    bool bPackages = true;
    double dForSeconds = 0;     // the run's time limit, 0 for none
    bool bDrain = false;        // end when everything delivered was analysed and answered
    int nPasses = 1;            // a pass begins when the one before is drained
    std::string strUnit;        // what the source numbers: "line" or "batch"
    double dSettleSeconds = 0;  // after dForSeconds, to wait for the module to look at the rest
    int nNoSourceCode = EXIT_CODE_INPUT;  // when the source cannot be started
    bool bKeepPrivileges = false;
    QueueLimits queue;
    bool bRefuseWhenFull = false;  // messages beyond the limits, rather than wait for room
    bool bWatch = false;           // as RunJournal has it
    uint64_t nLargestBatch = 0;    // events in one message at most, where a watch reports them
    // A new source for each pass.
    std::function<std::unique_ptr<IEventSource>(SourceRemark, SensorObserver&,
                                                const LaunchHolding&)>
        fnMakeSource;
    std::function<RunListeners(Console&, const HostOptions&, const RunJournal&)> fnMakeListeners =
        MakeRunListeners;
};

#endif
