#include "host/base/EscapedText.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

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

TEST(EscapedTextTest, ForTerminalEscapesEveryControlCharacterAndNoOtherAscii) {
    for (int n = 0; n < 0x80; ++n) {
        const std::string strText(1, static_cast<char>(n));
        const bool bControl = n < 0x20 || n == 0x7F;
        const std::string strSafe = text::ForTerminal(strText);
        EXPECT_EQ(bControl ? 4u : n == '\\' ? 2u : 1u, strSafe.size()) << n;
        EXPECT_EQ(bControl || n == '\\' ? '\\' : strText[0], strSafe[0]) << n;
    }
    EXPECT_EQ("\\x1F~\\x7F", text::ForTerminal("\x1F~\x7F"));
}

TEST(EscapedTextTest, ForTerminalEscapesTheMarksOfDirectionAndOfLinesAndNotTheirNeighbours) {
    const struct {
        const char* pszText;
        bool bEscaped;
    } CASES[] = {
        {"\xC2\x80", true},         {"\xC2\x9F", true},       // the C1 controls
        {"\xC2\xA0", false},        {"\xC3\x80", false},      // and what follows them
        {"\xD8\x9B", false},        {"\xD8\x9D", false},      // beside the Arabic mark
        {"\xD9\x9C", false},                                  // its second byte elsewhere
        {"\xE2\x80\x8D", false},    {"\xE2\x80\x8E", true},   // left-to-right mark
        {"\xE2\x80\x8F", true},     {"\xE2\x80\x90", false},  // right-to-left mark
        {"\xE2\x80\xA7", false},    {"\xE2\x80\xA8", true},   // line separator
        {"\xE2\x80\xA9", true},     {"\xE2\x80\xAA", true},   // embeddings
        {"\xE2\x80\xAE", true},     {"\xE2\x80\xAF", false},  // override; a narrow blank
        {"\xE2\x81\xA5", false},    {"\xE2\x81\xA6", true},   // isolates
        {"\xE2\x81\xAF", true},     {"\xE2\x81\xB0", false},  // a superscript
        {"\xE2\x82\xA8", false},    {"\xE3\x80\xAE", false},  // the same last bytes elsewhere
        {"\xF0\x90\x80\x8E", false}};
    for (const auto& each : CASES) {
        const std::string strSafe = text::ForTerminal(each.pszText);
        EXPECT_EQ(each.bEscaped, strSafe != each.pszText) << strSafe;
        EXPECT_EQ(each.bEscaped ? 4 * std::string(each.pszText).size() : std::strlen(each.pszText),
                  strSafe.size());
    }
}

TEST(EscapedTextTest, AByteThatIsNotUtf8IsEscapedAloneAndWhatFollowsItIsRead) {
    EXPECT_EQ("\\xE2\\x82\u20AC", text::ForTerminal("\xE2\x82\u20AC"));
    EXPECT_EQ("\\xC3a", text::ForTerminal("\xC3"
                                          "a"));
    EXPECT_EQ("\\x80\\xBF", text::ForTerminal("\x80\xBF"));
    EXPECT_EQ("\\xF0\\x9F\\x98", text::ForTerminal("\xF0\x9F\x98"));
}

TEST(EscapedTextTest, TwoTextsThatDifferAreShownAsTwo) {
    EXPECT_NE(text::ForTerminal("\n"), text::ForTerminal("\\x0A"));
    EXPECT_NE(text::ForTerminal("\\"), text::ForTerminal("\\\\"));
}

TEST(EscapedTextTest, TheLengthOfASequenceFollowsItsFirstByte) {
    const struct {
        const char* pszText;
        size_t nLength;
    } CASES[] = {{"a", 1},
                 {"\x7F", 1},
                 {"\x80", 0},
                 {"\xBF", 0},
                 {"\xC0\x80", 0},
                 {"\xC1\xBF", 0},
                 {"\xC2\x80", 2},
                 {"\xC2\x7F", 0},
                 {"\xDF\xBF", 2},
                 {"\xDF\xC0", 0},
                 {"\xE0\x9F\xBF", 0},
                 {"\xE0\xA0\x80", 3},
                 {"\xEC\x80\x80", 3},
                 {"\xED\x9F\xBF", 3},
                 {"\xED\xA0\x80", 0},
                 {"\xEE\x80\x80", 3},
                 {"\xEF\xBF\xBF", 3},
                 {"\xEF\xBF\x7F", 0},
                 {"\xF0\x8F\xBF\xBF", 0},
                 {"\xF0\x90\x80\x80", 4},
                 {"\xF3\xBF\xBF\xBF", 4},
                 {"\xF3\xBF\xBF\xC0", 0},
                 {"\xF3\xBF\x7F\xBF", 0},
                 {"\xF4\x8F\xBF\xBF", 4},
                 {"\xF4\x90\x80\x80", 0},
                 {"\xF5\x80\x80\x80", 0},
                 {"\xFF", 0}};
    for (const auto& each : CASES) {
        EXPECT_EQ(each.nLength, text::Utf8Length(each.pszText, 0))
            << text::ForTerminal(each.pszText);
    }
}

TEST(EscapedTextTest, ASequenceIsLookedForAtItsPlaceAndNeverBehindTheEnd) {
    const std::string strText = "a\u20ACb";

    EXPECT_EQ(1u, text::Utf8Length(strText, 0));
    EXPECT_EQ(3u, text::Utf8Length(strText, 1));
    EXPECT_EQ(0u, text::Utf8Length(strText, 2));
    EXPECT_EQ(1u, text::Utf8Length(strText, 4));
    EXPECT_EQ(0u, text::Utf8Length(strText, 5));
    EXPECT_EQ(0u, text::Utf8Length("", 0));
    for (size_t nSize = 1; nSize < 4; ++nSize) {
        EXPECT_EQ(0u, text::Utf8Length(std::string("\xF0\x9F\x98\x80").substr(0, nSize), 0));
    }
}
