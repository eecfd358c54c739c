#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/stress/Options.h"

Options g_options;

namespace {

struct Flag {
    const char* pszName;
    long* pValue;
};

const Flag FLAGS[] = {
    {"--seconds=", &g_options.nSeconds}, {"--starts=", &g_options.nStarts},
    {"--loads=", &g_options.nLoads},     {"--backlog=", &g_options.nBacklog},
    {"--burst=", &g_options.nBurst},     {"--seed=", &g_options.nSeed},
};

bool Read(const char* pszArgument) {
    for (const Flag& flag : FLAGS) {
        if (strncmp(pszArgument, flag.pszName, strlen(flag.pszName)) == 0) {
            *flag.pValue = atol(pszArgument + strlen(flag.pszName));
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    testing::InitGoogleTest(&nArguments, ppszArguments);
    for (int i = 1; i < nArguments; ++i) {
        if (!Read(ppszArguments[i])) {
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
