#include "public/pluginhelper/JsonReaders.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "tests/support/StdoutCapture.h"

namespace {

Json::Value Parsed(const std::string& strText) {
    Json::Value json;
    EXPECT_TRUE(ParseJsonText(strText, json)) << strText;
    return json;
}

std::string Nested(int nDepth) {
    return std::string(static_cast<size_t>(nDepth), '[') +
           std::string(static_cast<size_t>(nDepth), ']');
}

// One value of every kind, and one member that is not there.
Json::Value EveryKind() {
    return Parsed(
        R"({"text":"abc","empty":"","number":7,"big":2147483648,"huge":18446744073709551615,
        "negative":-5,"real":2.75,"true":true,"false":false,"null":null,"array":[1],"object":{}})");
}

}  // namespace

TEST(ParseJsonTextTest, AnEmptyTextIsRefusedWithoutParsing) {
    Json::Value json("untouched");

    EXPECT_FALSE(ParseJsonText("", json));

    // The reader would have replaced the value.
    EXPECT_EQ(Json::Value("untouched"), json);
}

TEST(ParseJsonTextTest, AnObjectIsParsed) {
    const Json::Value json = Parsed(R"({"a":{"b":[1,2]}})");

    EXPECT_EQ(2, json["a"]["b"][1].asInt());
}

TEST(ParseJsonTextTest, CommentsAreAllowed) {
    const Json::Value json = Parsed("// before\n{\"a\":1 /* within */}\n// after\n");

    EXPECT_EQ(1, JsonInt(json, "a"));
}

TEST(ParseJsonTextTest, CommentsAreCollected) {
    EXPECT_TRUE(Parsed("[1/*one*/]")[0].hasComment(Json::commentAfterOnSameLine));
}

TEST(ParseJsonTextTest, AMillionCommentsOnOneLineCostNoMoreThanTheirText) {
    std::string strText = "{\"param\":[1]";
    for (int i = 0; i < 1000000; ++i) {
        strText += "/**/";
    }
    strText += "}";

    EXPECT_EQ(1, Parsed(strText)["param"][0].asInt());  // hours, were they collected
}

TEST(ParseJsonTextTest, CommentsAreCollectedOnlyWhileTheirNumberTimesTheLengthStaysBelowABound) {
    const std::string strBlanks(20000, ' ');
    std::string strComments;
    for (int i = 0; i < 10000; ++i) {
        strComments += "/**/";
    }

    EXPECT_TRUE(Parsed("[1/*one*/" + strBlanks + strBlanks + "]")[0].hasComment(
        Json::commentAfterOnSameLine));
    EXPECT_FALSE(
        Parsed("[1/*one*/" + strComments + "]")[0].hasComment(Json::commentAfterOnSameLine));
}

TEST(ParseJsonTextTest, AFewCommentsInALargeTextAreCollected) {
    const std::string strText =
        "[\"" + std::string(1000000, '/') + " " + std::string(1000000, 'x') + "\",1/*one*/]";
    const std::string strPlain = "[\"" + std::string(4000000, 'x') + "\",1/*one*/]";

    EXPECT_EQ(1, Parsed(strText)[1].asInt());  // slashes inside a text are no comments
    EXPECT_TRUE(Parsed(strPlain)[1].hasComment(Json::commentAfterOnSameLine));
}

TEST(ParseJsonTextTest, WhatIsNotJsonIsRefusedAndSaysNothing) {
    const StdoutCapture output;
    Json::Value json;

    for (const char* pszText : {"{", "{\"a\":}", "nonsense", "{\"a\":1e999}", "\"\\u12", "\xff\xfe",
                                "[1,", "{\"a\" 1}", " ", "\n"}) {
        EXPECT_FALSE(ParseJsonText(pszText, json)) << pszText;
    }

    EXPECT_EQ("", output.Text());
}

TEST(ParseJsonTextTest, RootsOfAnyKindAreParsed) {
    EXPECT_TRUE(Parsed("[]").isArray());
    EXPECT_TRUE(Parsed("\"text\"").isString());
    EXPECT_TRUE(Parsed("17").isInt());
    EXPECT_TRUE(Parsed("null").isNull());
}

TEST(ParseJsonTextTest, ADepthOfAThousandIsParsed) {
    EXPECT_TRUE(Parsed(Nested(1000)).isArray());
}

TEST(ParseJsonTextTest, ADepthAboveAThousandIsCaughtAndRefused) {
    Json::Value json;

    EXPECT_FALSE(ParseJsonText(Nested(1001), json));
    EXPECT_FALSE(ParseJsonText(Nested(100000), json));
}

