#include "public/pluginhelper/GuidText.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr char IDENTITY[] = "ED5D7B4D-CC52-4059-89C2-148A0951BFFF";

std::vector<unsigned> BytesOf(const Guid& guid) {
    const auto* pBytes = reinterpret_cast<const unsigned char*>(&guid);
    return std::vector<unsigned>(pBytes, pBytes + sizeof(guid));
}

std::string TextOf(const Guid& guid, bool bBraces) {
    char buffer[GUID_TEXT_SIZE] = {};
    return FormatGuid(guid, buffer, bBraces);
}

Guid AllOnes() {
    Guid guid;
    memset(&guid, 0xff, sizeof(guid));
    return guid;
}

}  // namespace

TEST(GuidTextTest, NumbersLieInHostByteOrderAndTheLastEightBytesInTextOrder) {
    Guid guid = {};

    ParseGuid(IDENTITY, &guid);

    const std::vector<unsigned> expected = {0x4d, 0x7b, 0x5d, 0xed, 0x52, 0xcc, 0x59, 0x40,
                                            0x89, 0xc2, 0x14, 0x8a, 0x09, 0x51, 0xbf, 0xff};
    EXPECT_EQ(expected, BytesOf(guid));
}

TEST(GuidTextTest, TextWithAndWithoutBracesGivesTheSameGuid) {
    Guid plain = {};
    Guid braced = {};

    ParseGuid(IDENTITY, &plain);
    ParseGuid("{ED5D7B4D-CC52-4059-89C2-148A0951BFFF}", &braced);

    EXPECT_EQ(0xED5D7B4DU, plain.nData1);
    EXPECT_EQ(BytesOf(plain), BytesOf(braced));
}

TEST(GuidTextTest, LowerCaseIsReadAsUpperCase) {
    Guid guid = {};

    ParseGuid("ed5d7b4d-cc52-4059-89c2-148a0951bfff", &guid);

    EXPECT_EQ(IDENTITY, TextOf(guid, false));
}

TEST(GuidTextTest, ANullTextGivesSixteenZeroBytes) {
    Guid guid = AllOnes();

    ParseGuid(nullptr, &guid);

    EXPECT_EQ(std::vector<unsigned>(16, 0), BytesOf(guid));
}

TEST(GuidTextTest, AnEmptyTextLeavesTheBytesAsTheyWere) {
    Guid guid = AllOnes();

    ParseGuid("", &guid);

    EXPECT_EQ(std::vector<unsigned>(16, 0xff), BytesOf(guid));
}

TEST(GuidTextTest, FieldsThatDoNotScanKeepTheirPreviousBytes) {
    Guid guid = AllOnes();

    ParseGuid("00000001-0002-zz", &guid);

    EXPECT_EQ("00000001-0002-FFFF-FFFF-FFFFFFFFFFFF", TextOf(guid, false));
}

TEST(GuidTextTest, ForeignTextBehindAGuidIsNotLookedAt) {
    Guid guid = {};

    ParseGuid("ED5D7B4D-CC52-4059-89C2-148A0951BFFF%n%s and more", &guid);

    EXPECT_EQ(IDENTITY, TextOf(guid, false));
}

TEST(GuidTextTest, FormattedTextIsUpperCaseThirtySixCharactersWithoutBraces) {
    const Guid guid = {0xabcdef01, 0xfedc, 0x000a, {0, 1, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}};

    const std::string strText = TextOf(guid, false);

    EXPECT_EQ("ABCDEF01-FEDC-000A-0001-AABBCCDDEEFF", strText);
    EXPECT_EQ(36U, strText.size());
}

TEST(GuidTextTest, FormattedTextStandsWithinBracesWhenAsked) {
    const Guid guid = {0xabcdef01, 0xfedc, 0x000a, {0, 1, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}};

    EXPECT_EQ("{ABCDEF01-FEDC-000A-0001-AABBCCDDEEFF}", TextOf(guid, true));
}

TEST(GuidTextTest, FormatReturnsTheCallersBuffer) {
    char buffer[GUID_TEXT_SIZE] = {};

    EXPECT_EQ(buffer, FormatGuid(Guid{}, buffer, true));
    EXPECT_STREQ("{00000000-0000-0000-0000-000000000000}", buffer);
}
