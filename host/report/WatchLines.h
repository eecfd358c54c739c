// What happens in a watch in lines for people, or in the rows of a screen while the terminal is
// drawn: programs judged, what was lost, the balance; the rest as in every run.
//
// Threads: as IRunListener. Errors: none but std::bad_alloc.
// Ownership: console, options and journal must outlive it.
#ifndef HOST_REPORT_WATCHLINES_H
#define HOST_REPORT_WATCHLINES_H

#include <memory>

#include "host/report/RunLines.h"
#include "host/report/screen/LiveScreen.h"
#include "host/report/text/VerdictRow.h"

class WatchLines : public IRunListener {
public:
    // bPlain: lines also on a terminal.
    WatchLines(Console& output, const HostOptions& options, const RunJournal& journal, bool bPlain)
        : m_output(output),
          m_options(options),
          m_journal(journal),
          m_bPlain(bPlain),
          m_common(output, options, journal) {}

    void OnEvent(const RunEvent& event, int64_t tmWhen) override;

private:
    // Whether the event is done with; else it has the line that every run has for it.
    template <class Event>
    bool Take(const Event&) {
        return false;
    }
    bool Take(const RunBegun& event);
    bool Take(const PassBegun& event);
    bool Take(const RunProgressed& event);
    bool Take(const RunEnding& event);
    bool Take(const LaunchUnresolved& event);
    bool Take(const LaunchesLost& event);
    bool Take(const FileQueueOverflowed& event);
    bool Take(const SensorNotice& event);
    bool Take(const EventsDropped& event);
    bool Take(const QueryReceived& event);
    bool Take(const ModuleNoted& event);
    bool Take(const ProgramJudged& event);
    bool Take(const LaunchChanged& event);

    void Show(const VerdictRow& row);
    ScreenNumbers HeadNumbers() const;

    Console& m_output;
    const HostOptions& m_options;
    const RunJournal& m_journal;
    const bool m_bPlain;
    RunLines m_common;
    // Last: its thread reads the numbers. While the terminal is drawn.
    std::unique_ptr<LiveScreen> m_pScreen;
};

#endif
