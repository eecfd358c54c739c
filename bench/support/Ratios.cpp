#include "bench/support/Ratios.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

namespace {

// Of one side, in the order of the repetitions: nanoseconds, or bytes.
using Figures = std::vector<double>;

struct Pair {
    Comparison comparison;
    Figures subject;
    Figures reference;
    bool bBytes = false;
};

// Where the figures of one registered benchmark go.
struct Side {
    Pair* pPair;
    Figures* pFigures;
};

double Best(const Figures& figures) {
    return *std::min_element(figures.begin(), figures.end());
}

double MedianRatio(const Pair& pair) {
    Figures ratios(std::min(pair.subject.size(), pair.reference.size()));
    for (size_t i = 0; i < ratios.size(); ++i) {
        ratios[i] = pair.subject[i] / pair.reference[i];
    }
    const auto middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
    std::nth_element(ratios.begin(), middle, ratios.end());
    return *middle;
}

std::vector<Pair>& Pairs() {
    static std::vector<Pair> s_pairs;
    return s_pairs;
}

// Keeps every repetition of each side and prints nothing but failures.
class KeepingReporter : public benchmark::BenchmarkReporter {
public:
    explicit KeepingReporter(std::map<std::string, Side> sides) : m_sides(std::move(sides)) {}

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
        const double dSeconds =
            pair.comparison.bWallTime ? run.real_accumulated_time : run.cpu_accumulated_time;
        const double dValue =
            pair.bBytes ? static_cast<double>(bytes->second) : dSeconds / dOperations * 1e9;
        found->second.pFigures->push_back(dValue);
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
    const double dSubject = Best(pair.subject);
    const double dReference = Best(pair.reference);
    const double dRatio = dSubject / dReference;
    const double dMedian = MedianRatio(pair);
    const double dTarget = pair.comparison.dTarget;
    const char* pszVerdict = dTarget == 0 ? "" : dRatio <= dTarget ? "met" : "MISSED";
    if (bJson) {
        printf(
            "{\"case\":\"%s\",\"unit\":\"%s\",\"subject\":%.1f,\"reference\":%.1f,"
            "\"ratio\":%.3f,\"median\":%.3f,\"target\":%.2f,\"verdict\":\"%s\"}\n",
            pair.comparison.strName.c_str(), pair.bBytes ? "bytes" : "ns", dSubject, dReference,
            dRatio, dMedian, dTarget, pszVerdict);
        return;
    }
    char target[16] = "";
    if (dTarget != 0) {
        snprintf(target, sizeof(target), "%.2f", dTarget);
    }
    printf("%-62s %12s %12s %7.3f %7.3f %6s %s\n", pair.comparison.strName.c_str(),
           Figure(dSubject, pair.bBytes).c_str(), Figure(dReference, pair.bBytes).c_str(), dRatio,
           dMedian, target, pszVerdict);
}

// The options of every run; the caller's come after them and win.
std::vector<char*> WithDefaults(int nArgs, char** ppszArgs, bool& bJson, bool& bList) {
    static char s_mixed[] = "--benchmark_enable_random_interleaving=true";
    static char s_repetitions[] = "--benchmark_repetitions=31";
    static char s_minimum[] = "--benchmark_min_time=0.02";
    std::vector<char*> args = {ppszArgs[0], s_mixed, s_repetitions, s_minimum};
    for (int i = 1; i < nArgs; ++i) {
        if (strcmp(ppszArgs[i], "--json") == 0) {
            bJson = true;
        } else if (strcmp(ppszArgs[i], "--list") == 0) {
            bList = true;
        } else {
            args.push_back(ppszArgs[i]);
        }
    }
    return args;
}

void Register(const std::string& strName, const Comparison& comparison,
              const Comparison::Side& side) {
    benchmark::internal::Benchmark* pBenchmark =
        benchmark::RegisterBenchmark(strName.c_str(), side);
    if (comparison.nRounds > 0) {
        pBenchmark->Repetitions(comparison.nRounds);
    }
    if (comparison.bWallTime) {
        pBenchmark->UseRealTime();
    }
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
    bool bList = false;
    std::vector<char*> args = WithDefaults(nArgs, ppszArgs, bJson, bList);
    if (bList) {
        for (const Pair& pair : Pairs()) {
            printf("%s\n", pair.comparison.strName.c_str());
        }
        return 0;
    }
    int nCount = static_cast<int>(args.size());
    benchmark::Initialize(&nCount, args.data());
    if (benchmark::ReportUnrecognizedArguments(nCount, args.data())) {
        return 2;
    }
    std::map<std::string, Side> sides;
    for (Pair& pair : Pairs()) {
        const std::string strSubject = pair.comparison.strName + " (subject)";
        const std::string strReference = pair.comparison.strName + " (reference)";
        Register(strSubject, pair.comparison, pair.comparison.subject);
        Register(strReference, pair.comparison, pair.comparison.reference);
        sides[strSubject] = {&pair, &pair.subject};
        sides[strReference] = {&pair, &pair.reference};
    }
    KeepingReporter reporter(std::move(sides));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const Pair& pair : Pairs()) {
        if (!pair.subject.empty() && !pair.reference.empty()) {
            PrintPair(pair, bJson);
        }
    }
    return reporter.bFailed ? 1 : 0;
}
