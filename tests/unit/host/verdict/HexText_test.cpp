#include "host/verdict/HexText.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

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

TEST(HexTextTest, NoOtherByteIsADigitAndNoneOtherIsLowered) {
    std::string strDigits;
    std::string strLowered;
    for (int nByte = 0; nByte < 256; ++nByte) {
        const std::string strByte(1, static_cast<char>(nByte));
        strDigits += hex::CountDigits(strByte) == 1 ? strByte : "";
        strLowered += hex::ToLower(strByte) != strByte ? strByte : "";
    }

    EXPECT_EQ("0123456789ABCDEFabcdef", strDigits);
    EXPECT_EQ("ABCDEF", strLowered);
}

TEST(HexTextTest, EachDigitHasItsValue) {
    std::array<uint8_t, 16> bytes = {};
    ASSERT_TRUE(hex::Decode("0123456789abcdefFEDCBA9876543210", bytes));

    EXPECT_EQ((std::array<uint8_t, 16>{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFE, 0xDC,
                                       0xBA, 0x98, 0x76, 0x54, 0x32, 0x10}),
              bytes);
}

TEST(HexTextTest, OfNoBytesTheEmptyTextIsTheOnlyOne) {
    uint8_t nByte = 1;
    EXPECT_TRUE(hex::Decode("", &nByte, 0));
    EXPECT_FALSE(hex::Decode("00", &nByte, 0));
    EXPECT_EQ(1, nByte);
}

// A text may hold any byte.
TEST(HexTextTest, AByteOfZeroEndsTheDigitsAndNotTheText) {
    const std::string strText("ab\0cd", 5);
    std::array<uint8_t, 2> bytes = {1, 2};
    EXPECT_EQ(2u, hex::CountDigits(strText));
    EXPECT_FALSE(hex::Decode(strText, bytes));
    EXPECT_FALSE(hex::Decode(strText.substr(0, 4), bytes));
    EXPECT_EQ((std::array<uint8_t, 2>{1, 2}), bytes);
}
