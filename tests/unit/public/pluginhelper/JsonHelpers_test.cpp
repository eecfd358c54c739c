#include "public/pluginhelper/JsonHelpers.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

std::string Compact(const Json::Value& json) {
    std::string strText;
    EXPECT_EQ(1, JsonToText(json, strText, true));
    return strText;
}

}  // namespace

TEST(JsonSettersTest, TextsNumbersAndValuesBecomeMembers) {
    Json::Value json;

    EXPECT_EQ(1, SetJsonString("chars", json, "one"));
    EXPECT_EQ(1, SetJsonString("text", json, std::string("two")));
    EXPECT_EQ(1, SetJsonInt("number", json, -3));
    EXPECT_EQ(1, SetJsonValue("value", json, Json::Value(true)));

    EXPECT_EQ(R"({"chars":"one","number":-3,"text":"two","value":true})", Compact(json));
}

TEST(JsonSettersTest, ANullOrEmptyKeyIsRefusedWithoutChange) {
    Json::Value json;
    const Json::Value jsonValue(1);

    for (const char* pszKey : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(0, SetJsonString(pszKey, json, "text"));
        EXPECT_EQ(0, SetJsonString(pszKey, json, std::string("text")));
        EXPECT_EQ(0, SetJsonInt(pszKey, json, 1));
        EXPECT_EQ(0, SetJsonValue(pszKey, json, jsonValue));
        EXPECT_EQ(0, SetJsonValue(pszKey, json, Json::Value(1)));
    }

    EXPECT_TRUE(json.isNull());
}

TEST(JsonSettersTest, AnEmptyTextIsSetAsAMember) {
    Json::Value json;

    EXPECT_EQ(1, SetJsonString("chars", json, ""));
    EXPECT_EQ(1, SetJsonString("text", json, std::string()));

    EXPECT_EQ(R"({"chars":"","text":""})", Compact(json));
}

TEST(JsonSettersTest, ANullTextIsRefusedWithoutChange) {
    Json::Value json(Json::objectValue);

    EXPECT_EQ(0, SetJsonString("key", json, static_cast<const char*>(nullptr)));

    EXPECT_EQ("{}", Compact(json));
}

TEST(JsonSettersTest, WhatIsNoObjectIsRefusedWithoutChange) {
    for (const Json::Value& jsonBefore :
         {Json::Value("text"), Json::Value(5), Json::Value(Json::arrayValue), Json::Value(true)}) {
        Json::Value json = jsonBefore;

        EXPECT_EQ(0, SetJsonString("key", json, "text"));
        EXPECT_EQ(0, SetJsonInt("key", json, 1));
        EXPECT_EQ(0, SetJsonValue("key", json, Json::Value(1)));

        EXPECT_EQ(jsonBefore, json);
    }
}

TEST(JsonSettersTest, ASecondSetReplacesTheFirst) {
    Json::Value json;

    EXPECT_EQ(1, SetJsonString("key", json, "text"));
    EXPECT_EQ(1, SetJsonInt("key", json, 2));

    EXPECT_EQ(R"({"key":2})", Compact(json));
}

TEST(JsonSettersTest, AValueIsCopied) {
    Json::Value json;
    Json::Value jsonValue(Json::arrayValue);

    EXPECT_EQ(1, SetJsonValue("key", json, jsonValue));
    jsonValue.append(1);

    EXPECT_EQ(R"({"key":[]})", Compact(json));
}

TEST(JsonSettersTest, AnEmptyArrayPrintsAsOneAndANullValuePrintsNull) {
    Json::Value json;

    EXPECT_EQ(1, SetJsonValue("array", json, Json::Value(Json::arrayValue)));
    EXPECT_EQ(1, SetJsonValue("null", json, Json::Value()));

    EXPECT_EQ(R"({"array":[],"null":null})", Compact(json));
}

TEST(JsonToTextTest, TheFastWriterWritesOneLineInAscendingKeyOrderWithoutALineFeed) {
    Json::Value json;
    (void)SetJsonInt("b", json, 2);
    (void)SetJsonString("a", json, "x");
    (void)SetJsonValue("c", json, Json::Value(Json::arrayValue));

    EXPECT_EQ(R"({"a":"x","b":2,"c":[]})", Compact(json));
}

TEST(JsonToTextTest, TheStyledWriterOfAnObjectEndsWithoutALineFeed) {
    Json::Value json;
    (void)SetJsonInt("a", json, 1);
    std::string strText;

    EXPECT_EQ(1, JsonToText(json, strText, false));

    EXPECT_EQ("{\n   \"a\" : 1\n}", strText);
}

TEST(JsonToTextTest, NonAsciiIsWrittenAsEscapes) {
    Json::Value json;
    (void)SetJsonString("k", json, "\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80");

    EXPECT_EQ(R"({"k":"\u00e9\u4e2d\ud83d\ude00"})", Compact(json));
}

TEST(JsonToTextTest, InvalidUtf8IsWrittenAsTheReplacementCharacter) {
    Json::Value json;
    (void)SetJsonString("k", json, "a\xff\xfe");

    EXPECT_EQ(R"({"k":"a\ufffd\ufffd"})", Compact(json));
}

TEST(JsonToTextTest, ControlCharactersQuotesAndNulAreEscaped) {
    Json::Value json;
    (void)SetJsonString("k", json, std::string("\"\\/\b\f\n\r\t\x01\0z", 11));

    EXPECT_EQ(R"({"k":"\"\\/\b\f\n\r\t\u0001\u0000z"})", Compact(json));
}

TEST(JsonToTextTest, PercentSignsStayData) {
    Json::Value json;
    (void)SetJsonString("%n%s", json, "%s%n%d");

    EXPECT_EQ(R"({"%n%s":"%s%n%d"})", Compact(json));
}

TEST(JsonToTextTest, OnlyTheLastLineFeedIsRemoved) {
    std::string strText = "former content";

    EXPECT_EQ(1, JsonToText(Json::Value("a\n"), strText, true));

    EXPECT_EQ("\"a\\n\"", strText);
}

TEST(AppendJsonStringTest, TheTextIsAppendedWithItsQuotes) {
    std::string strJson = "{\"k\":";

    AppendJsonString(strJson, "a b/c%s");

    EXPECT_EQ("{\"k\":\"a b/c%s\"", strJson);
}

TEST(AppendJsonStringTest, EveryPairOfBytesIsWrittenAsTheLibraryWritesIt) {
    for (int nFirst = 0; nFirst < 256; ++nFirst) {
        for (int nSecond = 0; nSecond < 256; ++nSecond) {
            const std::string strText = {'x', static_cast<char>(nFirst), static_cast<char>(nSecond),
                                         'y'};
            std::string strJson;

            AppendJsonString(strJson, strText);

            ASSERT_EQ(Compact(Json::Value(strText)), strJson) << nFirst << " " << nSecond;
        }
    }
}

TEST(AppendJsonStringTest, RandomTextsAreWrittenAsTheLibraryWritesThem) {
    std::mt19937 random(20311);
    for (int i = 0; i < 2000; ++i) {
        std::string strText(random() % 40, ' ');
        for (char& c : strText) {
            c = static_cast<char>(random());
        }
        std::string strJson;

        AppendJsonString(strJson, strText);

        ASSERT_EQ(Compact(Json::Value(strText)), strJson);
    }
}
