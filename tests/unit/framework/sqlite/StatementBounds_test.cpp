#include "framework/sqlite/StatementBounds.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Times(int nTimes, const std::string& strText) {
    std::string strAll;
    for (int i = 0; i < nTimes; ++i) {
        strAll += strText;
    }
    return strAll;
}

struct BoundsCase {
    const char* pszName;
    std::string strSQL;
    bool bWithin;
};

class StatementBoundsTest : public testing::TestWithParam<BoundsCase> {};

TEST_P(StatementBoundsTest, IsWithinOrNot) {
    EXPECT_EQ(GetParam().bWithin, IsWithinBounds(GetParam().strSQL.c_str()));
}

const std::string SELECTS = "select select select";
const std::string LONG = Times(1000, "x");

INSTANTIATE_TEST_SUITE_P(
    All, StatementBoundsTest,
    testing::Values(
        BoundsCase{"Nothing", "", true}, BoundsCase{"AThousandBytes", LONG, true},
        BoundsCase{"OneByteMore", LONG + "x", false},
        BoundsCase{"WordsOneByOne", Times(501, "x "), false},
        BoundsCase{"ALiteralHowLongEver", "'" + Times(100, LONG) + "'", true},
        BoundsCase{"DoubledQuotesInALiteral", "'" + Times(2000, "''") + "'", true},
        BoundsCase{"BehindALiteral", "'x'" + LONG, false},
        BoundsCase{"BehindADoubledQuote", "'x'''" + LONG, false},
        BoundsCase{"ALiteralWithoutItsEnd", "'" + LONG + LONG, true},
        BoundsCase{"ALiteralThatEndsInADoubledQuote", "'x''" + LONG + LONG, true},
        BoundsCase{"ManyEmptyLiterals", Times(400, "'',"), false},
        BoundsCase{"AQuotedName", "\"" + LONG + "'\"'" + LONG + "'", true},
        BoundsCase{"BehindAQuotedName", "\"'\"" + LONG, false},
        BoundsCase{"ANameInBackticks", "`" + LONG + "'`", true},
        BoundsCase{"BehindANameInBackticks", "`'`" + LONG, false},
        BoundsCase{"ANameInBrackets", "[" + LONG + "']", true},
        BoundsCase{"BehindANameInBrackets", "[']" + LONG, false},
        BoundsCase{"ABracketIsNotDoubled", "[]]" + LONG, false},
        BoundsCase{"ALineComment", "--" + LONG + "'\n", true},
        BoundsCase{"BehindALineComment", "-- '\n" + LONG, false},
        BoundsCase{"AMinusIsNoComment", "- '\n'" + LONG, false},
        BoundsCase{"AComment", "/*" + LONG + "'*/", true},
        BoundsCase{"ACommentWithoutItsEnd", "/*" + LONG + LONG, true},
        BoundsCase{"BehindAComment", "/*'*/" + LONG, false},
        BoundsCase{"ACommentDoesNotEndWhereItBegins", "/*/" + LONG + LONG, true},
        BoundsCase{"AnEmptyComment", "/**/" + LONG, false},
        BoundsCase{"ASlashIsNoComment", "/ *" + LONG, false},
        BoundsCase{"ASlashAndAStarAtTheEnd", "/*", true}, BoundsCase{"ThreeSelects", SELECTS, true},
        BoundsCase{"FourSelects", SELECTS + " select", false},
        BoundsCase{"InAnyCase", SELECTS + " SeLeCt", false},
        BoundsCase{"ValuesCount", SELECTS + "(values(1))", false},
        BoundsCase{"LongerWordsDoNot", SELECTS + " selects xselect select_ _select select1", true},
        BoundsCase{"NorLiterals", SELECTS + "'select'\"select\"/*select*/--select", true},
        BoundsCase{"BehindABlob", SELECTS + " x''select", false},
        BoundsCase{"FourJoints", "a||b||c||d||e", true},
        BoundsCase{"FiveJoints", "a||b||c||d||e||f", false},
        BoundsCase{"SingleStrokes", Times(100, "a|b"), true}),
    [](const testing::TestParamInfo<BoundsCase>& one) { return one.param.pszName; });

}  // namespace
