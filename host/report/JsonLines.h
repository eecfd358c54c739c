// One JSON object a line for what happens in a run, as --json asks.
//
// Threads: as IRunListener. Errors: none but std::bad_alloc.
// Ownership: console, options and journal must outlive it.
#ifndef HOST_REPORT_JSONLINES_H
#define HOST_REPORT_JSONLINES_H

#include <string>

#include "host/account/RunJournal.h"
#include "host/base/Console.h"
#include "host/base/HostOptions.h"
#include "host/base/JsonWriter.h"

class JsonLines : public IRunListener {
public:
    JsonLines(Console& output, const HostOptions& options, const RunJournal& journal)
        : m_output(output), m_options(options), m_journal(journal) {}

    void OnEvent(const RunEvent& event, int64_t tmWhen) override;

private:
    template <class Event>
    void Write(const Event&, int64_t) {}
    void Write(const RunBegun& event, int64_t tmWhen);
    void Write(const PassBegun& event, int64_t tmWhen);
    void Write(const PassEnded& event, int64_t tmWhen);
    void Write(const RunProgressed& event, int64_t tmWhen);
    void Write(const BalanceRequested& event, int64_t tmWhen);
    void Write(const RunEnded& event, int64_t tmWhen);
    void Write(const InputUnusable& event, int64_t tmWhen);
    void Write(const LaunchReported& event, int64_t tmWhen);
    void Write(const LaunchRepeated& event, int64_t tmWhen);
    void Write(const LaunchUnresolved& event, int64_t tmWhen);
    void Write(const LaunchesLost& event, int64_t tmWhen);
    void Write(const FileOperationReported& event, int64_t tmWhen);
    void Write(const FileQueueOverflowed& event, int64_t tmWhen);
    void Write(const SensorNotice& event, int64_t tmWhen);
    void Write(const BatchEnded& event, int64_t tmWhen);
    void Write(const EventsDropped& event, int64_t tmWhen);
    void Write(const QueueChanged& event, int64_t tmWhen);
    void Write(const QueryReceived& event, int64_t tmWhen);
    void Write(const ModuleNoted& event, int64_t tmWhen);
    void Write(const MessageAnalysed& event, int64_t tmWhen);
    void Write(const ProgramJudged& event, int64_t tmWhen);
    void Write(const LaunchChanged& event, int64_t tmWhen);
    void Write(const CentreRecord& event, int64_t tmWhen);
    void WriteLaunch(const Launch& launch, bool bRepeated, int64_t tmWhen);
    void WriteBalance(const Balance& balance, int64_t tmWhen);

    Console& m_output;
    const HostOptions& m_options;
    const RunJournal& m_journal;
    std::string
        m_strUnit;  // what is delivered: a "line", a "batch"; set before anything of the pass is
};

#endif
