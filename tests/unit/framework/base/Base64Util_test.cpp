#include "framework/base/Base64Util.h"

#include <gtest/gtest.h>

namespace {

struct Pair {
    std::string strData;
    std::string strText;
};

const Pair PAIRS[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
    {std::string("\0", 1), "AA=="},
    {std::string("\0\0\0", 3), "AAAA"},
    {"\xfb\xff\xbf", "+/+/"},
    {"\xff\xff\xff", "////"},
};

}  // namespace

TEST(Base64UtilTest, EncodesWithTheStandardAlphabetAndPadding) {
    for (const Pair& pair : PAIRS) {
        EXPECT_EQ(pair.strText, Base64Util::Base64Encode(pair.strData));
    }
}

TEST(Base64UtilTest, DecodesWhatItEncodes) {
    for (const Pair& pair : PAIRS) {
        EXPECT_EQ(pair.strData, Base64Util::Base64Decode(pair.strText)) << pair.strText;
    }
}

TEST(Base64UtilTest, EveryByteAndEveryLengthComesBack) {
    std::string strData;
    for (int i = 0; i < 1000; ++i) {
        strData += static_cast<char>(i * 7 + i / 256);
        ASSERT_EQ(strData, Base64Util::Base64Decode(Base64Util::Base64Encode(strData))) << i;
    }
}

TEST(Base64UtilTest, ALongTextHasNoLineBreaks) {
    const std::string strText = Base64Util::Base64Encode(std::string(3000000, 'x'));

    EXPECT_EQ(4000000u, strText.size());
    EXPECT_EQ(std::string::npos, strText.find_first_of("\r\n="));
    EXPECT_EQ(std::string(3000000, 'x'), Base64Util::Base64Decode(strText));
}

TEST(Base64UtilTest, DecodingSkipsCharactersOutsideTheAlphabet) {
    EXPECT_EQ("foobar", Base64Util::Base64Decode(" Zm\r\n9v-Y_m\tFy!\x80\xff"));
    EXPECT_EQ("foobar", Base64Util::Base64Decode(std::string("Zm9v\0YmFy", 9)));
    EXPECT_EQ("", Base64Util::Base64Decode("-_ \n*"));
}

TEST(Base64UtilTest, DecodingGoesOnBehindAForeignCharacterAnywhere) {
    const std::string strText = "Zm9vYmFyZm9vYmFy";
    for (size_t i = 0; i <= strText.size(); ++i) {
        std::string strBroken = strText;
        strBroken.insert(i, "\n");
        EXPECT_EQ("foobarfoobar", Base64Util::Base64Decode(strBroken)) << i;
    }
}

TEST(Base64UtilTest, DecodingStopsAtTheFirstEqualsSign) {
    EXPECT_EQ("f", Base64Util::Base64Decode("Zg==Zm9v"));
    EXPECT_EQ("foo", Base64Util::Base64Decode("Zm9v=Zm9v"));
    EXPECT_EQ("", Base64Util::Base64Decode("=Zm9v"));
}

TEST(Base64UtilTest, DecodingNeedsNoPadding) {
    EXPECT_EQ("f", Base64Util::Base64Decode("Zg"));
    EXPECT_EQ("fo", Base64Util::Base64Decode("Zm8"));
}

TEST(Base64UtilTest, BitsThatDoNotFillAByteAreDropped) {
    EXPECT_EQ("", Base64Util::Base64Decode("Z"));
    EXPECT_EQ("foo", Base64Util::Base64Decode("Zm9vY"));
    EXPECT_EQ("f", Base64Util::Base64Decode("Zv=="));  // the low four bits stand for nothing
    EXPECT_EQ("fo", Base64Util::Base64Decode("Zm/="));
}

TEST(Base64UtilTest, AppendingLeavesWhatStandsThere) {
    std::string strText = "values('";

    Base64Util::Base64Append(strText, std::string(60, 'm'));
    Base64Util::Base64Append(strText, "ab");
    Base64Util::Base64Append(strText, "");

    EXPECT_EQ("values('" + Base64Util::Base64Encode(std::string(60, 'm')) + "YWI=", strText);
}

TEST(Base64UtilTest, APieceOfATextIsDecodedLikeATextOfItsOwn) {
    const std::string strText = "xxYWJjxx";

    EXPECT_EQ("abc", Base64Util::Base64Decode(strText.data() + 2, 4));
    EXPECT_EQ("", Base64Util::Base64Decode(nullptr, 0));
}
