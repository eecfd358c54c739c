#include "host/verdict/HashListLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

using testing::HasSubstr;

namespace {

const std::string MD5 = "0123456789abcdef0123456789abcdef";
const std::string SHA1 = "0123456789abcdef0123456789abcdef01234567";
const std::string SHA256 = SHA1 + "0123456789abcdef01234567";

struct GoodLine {
    std::string strLine;
    HashListLine::Kind eKind;
    std::string strDigest;
    std::string strName;
};

}  // namespace

TEST(HashListLineTest, ReadsEveryFormat) {
    const GoodLine GOOD_LINES[] = {
        {MD5 + "  /bin/ls", HashListLine::KIND_MD5, MD5, "/bin/ls"},
        {SHA1 + "  /bin/ls", HashListLine::KIND_SHA1, SHA1, "/bin/ls"},
        {SHA1 + " *ls.exe", HashListLine::KIND_SHA1, SHA1, "ls.exe"},
        {"  " + SHA1 + "  indented", HashListLine::KIND_SHA1, SHA1, "indented"},
        {SHA1 + "   name that begins with a blank", HashListLine::KIND_SHA1, SHA1,
         " name that begins with a blank"},
        {MD5 + "  a\\b", HashListLine::KIND_MD5, MD5, "a\\b"},
        {"\\" + MD5 + "  a\\\\b\\nc\\rd", HashListLine::KIND_MD5, MD5, "a\\b\nc\rd"},
        {"MD5 (a) b) = " + MD5, HashListLine::KIND_MD5, MD5, "a) b"},
        {"SHA1 (x = y) = " + SHA1, HashListLine::KIND_SHA1, SHA1, "x = y"},
        {"SHA1(tight)= " + SHA1, HashListLine::KIND_SHA1, SHA1, "tight"},
        {"\\SHA1 (a\\nb) = " + SHA1, HashListLine::KIND_SHA1, SHA1, "a\nb"},
        {MD5 + ":17387:Unix.Test-1", HashListLine::KIND_MD5, MD5, "Unix.Test-1"},
        {SHA1 + ":*:Unix.Test-2:73", HashListLine::KIND_SHA1, SHA1, "Unix.Test-2"},
        {SHA1 + ":1:Unix.Test-3:73:255", HashListLine::KIND_SHA1, SHA1, "Unix.Test-3"},
        {"0123456789ABCDEF0123456789ABCDEF  upper", HashListLine::KIND_MD5,
         "0123456789ABCDEF0123456789ABCDEF", "upper"},
        {MD5 + "  crlf\r", HashListLine::KIND_MD5, MD5, "crlf"},
    };
    for (const GoodLine& good : GOOD_LINES) {
        const HashListLine line = ParseHashListLine(good.strLine);

        EXPECT_EQ(good.eKind, line.eKind) << good.strLine << ": " << line.strProblem;
        EXPECT_EQ(good.strDigest, line.strDigest) << good.strLine;
        EXPECT_EQ(good.strName, line.strName) << good.strLine;
    }
}

TEST(HashListLineTest, CommentsAndBlankLinesSayNothing) {
    for (const char* pszLine : {"", "\r", "   ", " \t ", "# comment", "  # comment", "#"}) {
        EXPECT_EQ(HashListLine::KIND_NOTHING, ParseHashListLine(pszLine).eKind) << pszLine;
    }
}

TEST(HashListLineTest, Sha256IsWellFormedButOfNoUse) {
    for (const std::string& strLine :
         {SHA256 + "  name", SHA256 + ":12:Name", "SHA256 (name) = " + SHA256}) {
        EXPECT_EQ(HashListLine::KIND_UNUSABLE, ParseHashListLine(strLine).eKind) << strLine;
    }
}

