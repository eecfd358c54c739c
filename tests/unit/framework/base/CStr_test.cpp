#include "framework/base/CStr.h"

#include <gtest/gtest.h>

namespace {

std::string Forward(const char* pszFormat, ...) __attribute__((format(printf, 1, 2)));
std::string Forward(const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    // Twice from one list: the call must leave the caller's list readable as far as a copy goes.
    va_list copy;
    va_copy(copy, args);
    const std::string strFirst = CStr::stdformatV(pszFormat, args);
    const std::string strSecond = CStr::stdformatV(pszFormat, copy);
    va_end(copy);
    va_end(args);
    return strFirst + "|" + strSecond;
}

using Pieces = std::vector<std::string>;

}  // namespace

TEST(CStrTest, StdformatPrintsWhatPrintfWould) {
    EXPECT_EQ("('7','x',-3) 00ff 5%", CStr::stdformat("('%d','%s',%d) %04x 5%%", 7, "x", -3, 255));
}

TEST(CStrTest, StdformatOfNothingIsEmpty) {
    EXPECT_EQ("", CStr::stdformat("%s", ""));
}

TEST(CStrTest, StdformatTakesAnyLength) {
    for (const size_t nLength : {1u, 255u, 256u, 1023u, 4096u, 65536u, 5000000u}) {
        const std::string strLong(nLength, 'x');

        EXPECT_EQ("<" + strLong + ">", CStr::stdformat("<%s>", strLong.c_str()));
    }
}

TEST(CStrTest, StdformatKeepsANulByteThatACharacterPrints) {
    EXPECT_EQ(std::string("a\0b", 3), CStr::stdformat("a%cb", 0));
}

TEST(CStrTest, StdformatOfAnImpossibleCharacterIsEmpty) {
    const wchar_t impossible[] = {static_cast<wchar_t>(0x7fffffff), 0};

    EXPECT_EQ("", CStr::stdformat("%ls", impossible));
}

TEST(CStrTest, StdformatLeavesForeignTextInAnArgumentAlone) {
    EXPECT_EQ("%n%s%d", CStr::stdformat("%s", "%n%s%d"));
}

TEST(CStrTest, StdformatVPrintsAListOfArguments) {
    EXPECT_EQ("1 two|1 two", Forward("%d %s", 1, "two"));
}

TEST(CStrTest, Split2GivesThePiecesInOrder) {
    EXPECT_EQ((Pieces{"bash", "-c", "run.sh"}), CStr::split2("bash -c run.sh", ' '));
}

TEST(CStrTest, Split2ProducesNoEmptyPieces) {
    EXPECT_EQ((Pieces{"a", "b"}), CStr::split2("//a///b//", '/'));
    EXPECT_EQ(Pieces{}, CStr::split2("", '/'));
    EXPECT_EQ(Pieces{}, CStr::split2("///", '/'));
}

TEST(CStrTest, Split2WithoutASeparatorGivesTheWholeText) {
    EXPECT_EQ(Pieces{"a b"}, CStr::split2("a b", '/'));
}

TEST(CStrTest, Split2SplitsAtOneCharacterOnlyAndAlsoAtANul) {
    EXPECT_EQ((Pieces{"a\tb\n", "c"}), CStr::split2("a\tb\n c", ' '));
    EXPECT_EQ((Pieces{"a", "b"}), CStr::split2(std::string("a\0b", 3), '\0'));
}

TEST(CStrTest, SplitlinesReplacesTheFormerContent) {
    Pieces pieces = {"old", "older"};

    CStr::splitlines("one\n\ntwo\n", pieces, '\n');

    EXPECT_EQ((Pieces{"one", "two"}), pieces);
}

TEST(CStrTest, SplitlinesOfNothingEmptiesThePieces) {
    Pieces pieces = {"old"};

    CStr::splitlines("", pieces, '\n');

    EXPECT_EQ(Pieces{}, pieces);
}

TEST(CStrTest, SplitlinesMaySplitOneOfItsOwnPieces) {
    Pieces pieces = {"a,b"};

    CStr::splitlines(pieces[0], pieces, ',');

    EXPECT_EQ((Pieces{"a", "b"}), pieces);
}