TEST(ParseJsonTextTest, ARawNulInsideATextIsAccepted) {
    const std::string strText("{\"a\":\"x\0y\",\"b\":2}", 17);

    const Json::Value json = Parsed(strText);

    EXPECT_EQ(std::string("x\0y", 3), JsonText(json, "a"));
    EXPECT_EQ(2, JsonInt(json, "b"));
}

TEST(ParseJsonTextTest, AFailedParseLeavesTheNextOneUntouched) {
    Json::Value json;
    EXPECT_FALSE(ParseJsonText("{\"a\":", json));

    EXPECT_TRUE(ParseJsonText("{\"a\":3}", json));

    EXPECT_EQ(3, JsonInt(json, "a"));
}

TEST(JsonReadersTest, HasMemberIsTrueForAMemberOfAnyKindEvenNull) {
    const Json::Value json = EveryKind();

    for (const char* pszKey : {"text", "empty", "number", "null", "array", "object", "false"}) {
        EXPECT_TRUE(JsonHasMember(json, pszKey)) << pszKey;
    }
    EXPECT_FALSE(JsonHasMember(json, "absent"));
    EXPECT_FALSE(JsonHasMember(json, ""));
}

TEST(JsonReadersTest, WhatIsNotAnObjectHasNoMembers) {
    for (const char* pszText : {"[{\"a\":1}]", "\"a\"", "17", "1.5", "true", "null", "[]"}) {
        const Json::Value json = Parsed(pszText);
        EXPECT_FALSE(JsonHasMember(json, "a")) << pszText;
        EXPECT_TRUE(JsonMember(json, "a").isNull()) << pszText;
        EXPECT_EQ("", JsonText(json, "a")) << pszText;
        EXPECT_EQ(0, JsonInt(json, "a")) << pszText;
        EXPECT_EQ(0, JsonInt64(json, "a")) << pszText;
    }
}

TEST(JsonReadersTest, AbsentMembersAreNullAndReadingDoesNotMakeThem) {
    const Json::Value json = Parsed("{\"a\":1}");

    EXPECT_TRUE(JsonMember(json, "b").isNull());

    EXPECT_EQ(Parsed("{\"a\":1}"), json);
}

TEST(JsonReadersTest, OnlyAnArrayHasElements) {
    EXPECT_EQ(3U, JsonArraySize(Parsed("[1,2,3]")));
    for (const char* pszText : {"[]", "{\"a\":1,\"b\":2}", "\"abc\"", "17", "true", "null"}) {
        EXPECT_EQ(0U, JsonArraySize(Parsed(pszText))) << pszText;
    }
}

TEST(JsonReadersTest, TextOfEveryKindIsItsTextFormOrEmpty) {
    const Json::Value json = EveryKind();

    EXPECT_EQ("abc", JsonText(json, "text"));
    EXPECT_EQ("", JsonText(json, "empty"));
    EXPECT_EQ("7", JsonText(json, "number"));
    EXPECT_EQ("true", JsonText(json, "true"));
    EXPECT_EQ("", JsonText(json, "null"));
    EXPECT_EQ("", JsonText(json, "array"));
    EXPECT_EQ("", JsonText(json, "object"));
    EXPECT_EQ("", JsonText(json, "absent"));
}

TEST(JsonReadersTest, NumberOfEveryKindIsTheNumberOrZero) {
    const Json::Value json = EveryKind();

    EXPECT_EQ(7, JsonInt(json, "number"));
    EXPECT_EQ(-5, JsonInt(json, "negative"));
    EXPECT_EQ(2, JsonInt(json, "real"));
    EXPECT_EQ(1, JsonInt(json, "true"));
    EXPECT_EQ(0, JsonInt(json, "text"));
    EXPECT_EQ(0, JsonInt(json, "null"));
    EXPECT_EQ(0, JsonInt(json, "array"));
    EXPECT_EQ(0, JsonInt(json, "object"));
    EXPECT_EQ(0, JsonInt(json, "absent"));
}

TEST(JsonReadersTest, NumbersBeyondThirtyOneBitsAreZeroAsIntAndWholeAsInt64) {
    const Json::Value json = EveryKind();

    EXPECT_EQ(0, JsonInt(json, "big"));
    EXPECT_EQ(2147483648, JsonInt64(json, "big"));
    EXPECT_EQ(0, JsonInt64(json, "huge"));
    EXPECT_EQ(0, JsonInt64(json, "text"));
    EXPECT_EQ(0, JsonInt64(json, "array"));
}

TEST(JsonReadersTest, ThirtyTwoBitLimitsAreReadWhole) {
    const Json::Value json = Parsed("{\"max\":2147483647,\"min\":-2147483648}");

    EXPECT_EQ(std::numeric_limits<int32_t>::max(), JsonInt(json, "max"));
    EXPECT_EQ(std::numeric_limits<int32_t>::min(), JsonInt(json, "min"));
}
