#include "host/base/JsonRead.h"

#include <gtest/gtest.h>

TEST(JsonReadTest, ParseTakesJsonAndRefusesTheRest) {
    Json::Value jsonOut;

    EXPECT_TRUE(json_read::Parse(R"({"a":[1,2]})", jsonOut));
    EXPECT_FALSE(json_read::Parse("", jsonOut));
    EXPECT_FALSE(json_read::Parse("{\"a\":", jsonOut));
    EXPECT_FALSE(json_read::Parse("\xff", jsonOut));
}

TEST(JsonReadTest, TextThatIsNestedTooDeepIsRefused) {
    Json::Value jsonOut;

    EXPECT_FALSE(json_read::Parse(std::string(100000, '['), jsonOut));
    EXPECT_FALSE(json_read::Parse(std::string(2000, '[') + std::string(2000, ']'), jsonOut));
}

TEST(JsonReadTest, MembersAreThoseOfObjectsOnly) {
    Json::Value jsonOut;
    ASSERT_TRUE(json_read::Parse(R"({"a":1,"n":null})", jsonOut));

    EXPECT_NE(nullptr, json_read::Member(jsonOut, "a"));
    EXPECT_NE(nullptr, json_read::Member(jsonOut, "n"));
    EXPECT_EQ(nullptr, json_read::Member(jsonOut, "b"));
    for (const Json::Value& jsonOther :
         {Json::Value(), Json::Value(1), Json::Value("a"), Json::Value(Json::arrayValue)}) {
        EXPECT_EQ(nullptr, json_read::Member(jsonOther, "a"));
    }
}

TEST(JsonReadTest, TextIsEmptyForWhateverIsNoText) {
    Json::Value jsonOut;
    ASSERT_TRUE(json_read::Parse(R"({"t":"x","i":1,"n":null,"a":[],"o":{},"d":1.5})", jsonOut));

    EXPECT_EQ("x", json_read::Text(jsonOut, "t"));
    for (const char* pszKey : {"i", "n", "a", "o", "d", "absent"}) {
        EXPECT_EQ("", json_read::Text(jsonOut, pszKey)) << pszKey;
    }
    EXPECT_EQ("", json_read::Text(Json::Value(5), "t"));
}
