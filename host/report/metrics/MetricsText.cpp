#include "host/report/metrics/MetricsText.h"
#include "host/verdict/VerdictLevel.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <utility>

namespace metrics_text {

namespace {

using Labels = std::vector<std::string>;  // values of the metric's labels
using Samples = std::vector<std::pair<Labels, double>>;

double Value(uint64_t nNumber) {
    return static_cast<double>(nNumber);
}

struct Moment {
    const Balance& balance;
    int64_t tmStart;
};

struct Entry {
    Metric metric;
    Samples (*pSamples)(const Moment& moment);
};

Samples Captured(const Moment& moment) {
    return {{{"launch"}, Value(moment.balance.launches.nCaptured)},
            {{"file"}, Value(moment.balance.files.nCaptured)}};
}

Samples CapturedFates(const Moment& moment) {
    const LaunchCounters& launches = moment.balance.launches;
    const FileCounters& files = moment.balance.files;
    return {{{"launch", "reported"}, Value(launches.nReported)},
            {{"launch", "repeated"}, Value(launches.nRepeated)},
            {{"launch", "unresolved"}, Value(launches.nUnresolved)},
            {{"launch", "lost"}, Value(launches.nLost)},
            {{"launch", "own"}, Value(launches.nOwn)},
            {{"launch", "broken"}, Value(launches.nBroken)},
            {{"file", "reported"}, Value(files.nReported)},
            {{"file", "unwatched"}, Value(files.nUnwatched)},
            {{"file", "unresolved"}, Value(files.nUnresolved)},
            {{"file", "own"}, Value(files.nOwn)}};
}

Samples Overflows(const Moment& moment) {
    return {{{}, Value(moment.balance.files.nOverflows)}};
}

Samples Flaws(const Moment& moment) {
    const LaunchCounters& launches = moment.balance.launches;
    return {{{"script_unreported"}, Value(launches.nScriptsUnreported)},
            {{"args_cut"}, Value(launches.nArgsCut)},
            {{"args_unreadable"}, Value(launches.nArgsUnreadable)},
            {{"processes_lost"}, Value(launches.nOthersLost)},
            {{"changed"}, Value(moment.balance.module.nChanged)},
            {{"not_held"}, Value(launches.nNotHeld)},
            {{"fresh"}, Value(launches.nFresh)},
            {{"files_no_program"}, Value(moment.balance.files.nNoProgram)},
            {{"files_found"}, Value(moment.balance.files.nFound)},
            {{"files_gone"}, Value(moment.balance.files.nGone)},
            {{"files_broken"}, Value(moment.balance.files.nBroken)}};
}

Samples FileEvents(const Moment& moment) {
    return {{{}, Value(moment.balance.files.nEvents)}};
}

Samples FileSeconds(const Moment& moment) {
    return {{{}, Value(moment.balance.files.nCaptureMicros) / 1e6}};
}

Samples Reported(const Moment& moment) {
    return {{{"launch"}, Value(moment.balance.launches.nReported)},
            {{"script"}, Value(moment.balance.launches.nScripts)},
            {{"again"}, Value(moment.balance.launches.nAgain)},
            {{"file"}, Value(moment.balance.files.nReported)}};
}

Samples EventFates(const Moment& moment) {
    const LedgerState& events = moment.balance.events;
    return {{{"refused"}, Value(events.nRefused)},
            {{"not_stored"}, Value(events.nNotStored)},
            {{"analysed"}, Value(events.nAnalysed)},
            {{"analysed_earlier"}, Value(events.nEarlierAnalysed)}};
}

Samples EventsWaiting(const Moment& moment) {
    return {{{}, Value(moment.balance.events.nWaiting)}};
}

Samples MessagesWaiting(const Moment& moment) {
    return {{{"this"}, Value(moment.balance.events.nWaitingMessages)},
            {{"earlier"}, Value(moment.balance.events.nEarlierWaiting)}};
}

Samples Ignored(const Moment& moment) {
    return {{{}, Value(moment.balance.events.nIgnored)}};
}

Samples ExpectedEnds(const Moment& moment) {
    const LedgerState& events = moment.balance.events;
    return {
        {{"queried"}, Value(events.nQueried)},        {{"cached"}, Value(events.nCached)},
        {{"vanished"}, Value(events.nVanished)},      {{"unreadable"}, Value(events.nUnreadable)},
        {{"stat_failed"}, Value(events.nStatFailed)}, {{"known_maker"}, Value(events.nKnownMaker)}};
}

Samples Unmatched(const Moment& moment) {
    return {{{}, Value(moment.balance.events.nUnmatched)}};
}

Samples ExpectedMissing(const Moment& moment) {
    return {{{}, Value(moment.balance.events.nMissing)}};
}

Samples QueryFates(const Moment& moment) {
    const RunCounters& module = moment.balance.module;
    return {{{"answered"}, Value(module.nAnswers)},
            {{"known"}, Value(module.nKnown)},
            {{"no_key"}, Value(module.nNoKey)},
            {{"lost"}, Value(module.nLost)}};
}

Samples QueriesNotSent(const Moment& moment) {
    return {{{}, Value(moment.balance.module.nNotSent)}};
}

Samples Answers(const Moment& moment) {
    std::map<int, uint64_t> byLevel;
    for (const int nLevel : verdict_level::GIVEN) {
        byLevel[nLevel] = 0;
    }
    for (const auto& entry : moment.balance.module.answersByLevel) {
        byLevel[entry.first] = entry.second;
    }
    Samples samples;
    for (const auto& entry : byLevel) {
        samples.push_back({{std::to_string(entry.first)}, Value(entry.second)});
    }
    return samples;
}

Samples Outstanding(const Moment& moment) {
    return {{{}, Value(moment.balance.Outstanding())}};
}

Samples BadRuns(const Moment& moment) {
    return {{{}, Value(moment.balance.module.nBadRuns)}};
}

Samples HashedBytes(const Moment& moment) {
    return {{{}, Value(moment.balance.module.nHashedBytes)}};
}

Samples Unexplained(const Moment& moment) {
    return {{{}, Value(moment.balance.Unexplained())}};
}

Samples StartTime(const Moment& moment) {
    return {{{}, static_cast<double>(moment.tmStart)}};
}

const std::vector<Entry>& Entries() {
    static const std::vector<Entry> ENTRIES = {
        // clang-format off
        {{"tevmon_captured_total", true, "source", "Launches and file operations that the kernel had, lost launches included."}, Captured},
        {{"tevmon_captured_fate_total", true, "source,fate", "What became of what was captured."}, CapturedFates},
        {{"tevmon_file_queue_overflows_total", true, "", "Times that the kernel's queue of file operations was full; what it lost is not known."}, Overflows},
        {{"tevmon_file_events_total", true, "", "Events of the kernel about files; some hold several operations, some none."}, FileEvents},
        {{"tevmon_file_capture_seconds_total", true, "", "Processor time spent on them until they are reported."}, FileSeconds},
        {{"tevmon_flaws_total", true, "flaw", "Events reported with something missing, and scripts not reported."}, Flaws},
        {{"tevmon_reported_total", true, "kind", "Events reported to the module."}, Reported},
        {{"tevmon_events_total", true, "fate", "What became of the events sent to the module: refused by the router or the bound, never stored, or analysed, those of earlier runs apart."}, EventFates},
        {{"tevmon_events_waiting", false, "", "Events of this run that wait in the module's queue."}, EventsWaiting},
        {{"tevmon_messages_waiting", false, "run", "Messages that wait in the module's queue, of this run and of earlier ones."}, MessagesWaiting},
        {{"tevmon_events_ignored_total", true, "", "Events analysed about which the module queries nothing."}, Ignored},
        {{"tevmon_expected_queries_total", true, "end", "How the queries ended that events give reason for."}, ExpectedEnds},
        {{"tevmon_expected_queries_missing", false, "", "Expected queries that are missing so far."}, ExpectedMissing},
        {{"tevmon_unmatched_total", true, "", "Queries and log records of the module that match no expected query."}, Unmatched},
        {{"tevmon_queries_total", true, "fate", "What became of the queries that came."}, QueryFates},
        {{"tevmon_queries_not_sent_total", true, "", "Queries that the module could not send."}, QueriesNotSent},
        {{"tevmon_answers_total", true, "level", "Answers given to queries, by verdict level."}, Answers},
        {{"tevmon_queries_outstanding", false, "", "Queries that an answer is due for."}, Outstanding},
        {{"tevmon_bad_runs_total", true, "", "Times that a program with a bad verdict was launched or acted."}, BadRuns},
        {{"tevmon_hashed_bytes_total", true, "", "Sizes of the programs hashed for launches, as far as they are named."}, HashedBytes},
        {{"tevmon_unexplained", false, "", "What does not add up in all this; anything but 0 is an error."}, Unexplained},
        {{"tevmon_start_time_seconds", false, "", "When this run began, in seconds since the epoch."}, StartTime},
        // clang-format on
    };
    return ENTRIES;
}

std::vector<std::string> LabelNames(const std::string& strLabel) {
    const size_t nComma = strLabel.find(',');
    if (nComma == std::string::npos) {
        return {strLabel};
    }
    return {strLabel.substr(0, nComma), strLabel.substr(nComma + 1)};
}

prometheus::MetricFamily Family(const Entry& entry, const Moment& moment) {
    prometheus::MetricFamily family;
    family.name = entry.metric.pszName;
    family.help = entry.metric.pszHelp;
    family.type =
        entry.metric.bCounter ? prometheus::MetricType::Counter : prometheus::MetricType::Gauge;
    const std::vector<std::string> names = LabelNames(entry.metric.pszLabel);
    for (const auto& sample : entry.pSamples(moment)) {
        prometheus::ClientMetric metric;
        for (size_t i = 0; i < sample.first.size(); ++i) {
            metric.label.push_back({names[i], sample.first[i]});
        }
        (entry.metric.bCounter ? metric.counter.value : metric.gauge.value) = sample.second;
        family.metric.push_back(std::move(metric));
    }
    return family;
}

}  // namespace

const std::vector<Metric>& All() {
    static const std::vector<Metric> METRICS = [] {
        std::vector<Metric> metrics;
        for (const Entry& entry : Entries()) {
            metrics.push_back(entry.metric);
        }
        return metrics;
    }();
    return METRICS;
}

std::string Text(const Balance& balance, int64_t tmStart) {
    const Moment moment = {balance, tmStart};
    std::vector<prometheus::MetricFamily> families;
    for (const Entry& entry : Entries()) {
        families.push_back(Family(entry, moment));
    }
    return prometheus::TextSerializer().Serialize(families);
}

}  // namespace metrics_text
