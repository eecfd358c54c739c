// What happens in a run in lines for people: lines as it goes, a block for each pass, a
// balance and a summary.
//
// Threads: as IRunListener. Errors: none but std::bad_alloc.
// Ownership: console, options and journal must outlive it.
#ifndef HOST_REPORT_RUNLINES_H
#define HOST_REPORT_RUNLINES_H

#include "host/account/RunJournal.h"
#include "host/base/Console.h"
#include "host/base/HostOptions.h"

class RunLines : public IRunListener {
public:
    RunLines(Console& output, const HostOptions& options, const RunJournal& journal)
        : m_output(output), m_options(options), m_journal(journal) {}

    void OnEvent(const RunEvent& event, int64_t tmWhen) override;

private:
    template <class Event>
    void Write(const Event&) {}
    void Write(const PassBegun& event);
    void Write(const PassEnded& event);
    void Write(const RunProgressed& event);
    void Write(const BalanceRequested& event);
    void Write(const RunEnded& event);
    void Write(const InputUnusable& event);
    void Write(const EventsDropped& event);
    void Write(const QueueChanged& event);
    void Write(const QueryReceived& event);
    void Write(const ModuleNoted& event);
    void Write(const CentreRecord& event);

    Console& m_output;
    const HostOptions& m_options;
    const RunJournal& m_journal;
};

#endif
