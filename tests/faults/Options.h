// How long the tests of this folder go on. Given to the program as --kills=N, --seed=N; the first
// of several runs that share a seed is the same in each.
#ifndef TESTS_FAULTS_OPTIONS_H
#define TESTS_FAULTS_OPTIONS_H

#include <cstdint>

struct Options {
    long nKills = 150;
    uint32_t nSeed = 1;
    long nStep = 13;
    long nFirst = 1;
};

extern Options g_options;

#endif
