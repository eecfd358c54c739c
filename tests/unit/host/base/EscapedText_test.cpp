#include "host/base/EscapedText.h"

#include <gtest/gtest.h>

TEST(EscapedTextTest, ForTerminalLeavesReadableTextAsItIs) {
    EXPECT_EQ("/usr/bin/ls -l", text::ForTerminal("/usr/bin/ls -l"));
    EXPECT_EQ("/home/jürgen/日本/😀", text::ForTerminal("/home/jürgen/日本/😀"));
    EXPECT_EQ("", text::ForTerminal(""));
}

TEST(EscapedTextTest, ForTerminalEscapesWhatSteersATerminal) {
    EXPECT_EQ("a\\x0Ab\\x1B[31m\\x7F", text::ForTerminal("a\nb\033[31m\177"));
    EXPECT_EQ("\\x00", text::ForTerminal(std::string(1, '\0')));
    EXPECT_EQ("\\xC2\\x9B", text::ForTerminal("\xC2\x9B"));             // a C1 control
    EXPECT_EQ("\\xE2\\x80\\xAEx", text::ForTerminal("\xE2\x80\xAEx"));  // right to left
    EXPECT_EQ("\\xE2\\x81\\xA6", text::ForTerminal("\xE2\x81\xA6"));
    EXPECT_EQ("\\xE2\\x81\\xAB", text::ForTerminal("\xE2\x81\xAB"));
    EXPECT_EQ("\\xD8\\x9C", text::ForTerminal("\xD8\x9C"));  // the Arabic letter mark
    EXPECT_EQ("C:\\\\x0A", text::ForTerminal("C:\\x0A"));    // so that an escape cannot be forged
}

TEST(EscapedTextTest, ForTerminalEscapesBytesThatAreNotUtf8) {
    EXPECT_EQ("\\xFFa", text::ForTerminal("\xFF"
                                          "a"));
    EXPECT_EQ("\\xC3", text::ForTerminal("\xC3"));
    EXPECT_EQ("\\xC0\\xAF", text::ForTerminal("\xC0\xAF"));                    // overlong
    EXPECT_EQ("\\xED\\xA0\\x80", text::ForTerminal("\xED\xA0\x80"));           // a surrogate
    EXPECT_EQ("\\xF4\\x90\\x80\\x80", text::ForTerminal("\xF4\x90\x80\x80"));  // too large
    EXPECT_EQ("\\xE2\\x82", text::ForTerminal("\xE2\x82"));                    // cut off
}
