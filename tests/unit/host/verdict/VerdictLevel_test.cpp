#include "host/verdict/VerdictLevel.h"

#include <gtest/gtest.h>

#include <limits>

#include "host/base/ModuleFacts.h"

using verdict_level::ClassOf;

TEST(VerdictLevelTest, EachLevelThatIsGivenHasItsNumberAndAWord) {
    EXPECT_EQ("packaged", verdict_level::Word(10));
    EXPECT_EQ("good", verdict_level::Word(20));
    EXPECT_EQ("unknown", verdict_level::Word(40));
    EXPECT_EQ("bad", verdict_level::Word(70));
    EXPECT_EQ((std::array<int, 4>{10, 20, 40, 70}), verdict_level::GIVEN);
}

TEST(VerdictLevelTest, AnotherLevelIsNamedByItsNumber) {
    EXPECT_EQ("level 55", verdict_level::Word(55));
    EXPECT_EQ("level -1", verdict_level::Word(-1));
}

TEST(VerdictLevelTest, GoodReachesTo20AndBadBeginsAt60) {
    EXPECT_EQ(verdict_level::CLASS_GOOD, ClassOf(std::numeric_limits<int>::min()));
    EXPECT_EQ(verdict_level::CLASS_GOOD, ClassOf(20));
    EXPECT_EQ(verdict_level::CLASS_DOUBTFUL, ClassOf(21));
    EXPECT_EQ(verdict_level::CLASS_DOUBTFUL, ClassOf(59));
    EXPECT_EQ(verdict_level::CLASS_BAD, ClassOf(60));
    EXPECT_EQ(verdict_level::CLASS_BAD, ClassOf(std::numeric_limits<int>::max()));
}

// Else it would ask again every time.
TEST(VerdictLevelTest, TheModuleKeepsEveryLevelThatIsGivenAndWhatIsUnknownTheShortest) {
    for (const int nLevel : verdict_level::GIVEN) {
        EXPECT_LE(module_facts::Lifetime(verdict_level::UNKNOWN), module_facts::Lifetime(nLevel));
    }
    EXPECT_LT(0, module_facts::Lifetime(verdict_level::UNKNOWN));
    EXPECT_EQ(module_facts::Lifetime(verdict_level::BAD),
              module_facts::Lifetime(verdict_level::GOOD));
}

TEST(VerdictLevelTest, OfTheLevelsThatAreGivenTwoAreGoodOneDoubtfulAndOneBad) {
    EXPECT_EQ(verdict_level::CLASS_GOOD, ClassOf(verdict_level::PACKAGED));
    EXPECT_EQ(verdict_level::CLASS_GOOD, ClassOf(verdict_level::GOOD));
    EXPECT_EQ(verdict_level::CLASS_DOUBTFUL, ClassOf(verdict_level::UNKNOWN));
    EXPECT_EQ(verdict_level::CLASS_BAD, ClassOf(verdict_level::BAD));
}
