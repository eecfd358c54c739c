// Comparisons: a subject and a reference measured side by side in one run, printed as their ratio.
//
// Every program of this folder has this main. It measures each pair in repetitions that are mixed
// at random and prints one line per pair, or with --json one JSON object per line: the fastest of
// each side (processor time of the thread), their ratio, and the median of the ratios of the first
// subject to the first reference, the second to the second and so on. With --list it prints the
// names and measures nothing. Google Benchmark's own options work as usual.
#ifndef BENCH_SUPPORT_RATIOS_H
#define BENCH_SUPPORT_RATIOS_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>

struct Comparison {
    using Side = std::function<void(benchmark::State&)>;

    std::string strName;
    double dTarget = 0;  // the ratio is to be at most this; 0 for a figure without a target
    Side subject;
    Side reference;
    int64_t nOperations = 1;  // per iteration; the time printed is of one
    int nRounds = 0;          // repetitions of a pair that takes long; 0 for the usual 31
    bool bWallTime = false;   // for sides with threads of their own
    // A side that sets the counter "bytes" is compared by that instead of by time.
};

// Call before main, from an initialiser: const bool bRegistered = Compare({...}).
bool Compare(Comparison comparison);

#endif
