// Keeps the metrics file of a run: written from its begin to its end.
//
// Threads: OnEvent's begin and end on the control thread; the file has a thread of its own.
// Errors: a file that cannot be written is reported once, and again when writing had worked in
// between. Ownership: console and journal must outlive it.
#ifndef HOST_REPORT_METRICSLISTENER_H
#define HOST_REPORT_METRICSLISTENER_H

#include <chrono>
#include <string>

#include "host/account/RunJournal.h"
#include "host/base/Console.h"
#include "host/report/metrics/MetricsFile.h"

class MetricsListener : public IRunListener {
public:
    MetricsListener(Console& output, const RunJournal& journal, const std::string& strFile,
                    std::chrono::milliseconds interval);

    void OnEvent(const RunEvent& event, int64_t tmWhen) override;

private:
    MetricsFile m_file;
};

#endif
