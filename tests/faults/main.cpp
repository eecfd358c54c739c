#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "tests/faults/FaultVfs.h"
#include "tests/faults/Options.h"

Options g_options;

int main(int nArguments, char** ppszArguments) {
    testing::InitGoogleTest(&nArguments, ppszArguments);
    for (int i = 1; i < nArguments; ++i) {
        if (strncmp(ppszArguments[i], "--kills=", 8) == 0) {
            g_options.nKills = atol(ppszArguments[i] + 8);
        } else if (strncmp(ppszArguments[i], "--seed=", 7) == 0) {
            g_options.nSeed = static_cast<uint32_t>(atol(ppszArguments[i] + 7));
        } else if (strncmp(ppszArguments[i], "--first=", 8) == 0) {
            g_options.nFirst = atol(ppszArguments[i] + 8);
        } else if (strncmp(ppszArguments[i], "--step=", 7) == 0) {
            g_options.nStep = atol(ppszArguments[i] + 7);
        } else {
            return 2;
        }
    }
    FaultVfs::Register();
    return RUN_ALL_TESTS();
}
