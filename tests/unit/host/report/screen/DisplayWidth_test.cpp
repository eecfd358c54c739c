#include "host/report/screen/DisplayWidth.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

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

TEST(DisplayWidthTest, AByteThatIsNotUtf8AndACharacterThatIsNotPrintableAreOneCell) {
    EXPECT_EQ(0u, display_width::Width(""));
    EXPECT_EQ(1u, display_width::Width("\xFF"));
    EXPECT_EQ(3u, display_width::Width("\xE6\x97x"));  // two bytes of a cut one, and an x
    EXPECT_EQ(3u, display_width::Width("\xE6\x97\xA5\x80"));
    EXPECT_EQ(1u, display_width::Width("\xC2\x80"));  // a character that cannot be printed
}

TEST(DisplayWidthTest, TheProcessesOwnLocaleIsLeftAsItWas) {
    const std::string strBefore = std::setlocale(LC_ALL, nullptr);

    EXPECT_EQ(2u, display_width::Width("\xE6\x97\xA5"));

    EXPECT_EQ(strBefore, std::setlocale(LC_ALL, nullptr));
    EXPECT_EQ(LC_GLOBAL_LOCALE, uselocale(nullptr));
}

TEST(DisplayWidthTest, WhateverTheTextAndTheWidthTheResultHasThatWidth) {
    const std::string strWide = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E";
    for (const std::string& strText :
         {std::string(), std::string("a"), std::string("/usr/lib/some/name"), strWide,
          "a" + strWide + "b", strWide + "/" + strWide, std::string("a\xCC\x88o\xCC\x88u\xCC\x88"),
          std::string("\xFF\xFE\xFD\xFC")}) {
        for (size_t nWidth = 0; nWidth < 24; ++nWidth) {
            for (const bool bUnicode : {false, true}) {
                EXPECT_EQ(nWidth,
                          display_width::Width(display_width::Fit(strText, nWidth, bUnicode)));
                EXPECT_EQ(nWidth, display_width::Width(
                                      display_width::FitMiddle(strText, nWidth, bUnicode)));
                EXPECT_EQ(nWidth,
                          display_width::Width(display_width::FitRight(strText, nWidth, bUnicode)));
            }
        }
    }
}

TEST(DisplayWidthTest, ATextThatJustFitsIsNotMarked) {
    EXPECT_EQ("abcde", display_width::Fit("abcde", 5, false));
    EXPECT_EQ("abcde", display_width::FitMiddle("abcde", 5, false));
    EXPECT_EQ("abcde", display_width::FitRight("abcde", 5, false));
    EXPECT_EQ("abc~", display_width::FitRight("abcde", 4, false));
    EXPECT_EQ("", display_width::FitRight("abcde", 0, false));
    EXPECT_EQ("", display_width::FitMiddle("abcde", 0, false));
    EXPECT_EQ("~", display_width::FitMiddle("abcde", 1, false));
}

TEST(DisplayWidthTest, OfAPathAThirdOfItsBeginningIsKeptAndTheRestOfTheRoomIsItsEnd) {
    EXPECT_EQ("/usr/~/some/name", display_width::FitMiddle("/usr/lib/some/name", 16, false));
    EXPECT_EQ("/~me", display_width::FitMiddle("/usr/name", 4, false));
    EXPECT_EQ("~me", display_width::FitMiddle("/usr/name", 3, false));
    EXPECT_EQ("/\xE2\x80\xA6me", display_width::FitMiddle("/usr/name", 4, true));
}

TEST(DisplayWidthTest, WhereAWideCharacterIsLeftOutOfTheMiddleABlankStandsForItsHalf) {
    const std::string strWide = "\xE6\x97\xA5";

    EXPECT_EQ("~" + strWide + " ", display_width::FitMiddle(strWide + strWide + strWide, 4, false));
    EXPECT_EQ(strWide + "~ ", display_width::FitRight(strWide + strWide + strWide, 4, false));
}

TEST(DisplayWidthTest, ACombiningCharacterStaysWithItsLetter) {
    const std::string strDots = "\xCC\x88";

    EXPECT_EQ("a" + strDots + "~", display_width::Fit("a" + strDots + "bc", 2, false));
    EXPECT_EQ("a" + strDots + "  ", display_width::Fit("a" + strDots, 3, false));
}
