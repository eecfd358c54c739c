// How long the tests of this folder go on: --messages=N, --keys=N, --seed=N.
#ifndef TESTS_HOSTILE_OPTIONS_H
#define TESTS_HOSTILE_OPTIONS_H

struct Options {
    long nMessages = 5000;
    long nKeys = 1000;
    long nSeed = 1;
};

extern Options g_options;

#endif
