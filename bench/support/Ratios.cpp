#include "bench/support/Ratios.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <utility>
#include <vector>

namespace {

constexpr double NOTHING = std::numeric_limits<double>::infinity();

struct Pair {
    Comparison comparison;
    double dSubject = NOTHING;  // nanoseconds, or bytes
    double dReference = NOTHING;
    bool bBytes = false;
};

// Where the figures of one registered benchmark go.
struct Side {
    Pair* pPair;
    double* pBest;
};

std::vector<Pair>& Pairs() {
    static std::vector<Pair> s_pairs;
    return s_pairs;
}

// Keeps the fastest repetition of each side and prints nothing but failures.
class FastestReporter : public benchmark::BenchmarkReporter {
public:
    explicit FastestReporter(std::map<std::string, Side> sides) : m_sides(std::move(sides)) {}

    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                fprintf(stderr, "%s: %s\n", run.run_name.function_name.c_str(),
                        run.error_message.c_str());
                bFailed = true;
            } else if (run.run_type == Run::RT_Iteration) {
                Keep(run);
            }
        }
    }

    bool bFailed = false;

private:
    void Keep(const Run& run) {
        const auto found = m_sides.find(run.run_name.function_name);
        if (found == m_sides.end()) {
            return;
        }
        Pair& pair = *found->second.pPair;
        const auto bytes = run.counters.find("bytes");
        pair.bBytes = bytes != run.counters.end();
        const double dOperations = static_cast<double>(std::max<int64_t>(run.iterations, 1)) *
                                   static_cast<double>(pair.comparison.nOperations);
        const double dValue = pair.bBytes ? static_cast<double>(bytes->second)
                                          : run.cpu_accumulated_time / dOperations * 1e9;
        *found->second.pBest = std::min(*found->second.pBest, dValue);
    }

    std::map<std::string, Side> m_sides;
};

std::string Figure(double dValue, bool bBytes) {
    char text[64];
    if (bBytes) {
        snprintf(text, sizeof(text), "%.0f KiB", dValue / 1024);
    } else if (dValue < 100000) {
        snprintf(text, sizeof(text), "%.2f us", dValue / 1e3);
    } else {
        snprintf(text, sizeof(text), "%.2f ms", dValue / 1e6);
    }
    return text;
}

void PrintPair(const Pair& pair, bool bJson) {
    const double dRatio = pair.dSubject / pair.dReference;
    const double dTarget = pair.comparison.dTarget;
    const char* pszVerdict = dTarget == 0 ? "" : dRatio <= dTarget ? "met" : "MISSED";
    if (bJson) {
        printf(
            "{\"case\":\"%s\",\"unit\":\"%s\",\"subject\":%.1f,\"reference\":%.1f,"
            "\"ratio\":%.3f,\"target\":%.2f,\"verdict\":\"%s\"}\n",
            pair.comparison.strName.c_str(), pair.bBytes ? "bytes" : "ns", pair.dSubject,
            pair.dReference, dRatio, dTarget, pszVerdict);
        return;
    }
    char target[16] = "";
    if (dTarget != 0) {
        snprintf(target, sizeof(target), "%.2f", dTarget);
    }
    printf("%-62s %12s %12s %7.3f %6s %s\n", pair.comparison.strName.c_str(),
           Figure(pair.dSubject, pair.bBytes).c_str(), Figure(pair.dReference, pair.bBytes).c_str(),
           dRatio, target, pszVerdict);
}

// The options of every run; the caller's come after them and win.
std::vector<char*> WithDefaults(int nArgs, char** ppszArgs, bool& bJson) {
    static char s_mixed[] = "--benchmark_enable_random_interleaving=true";
    static char s_repetitions[] = "--benchmark_repetitions=31";
    static char s_minimum[] = "--benchmark_min_time=0.02";
    std::vector<char*> args = {ppszArgs[0], s_mixed, s_repetitions, s_minimum};
    for (int i = 1; i < nArgs; ++i) {
        if (strcmp(ppszArgs[i], "--json") == 0) {
            bJson = true;
        } else {
            args.push_back(ppszArgs[i]);
        }
    }
    return args;
}

}  // namespace

bool Compare(Comparison comparison) {
    Pair pair;
    pair.comparison = std::move(comparison);
    Pairs().push_back(std::move(pair));
    return true;
}

int main(int nArgs, char** ppszArgs) {
    bool bJson = false;
    std::vector<char*> args = WithDefaults(nArgs, ppszArgs, bJson);
    int nCount = static_cast<int>(args.size());
    benchmark::Initialize(&nCount, args.data());
    if (benchmark::ReportUnrecognizedArguments(nCount, args.data())) {
        return 2;
    }
    std::map<std::string, Side> sides;
    for (Pair& pair : Pairs()) {
        const std::string strSubject = pair.comparison.strName + " (subject)";
        const std::string strReference = pair.comparison.strName + " (reference)";
        benchmark::RegisterBenchmark(strSubject.c_str(), pair.comparison.subject);
        benchmark::RegisterBenchmark(strReference.c_str(), pair.comparison.reference);
        sides[strSubject] = {&pair, &pair.dSubject};
        sides[strReference] = {&pair, &pair.dReference};
    }
    FastestReporter reporter(std::move(sides));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const Pair& pair : Pairs()) {
        if (pair.dSubject != NOTHING && pair.dReference != NOTHING) {
            PrintPair(pair, bJson);
        }
    }
    return reporter.bFailed ? 1 : 0;
}
