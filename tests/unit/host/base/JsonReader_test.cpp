#include "host/base/JsonReader.h"

#include <gtest/gtest.h>

TEST(JsonReaderTest, ParseTakesJsonAndRefusesTheRest) {
    Json::Value jsonOut;

    EXPECT_TRUE(json_reader::Parse(R"({"a":[1,2]})", jsonOut));
    EXPECT_FALSE(json_reader::Parse("", jsonOut));
    EXPECT_FALSE(json_reader::Parse("{\"a\":", jsonOut));
    EXPECT_FALSE(json_reader::Parse("\xff", jsonOut));
}

TEST(JsonReaderTest, TextThatIsNestedTooDeepIsRefused) {
    Json::Value jsonOut;

    EXPECT_FALSE(json_reader::Parse(std::string(100000, '['), jsonOut));
    EXPECT_FALSE(json_reader::Parse(std::string(2000, '[') + std::string(2000, ']'), jsonOut));
}

TEST(JsonReaderTest, MembersAreThoseOfObjectsOnly) {
    Json::Value jsonOut;
    ASSERT_TRUE(json_reader::Parse(R"({"a":1,"n":null})", jsonOut));

    EXPECT_NE(nullptr, json_reader::Member(jsonOut, "a"));
    EXPECT_NE(nullptr, json_reader::Member(jsonOut, "n"));
    EXPECT_EQ(nullptr, json_reader::Member(jsonOut, "b"));
    for (const Json::Value& jsonOther :
         {Json::Value(), Json::Value(1), Json::Value("a"), Json::Value(Json::arrayValue)}) {
        EXPECT_EQ(nullptr, json_reader::Member(jsonOther, "a"));
    }
}

TEST(JsonReaderTest, TextIsEmptyForWhateverIsNoText) {
    Json::Value jsonOut;
    ASSERT_TRUE(json_reader::Parse(R"({"t":"x","i":1,"n":null,"a":[],"o":{},"d":1.5})", jsonOut));

    EXPECT_EQ("x", json_reader::Text(jsonOut, "t"));
    for (const char* pszKey : {"i", "n", "a", "o", "d", "absent"}) {
        EXPECT_EQ("", json_reader::Text(jsonOut, pszKey)) << pszKey;
    }
    EXPECT_EQ("", json_reader::Text(Json::Value(5), "t"));
}
