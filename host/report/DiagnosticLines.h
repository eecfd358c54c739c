// What every run says on standard error, whatever form its results have: what the module logs and
// prints, and what holds the run up.
//
// Threads: as IRunListener. Errors: none but std::bad_alloc.
// Ownership: the console must outlive it.
#ifndef HOST_REPORT_DIAGNOSTICLINES_H
#define HOST_REPORT_DIAGNOSTICLINES_H

#include "host/account/IRunListener.h"
#include "host/base/Console.h"

class DiagnosticLines : public IRunListener {
public:
    explicit DiagnosticLines(Console& output) : m_output(output) {}

    void OnEvent(const RunEvent& event, int64_t tmWhen) override;

private:
    template <class Event>
    void Write(const Event&) {}
    void Write(const InputDelivered& event);
    void Write(const QueueStalled& event);
    void Write(const ModuleSilent& event);
    void Write(const ModuleLogged& event);
    void Write(const ModulePrinted& event);

    Console& m_output;
};

#endif
