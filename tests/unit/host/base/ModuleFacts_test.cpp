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