TEST(HashListLineTest, SaysWhatIsWrongAndWhatToDo) {
    const struct {
        std::string strLine;
        std::string strProblem;
    } BAD_LINES[] = {
        {"hello", "this is no line of"},
        {SHA1.substr(1) + "  name", "the digest has 39 hexadecimal digits"},
        {MD5 + "0  name", "the digest has 33 hexadecimal digits"},
        {MD5 + " name", "this is no line of"},
        {MD5 + "\t name", "this is no line of"},
        {MD5 + "  ", "nothing is named after the digest"},
        {MD5, "nothing is named after the digest"},
        {MD5 + "  \r", "nothing is named after the digest"},
        {MD5 + ":12", "a signature line reads digest:size:name"},
        {MD5 + ":12:", "nothing is named after the digest"},
        {MD5 + ":twelve:Name", "the size between the colons"},
        {MD5 + "::Name", "the size between the colons"},
        {MD5 + ":12:Name:x", "a signature line reads digest:size:name"},
        {MD5 + ":12:Name:1:2:3", "a signature line reads digest:size:name"},
        {"\\" + MD5 + "  a\\x", "may hold \\\\, \\n and \\r only"},
        {"\\" + MD5 + "  a\\", "may hold \\\\, \\n and \\r only"},
        {"\\" + MD5 + ":12:Name", "this is no line of"},
        {"\\", "this is no line of"},
        {"SHA512 (name) = " + SHA1, "digests of this kind cannot be used"},
        {"SHA1 (name) = " + MD5, "the digest has 32 digits instead of 40"},
        {"SHA1 (name) = " + SHA1.substr(1) + "g", "no hexadecimal digit"},
        {"SHA1 (name) " + SHA1, "the digest are missing"},
        {"SHA1 (name", "the digest are missing"},
        {"SHA1 (name) =", "the digest are missing"},
        {"SHA1 (name) x= " + SHA1, "the digest are missing"},
        {"SHA1 () = " + SHA1, "nothing is named after the digest"},
        {"(", "this is no line of"},
        {" ()", "this is no line of"},
        {std::string("\0\0", 2), "it holds a NUL byte"},
        {MD5 + std::string("  a\0b", 5), "it holds a NUL byte"},
        {"\x7F"
         "ELF\x02",
         "this is no line of"},
    };
    for (const auto& bad : BAD_LINES) {
        const HashListLine line = ParseHashListLine(bad.strLine);

        EXPECT_EQ(HashListLine::KIND_BAD, line.eKind) << bad.strLine;
        EXPECT_THAT(line.strProblem, HasSubstr(bad.strProblem)) << bad.strLine;
        EXPECT_THAT(line.strProblem, HasSubstr("; ")) << bad.strLine;
    }
}

// Whoever writes into a directory that a list is made of chooses the names.
TEST(HashListLineTest, ANameIsTakenByteForByte) {
    const std::pair<std::string, std::string> LINES[] = {
        {MD5 + "   ", " "},
        {MD5 + "  *a", "*a"},
        {MD5 + " **a", "*a"},
        {MD5 + "  a\r\r", "a\r"},
        {MD5 + "  # a", "# a"},
        {MD5 + "  a\x1B[2J\xFF", "a\x1B[2J\xFF"},
        {MD5 + "  MD5 (b) = " + MD5, "MD5 (b) = " + MD5},
        {"\t" + MD5 + "  tab", "tab"},
        {"MD5 ( a ) = " + MD5, " a "},
        {"MD5 (a) = x (b) = " + MD5, "a) = x (b"},
        {"MD5 ((a) =    " + MD5, "(a"},
        {"\\MD5 (a\\\\) = " + MD5, "a\\"},
        {MD5 + ":1:a b", "a b"}};
    for (const auto& line : LINES) {
        const HashListLine parsed = ParseHashListLine(line.first);
        EXPECT_EQ(HashListLine::KIND_MD5, parsed.eKind) << line.first << ": " << parsed.strProblem;
        EXPECT_EQ(MD5, parsed.strDigest) << line.first;
        EXPECT_EQ(line.second, parsed.strName) << line.first;
    }
}

TEST(HashListLineTest, ALineThatIsOfNoUseHasNeitherDigestNorName) {
    for (const std::string& strLine :
         {MD5 + ":x:Name", "\\" + MD5 + "  a\\x", std::string("# a"), std::string("hello")}) {
        const HashListLine line = ParseHashListLine(strLine);
        EXPECT_EQ("", line.strDigest) << strLine;
        EXPECT_EQ("", line.strName) << strLine;
    }
    EXPECT_EQ("", ParseHashListLine(MD5 + "  a").strProblem);
}

