// How long the tests of this folder go on; each is an option of the program, --seconds=N and so on.
#ifndef TESTS_STRESS_OPTIONS_H
#define TESTS_STRESS_OPTIONS_H

struct Options {
    long nSeconds = 2;      // of eight threads
    long nStarts = 300;     // starts and stops
    long nLoads = 200;      // whole lives of the library
    long nBacklog = 20000;  // queued messages
    long nBurst = 4000;     // messages of four threads
    long nSeed = 1;
};

extern Options g_options;

#endif
