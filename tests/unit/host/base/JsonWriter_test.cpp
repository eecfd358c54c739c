#include "host/base/JsonWriter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "host/base/JsonReader.h"

TEST(JsonWriterTest, AQuotedTextEscapesWhatJsonDemands) {
    EXPECT_EQ(R"("a\"b\\c\u000a\u0000é")", json_writer::Quote(std::string("a\"b\\c\n\0é", 9)));
}

TEST(JsonWriterTest, AQuotedTextReplacesOrKeepsBytesThatAreNotUtf8) {
    EXPECT_EQ(
        "\"a\xEF\xBF\xBD"
        "b\"",
        json_writer::Quote("a\xFF"
                           "b"));
    EXPECT_EQ(
        "\"a\xFF"
        "b\"",
        json_writer::Quote("a\xFF"
                           "b",
                           json_writer::BAD_BYTES_KEEP));
}

TEST(JsonWriterTest, MembersStandInTheOrderOfTheirAdding) {
    JsonObject object;
    object.Add("z", "text").Add("a", 1).Add("b", true).Add("c", 0.5);
    object.Add("n", static_cast<int64_t>(-5)).Add("u", static_cast<uint64_t>(5));
    object.AddJson("o", JsonObject().Text());

    EXPECT_EQ(R"({"z":"text","a":1,"b":true,"c":0.500,"n":-5,"u":5,"o":{}})", object.Text());
}

TEST(JsonWriterTest, EveryControlCharacterIsEscapedAndNoOtherAscii) {
    for (int n = 0; n < 0x80; ++n) {
        const std::string strQuoted = json_writer::Quote(std::string(1, static_cast<char>(n)));
        const bool bEscaped = n < 0x20 || n == 0x7f || n == '"' || n == '\\';
        EXPECT_EQ(bEscaped ? '\\' : static_cast<char>(n), strQuoted[1]) << n;
        Json::Value jsonRead;
        ASSERT_TRUE(json_reader::Parse("{\"a\":" + strQuoted + "}", jsonRead)) << n;
        EXPECT_EQ(std::string(1, static_cast<char>(n)), jsonRead["a"].asString()) << n;
    }
}

TEST(JsonWriterTest, WhatSteersATerminalOrTurnsTextIsEscapedForEveryReaderButTheModule) {
    // DEL, two C1 controls, a line separator and the marks of writing direction.
    const std::string strText =
        "\x7f\xc2\x80\xc2\x9f\xd8\x9c\xe2\x80\x8e\xe2\x80\xa8\xe2\x80\xae\xe2\x81\xa6\xe2\x81\xa9";
    EXPECT_EQ(R"("\u007f\u0080\u009f\u061c\u200e\u2028\u202e\u2066\u2069")",
              json_writer::Quote(strText));
    EXPECT_EQ('"' + strText + '"', json_writer::Quote(strText, json_writer::BAD_BYTES_KEEP));

    // Their neighbours.
    const std::string strPlain =
        "~\xc2\xa0\xd8\x9b\xd8\x9d\xe2\x80\x8d\xe2\x80\x90\xe2\x80\xa7\xe2\x80\xaf\xe2\x81\xa5\xe2"
        "\x81\xaa\xf0\x9f\x98\x80";
    EXPECT_EQ('"' + strPlain + '"', json_writer::Quote(strPlain));
}

TEST(JsonWriterTest, EachByteThatIsNotUtf8IsReplacedByItself) {
    const std::string strBad = "\xEF\xBF\xBD";

    EXPECT_EQ("\"" + strBad + strBad + "\"", json_writer::Quote("\xE2\x82"));
    EXPECT_EQ("\"" + strBad + "\u20AC\"", json_writer::Quote("\xE2\u20AC"));
    EXPECT_EQ("\"" + strBad + "\\\"\"", json_writer::Quote("\xC3\""));
    EXPECT_EQ("\"\xC3\\\"\"", json_writer::Quote("\xC3\"", json_writer::BAD_BYTES_KEEP));
}

TEST(JsonWriterTest, KeysAreQuotedLikeValues) {
    JsonObject object;
    object.Add("a\"\n\xFF", std::string("x\"y"));

    EXPECT_EQ("{\"a\\\"\\u000a\xEF\xBF\xBD\":\"x\\\"y\"}", object.Text());
}

TEST(JsonWriterTest, NumbersKeepAllTheirDigits) {
    JsonObject object;
    object.Add("least", std::numeric_limits<int64_t>::min());
    object.Add("most", std::numeric_limits<uint64_t>::max());
    object.Add("third", 1.0 / 3).Add("less", -0.0005).Add("big", 1e15);

    EXPECT_EQ(R"({"least":-9223372036854775808,"most":18446744073709551615,)"
              R"("third":0.333,"less":-0.001,"big":1000000000000000.000})",
              object.Text());
}

TEST(JsonWriterTest, ATextThatIsALiteralIsATextAndNoBool) {
    EXPECT_EQ(R"({"a":"true","b":"","c":false})",
              JsonObject().Add("a", "true").Add("b", "").Add("c", false).Text());
}

TEST(JsonWriterTest, AnObjectCanBeReadBeforeItIsComplete) {
    JsonObject object;
    EXPECT_EQ("{}", object.Text());

    object.Add("a", 1);
    EXPECT_EQ(R"({"a":1})", object.Text());

    object.AddJson("b", "[1,2]");
    EXPECT_EQ(R"({"a":1,"b":[1,2]})", object.Text());
}
