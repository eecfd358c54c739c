#include "host/base/Text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

TEST(TextTest, ForTerminalLeavesReadableTextAsItIs) {
    EXPECT_EQ("/usr/bin/ls -l", text::ForTerminal("/usr/bin/ls -l"));
    EXPECT_EQ("/home/jürgen/日本/😀", text::ForTerminal("/home/jürgen/日本/😀"));
    EXPECT_EQ("", text::ForTerminal(""));
}

TEST(TextTest, ForTerminalEscapesWhatSteersATerminal) {
    EXPECT_EQ("a\\x0Ab\\x1B[31m\\x7F", text::ForTerminal("a\nb\033[31m\177"));
    EXPECT_EQ("\\x00", text::ForTerminal(std::string(1, '\0')));
    EXPECT_EQ("\\xC2\\x9B", text::ForTerminal("\xC2\x9B"));             // a C1 control
    EXPECT_EQ("\\xE2\\x80\\xAEx", text::ForTerminal("\xE2\x80\xAEx"));  // right to left
    EXPECT_EQ("\\xE2\\x81\\xA6", text::ForTerminal("\xE2\x81\xA6"));
    EXPECT_EQ("\\xE2\\x81\\xAB", text::ForTerminal("\xE2\x81\xAB"));
    EXPECT_EQ("\\xD8\\x9C", text::ForTerminal("\xD8\x9C"));  // the Arabic letter mark
    EXPECT_EQ("C:\\\\x0A", text::ForTerminal("C:\\x0A"));    // so that an escape cannot be forged
}

TEST(TextTest, ForTerminalEscapesBytesThatAreNotUtf8) {
    EXPECT_EQ("\\xFFa", text::ForTerminal("\xFF"
                                          "a"));
    EXPECT_EQ("\\xC3", text::ForTerminal("\xC3"));
    EXPECT_EQ("\\xC0\\xAF", text::ForTerminal("\xC0\xAF"));                    // overlong
    EXPECT_EQ("\\xED\\xA0\\x80", text::ForTerminal("\xED\xA0\x80"));           // a surrogate
    EXPECT_EQ("\\xF4\\x90\\x80\\x80", text::ForTerminal("\xF4\x90\x80\x80"));  // too large
    EXPECT_EQ("\\xE2\\x82", text::ForTerminal("\xE2\x82"));                    // cut off
}

TEST(TextTest, JsonQuoteEscapesWhatJsonDemands) {
    EXPECT_EQ(R"("a\"b\\c\u000a\u0000é")", text::JsonQuote(std::string("a\"b\\c\n\0é", 9)));
}

TEST(TextTest, JsonQuoteReplacesOrKeepsBytesThatAreNotUtf8) {
    EXPECT_EQ(
        "\"a\xEF\xBF\xBD"
        "b\"",
        text::JsonQuote("a\xFF"
                        "b"));
    EXPECT_EQ(
        "\"a\xFF"
        "b\"",
        text::JsonQuote("a\xFF"
                        "b",
                        text::BAD_BYTES_KEEP));
}

TEST(TextTest, BytesAreWordedByTheirSize) {
    EXPECT_EQ("0 B", text::Bytes(0));
    EXPECT_EQ("1023 B", text::Bytes(1023));
    EXPECT_EQ("1.5 KiB", text::Bytes(1536));
    EXPECT_EQ("2.0 MiB", text::Bytes(2097152));
    EXPECT_EQ("1024.0 TiB", text::Bytes(1125899906842624));
}

TEST(TextTest, TimesAreLocal) {
    setenv("TZ", "XXX-2", 1);
    tzset();

    EXPECT_EQ("1970-01-01 02:00:01", text::LocalTime(1));

    EXPECT_EQ(8u, text::ClockNow().size());
    setenv("TZ", "UTC0", 1);
    tzset();
}

TEST(TextTest, LevelsHaveWords) {
    EXPECT_EQ("packaged", text::LevelWord(10));
    EXPECT_EQ("allowed", text::LevelWord(20));
    EXPECT_EQ("unknown", text::LevelWord(40));
    EXPECT_EQ("blocked", text::LevelWord(70));
    EXPECT_EQ("level -3", text::LevelWord(-3));
}

TEST(JsonObjectTest, MembersStandInTheOrderOfTheirAdding) {
    JsonObject object;
    object.Add("z", "text").Add("a", 1).Add("b", true).Add("c", 0.5);
    object.Add("n", static_cast<int64_t>(-5)).Add("u", static_cast<uint64_t>(5));
    object.AddJson("o", JsonObject().Text());

    EXPECT_EQ(R"({"z":"text","a":1,"b":true,"c":0.500,"n":-5,"u":5,"o":{}})", object.Text());
}
