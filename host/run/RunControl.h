// When a run has to end: a signal, its time limit, or standard output that is of no use any more.
//
// Threads: the control thread.
// Errors: none.
// Ownership: the console must outlive it.
#ifndef HOST_RUN_RUNCONTROL_H
#define HOST_RUN_RUNCONTROL_H

#include <chrono>
#include <optional>

#include "host/base/Console.h"
#include "host/process/ShutdownSignal.h"

class RunControl {
public:
    explicit RunControl(const Console& output) : m_output(output) {}

    // Takes the process's signals from now on.
    void Begin();
    // The run ends so many seconds from now; a limit that was set before no longer holds.
    void EndAfter(double dSeconds);

    bool MustEnd() const;
    bool HasLimit() const { return m_due.has_value(); }
    int Signal() const { return m_stop.Signal(); }  // 0 when none came
    bool TakeBalanceRequest() { return m_stop.TakeBalanceRequest(); }

    // Waits that long, shorter when a signal comes.
    void WaitFor(std::chrono::milliseconds wait) const { m_stop.WaitFor(wait); }

private:
    const Console& m_output;
    ShutdownSignal m_stop;
    std::optional<std::chrono::steady_clock::time_point> m_due;
};

#endif
