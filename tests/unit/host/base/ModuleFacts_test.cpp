#include "host/base/ModuleFacts.h"

#include <gtest/gtest.h>

TEST(ModuleFactsTest, LifetimesGoByLevel) {
    for (const int nLevel : {10, 20, 70}) {
        EXPECT_EQ(1296000, module_facts::Lifetime(nLevel));
    }
    for (const int nLevel : {30, 40, 50}) {
        EXPECT_EQ(1200, module_facts::Lifetime(nLevel));
    }
    EXPECT_EQ(0, module_facts::Lifetime(60));
}

TEST(ModuleFactsTest, AVerdictOfAnyOtherLevelIsNotKept) {
    for (int nLevel = -100; nLevel <= 1000; ++nLevel) {
        const bool bKept = nLevel >= 10 && nLevel <= 70 && nLevel % 10 == 0 && nLevel != 60;
        EXPECT_EQ(bKept, module_facts::Lifetime(nLevel) != 0) << nLevel;
    }
}
