#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "tests/hostile/Options.h"

Options g_options;

namespace {

bool Read(const char* pszArgument, const char* pszName, long& nValue) {
    const size_t nLength = strlen(pszName);
    if (strncmp(pszArgument, pszName, nLength) != 0) {
        return false;
    }
    nValue = atol(pszArgument + nLength);
    return true;
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    testing::InitGoogleTest(&nArguments, ppszArguments);
    for (int i = 1; i < nArguments; ++i) {
        if (!Read(ppszArguments[i], "--messages=", g_options.nMessages) &&
            !Read(ppszArguments[i], "--keys=", g_options.nKeys) &&
            !Read(ppszArguments[i], "--seed=", g_options.nSeed)) {
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
