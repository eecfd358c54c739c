// The metrics of a watch: the one list of their names, types, labels and help texts, and what they
// are at a moment, as Prometheus reads it.
//
// Threads: any; no state. Errors: none but what the metrics library throws for memory.
#ifndef HOST_REPORT_METRICS_METRICSTEXT_H
#define HOST_REPORT_METRICS_METRICSTEXT_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/account/Balance.h"

namespace metrics_text {

struct Metric {
    const char* pszName;
    bool bCounter;         // else a gauge
    const char* pszLabel;  // the name of its label, or the names of two with a comma; "" for none
    const char* pszHelp;
};

const std::vector<Metric>& All();

// Every metric of the list in Prometheus' text format. tmStart: when the run began.
std::string Text(const Balance& balance, int64_t tmStart);

}  // namespace metrics_text

#endif
