#include "host/report/RunListeners.h"

#include "host/report/DiagnosticLines.h"
#include "host/report/JsonLines.h"
#include "host/report/MetricsListener.h"
#include "host/report/Recorder.h"
#include "host/report/WatchLines.h"

RunListeners MakeRunListeners(Console& output, const HostOptions& options,
                              const RunJournal& journal) {
    RunListeners listeners;
    listeners.push_back(std::make_unique<DiagnosticLines>(output));
    if (options.bJson) {
        listeners.push_back(std::make_unique<JsonLines>(output, options, journal));
    } else {
        listeners.push_back(std::make_unique<RunLines>(output, options, journal));
    }
    return listeners;
}

// The metrics last: their final numbers are written when all is said.
RunListeners MakeWatchListeners(Console& output, const HostOptions& options,
                                const RunJournal& journal, const WatchOptions& watch) {
    RunListeners listeners;
    listeners.push_back(std::make_unique<DiagnosticLines>(output));
    if (options.bJson) {
        listeners.push_back(std::make_unique<JsonLines>(output, options, journal));
    } else {
        listeners.push_back(std::make_unique<WatchLines>(output, options, journal, watch.bPlain));
    }
    if (watch.pRecord != nullptr) {
        listeners.push_back(std::make_unique<Recorder>(output, watch.pRecord));
    }
    if (!watch.strMetricsFile.empty()) {
        listeners.push_back(std::make_unique<MetricsListener>(output, journal, watch.strMetricsFile,
                                                              watch.metricsInterval));
    }
    return listeners;
}
