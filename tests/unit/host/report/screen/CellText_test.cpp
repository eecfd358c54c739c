#include "host/report/screen/CellText.h"

#include <gtest/gtest.h>

TEST(CellTextTest, WideAndCombiningCharactersAreCountedInCells) {
    EXPECT_EQ(3u, cell_text::Width("abc"));
    EXPECT_EQ(1u, cell_text::Width("\xC3\xA4"));
    EXPECT_EQ(4u, cell_text::Width("\xE6\x97\xA5\xE6\x9C\xAC"));  // two wide ones
    EXPECT_EQ(1u, cell_text::Width("a\xCC\x88"));                 // an a and its dots
    EXPECT_EQ(2u, cell_text::Width("\xF0\x9F\x98\x80"));
}

TEST(CellTextTest, ATextIsFilledUpOrCut) {
    EXPECT_EQ("ab   ", cell_text::Fit("ab", 5, true));
    EXPECT_EQ("abcd~", cell_text::Fit("abcdefg", 5, false));
    EXPECT_EQ("abcd\xE2\x80\xA6", cell_text::Fit("abcdefg", 5, true));
    EXPECT_EQ("   ab", cell_text::FitRight("ab", 5, true));
    EXPECT_EQ("", cell_text::Fit("abc", 0, true));
    EXPECT_EQ("~", cell_text::Fit("abc", 1, false));
}

TEST(CellTextTest, APathLosesItsMiddle) {
    EXPECT_EQ("/u~e/name", cell_text::FitMiddle("/usr/lib/some/name", 9, false));
    EXPECT_EQ("/usr/lib/some/name", cell_text::FitMiddle("/usr/lib/some/name", 18, false));
    EXPECT_EQ("/a   ", cell_text::FitMiddle("/a", 5, false));
}

TEST(CellTextTest, AWideCharacterThatDoesNotFitWholeIsLeftOut) {
    EXPECT_EQ("\xE6\x97\xA5~ ", cell_text::Fit("\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", 4, false));
}
