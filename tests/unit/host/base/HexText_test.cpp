#include "host/base/HexText.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

TEST(HexTextTest, CountsTheDigitsATextBeginsWith) {
    EXPECT_EQ(0u, hex::CountDigits(""));
    EXPECT_EQ(0u, hex::CountDigits("xyz"));
    EXPECT_EQ(6u, hex::CountDigits("09afAFgh"));
    EXPECT_EQ(2u, hex::CountDigits("ab\xC3\xA4"));
}

TEST(HexTextTest, LowersHexadecimalLettersOnly) {
    const std::string strLower = hex::ToLower("0AbCdEFGZ\xC4");

    EXPECT_EQ("0abcdefGZ\xC4", strLower);
}

TEST(HexTextTest, DecodesEitherCase) {
    std::array<uint8_t, 3> bytes = {};

    const bool bDecoded = hex::Decode("00fFA5", bytes);

    EXPECT_TRUE(bDecoded);
    EXPECT_EQ((std::array<uint8_t, 3>{0x00, 0xFF, 0xA5}), bytes);
}

TEST(HexTextTest, RefusesAnotherLengthOrCharacterAndWritesNothing) {
    for (const char* pszText : {"", "00ff", "00ffa", "00ffa5a5", "00ffg5", "00 fa5", "0x00ff"}) {
        std::array<uint8_t, 3> bytes = {1, 2, 3};

        const bool bDecoded = hex::Decode(pszText, bytes);

        EXPECT_FALSE(bDecoded) << pszText;
        EXPECT_EQ((std::array<uint8_t, 3>{1, 2, 3}), bytes) << pszText;
    }
}
