// Tells the user what happens in a run: lines as it goes, a block for each pass, a summary; or,
// with --json, one record for each of them.
//
// Threads: the observer calls and OnDelivered from any thread, the rest on the control thread.
//   One mutex guards the counters; it is not held while a line is written.
// Errors: nothing throws but std::bad_alloc.
#ifndef HOST_REPORT_RUNREPORT_H
#define HOST_REPORT_RUNREPORT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/account/RunCounters.h"
#include "host/account/RunFacts.h"
#include "host/base/Console.h"
#include "host/base/HostOptions.h"
#include "host/base/Mutex.h"
#include "host/cloud/CloudEndpoint.h"
#include "host/event/IEventSource.h"
#include "host/module/ModuleLog.h"
#include "host/module/QueueLimiter.h"
#include "host/transport/IEndpoint.h"

class RunReport : public ICloudObserver, public IModuleLogObserver, public IEndpoint {
public:
    RunReport(Console& output, const HostOptions& options);

    virtual void Begin(const std::string& strModule);
    virtual void BeginPass(const PassInfo& pass);
    void EndPass(bool bDrained);
    virtual void Summary(const RunEnd& end);
    virtual void Balance() {}  // the user asked for it in the middle of the run
    virtual void Progress(const std::string& strDoing);
    // The queue became full, nearly full, or normal again.
    void OnQueue(const QueueLoad& load);

    void OnRemark(uint64_t nNumber, const std::string& strText);
    virtual void OnDelivered(const EventBatch& batch, uint32_t nResult);
    RunCounters PassCounters() const;

    void OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) override;
    void OnModuleNote(const ModuleRecord& note) override;
    // The centre: counts its records and answers nothing.
    std::string OnMessage(const Guid& sender, int64_t nMsgType,
                          const std::string& strBody) override;

protected:
    void CountQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict);
    void WriteQueryJson(const CloudQuery& query, QueryFate eFate, const Verdict& verdict);
    virtual void WriteQueryLine(const CloudQuery& query, QueryFate eFate, const Verdict& verdict);
    void SetPass(const PassInfo& pass);
    void CountNote(const ModuleRecord& note);
    virtual void WriteNote(const ModuleRecord& note);
    RunCounters TotalCounters() const;  // of all passes

    Console& m_output;
    const HostOptions& m_options;

private:
    PassInfo m_pass;
    RunCounters::Clock::time_point m_passBegun;
    RunCounters::Clock::time_point m_runBegun;
    std::vector<PassResult> m_passes;  // the first few that ended
    mutable Mutex m_mutex;
    RunCounters m_counters TEV_GUARDED_BY(m_mutex);  // of the pass
    RunCounters m_total TEV_GUARDED_BY(m_mutex);     // of the passes before
};

#endif