TEST(HashListLineTest, EachProblemSaysWhatToDo) {
    const std::pair<std::string, std::string> PROBLEMS[] = {
        {"hello",
         "this is no line of sha1sum, md5sum, .hdb or .hsb; correct it, or begin it with # to pass "
         "it over"},
        {MD5 + "0  a",
         "the digest has 33 hexadecimal digits, but MD5 has 32 and SHA-1 has 40; make the list "
         "again with sha1sum or md5sum"},
        {MD5, "nothing is named after the digest; write what it is of behind two blanks"},
        {MD5 + ":1", "a signature line reads digest:size:name; copy the line again"},
        {MD5 + ":x:a",
         "the size between the colons is neither a number nor *; copy the line again"},
        {"\\" + MD5 + "  a\\x",
         "a line that begins with a backslash may hold \\\\, \\n and \\r only; make the list again "
         "with sha1sum or md5sum"},
        {"SHA512 (a) = 0",
         "digests of this kind cannot be used; make the list again with sha1sum or md5sum"},
        {"SHA1 (a) = 0", "the digest has 1 digits instead of 40; copy the line again"},
        {"SHA1 (a) = " + SHA1.substr(1) + "g",
         "the digest holds a character that is no hexadecimal digit; copy the line again"},
        {"SHA1 (a", "after the name \") = \" and the digest are missing; copy the line again"},
        {std::string("a\0", 2),
         "it holds a NUL byte, so this is no plain text (a program, UTF-16, or made with --zero); "
         "give a list in plain text"}};
    for (const auto& problem : PROBLEMS) {
        EXPECT_EQ(problem.second, ParseHashListLine(problem.first).strProblem);
    }
}

TEST(HashListLineTest, WhatLooksLikeATagIsOneOnlyAtTheBeginningAndWithATagsLetters) {
    const std::string NO_TAG = "this is no line of";
    const std::string NO_KIND = "digests of this kind cannot be used";
    const std::pair<std::string, std::string> LINES[] = {
        {"sha1 (a) = " + SHA1, NO_KIND},
        {"SHA-1 (a) = " + SHA1, NO_KIND},
        {"SHA512/256 (a) = " + SHA1, NO_KIND},
        {"MD5  (a) = " + MD5, NO_TAG},
        {"MD_5 (a) = " + MD5, NO_TAG},
        {"ABCDEFGHIJKLMN (a) = " + MD5, NO_KIND},
        {"ABCDEFGHIJKLMNO (a) = " + MD5, NO_TAG},
        {"(MD5) = " + MD5, NO_TAG},
        {"MD5 (a) = " + MD5 + " ", "the digest has 33 digits instead of 32"},
        {"MD5 (a)  x= " + MD5, "the digest are missing"},
        {"SHA256 (a) = " + MD5, "the digest has 32 digits instead of 64"}};
    for (const auto& line : LINES) {
        EXPECT_THAT(ParseHashListLine(line.first).strProblem, HasSubstr(line.second)) << line.first;
    }
}

TEST(HashListLineTest, ASignaturesLevelsAreNumbersAndItsSizeMayBeAnything) {
    for (const std::string& strLine :
         {MD5 + ":0:a:0:0", MD5 + ":99999999999999999999:a", MD5 + ":*:a:1"}) {
        EXPECT_EQ(HashListLine::KIND_MD5, ParseHashListLine(strLine).eKind) << strLine;
    }
    for (const std::string& strLine : {MD5 + ":1:a:", MD5 + ":1:a:1:", MD5 + ":1:a::1",
                                       MD5 + ":1:a:-1", MD5 + ":1:a:1:2:", MD5 + ":"}) {
        EXPECT_EQ("a signature line reads digest:size:name; copy the line again",
                  ParseHashListLine(strLine).strProblem)
            << strLine;
    }
    EXPECT_THAT(ParseHashListLine(MD5 + ":-1:a").strProblem, HasSubstr("neither a number nor *"));
    EXPECT_THAT(ParseHashListLine(MD5.substr(1) + ":1:a").strProblem,
                HasSubstr("the digest has 31 hexadecimal digits"));
}
