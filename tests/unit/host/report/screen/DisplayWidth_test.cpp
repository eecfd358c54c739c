#include "host/report/screen/DisplayWidth.h"

#include <gtest/gtest.h>

TEST(DisplayWidthTest, WideAndCombiningCharactersAreCountedInCells) {
    EXPECT_EQ(3u, display_width::Width("abc"));
    EXPECT_EQ(1u, display_width::Width("\xC3\xA4"));
    EXPECT_EQ(4u, display_width::Width("\xE6\x97\xA5\xE6\x9C\xAC"));  // two wide ones
    EXPECT_EQ(1u, display_width::Width("a\xCC\x88"));                 // an a and its dots
    EXPECT_EQ(2u, display_width::Width("\xF0\x9F\x98\x80"));
}

TEST(DisplayWidthTest, ATextIsFilledUpOrCut) {
    EXPECT_EQ("ab   ", display_width::Fit("ab", 5, true));
    EXPECT_EQ("abcd~", display_width::Fit("abcdefg", 5, false));
    EXPECT_EQ("abcd\xE2\x80\xA6", display_width::Fit("abcdefg", 5, true));
    EXPECT_EQ("   ab", display_width::FitRight("ab", 5, true));
    EXPECT_EQ("", display_width::Fit("abc", 0, true));
    EXPECT_EQ("~", display_width::Fit("abc", 1, false));
}

TEST(DisplayWidthTest, APathLosesItsMiddle) {
    EXPECT_EQ("/u~e/name", display_width::FitMiddle("/usr/lib/some/name", 9, false));
    EXPECT_EQ("/usr/lib/some/name", display_width::FitMiddle("/usr/lib/some/name", 18, false));
    EXPECT_EQ("/a   ", display_width::FitMiddle("/a", 5, false));
}

TEST(DisplayWidthTest, AWideCharacterThatDoesNotFitWholeIsLeftOut) {
    EXPECT_EQ("\xE6\x97\xA5~ ",
              display_width::Fit("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", 4, false));
}
