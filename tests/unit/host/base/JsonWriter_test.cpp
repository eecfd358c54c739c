#include "host/base/JsonWriter.h"

#include <gtest/gtest.h>

TEST(JsonWriterTest, AQuotedTextEscapesWhatJsonDemands) {
    EXPECT_EQ(R"("a\"b\\c\u000a\u0000é")", json_writer::Quote(std::string("a\"b\\c\n\0é", 9)));
}

TEST(JsonWriterTest, AQuotedTextReplacesOrKeepsBytesThatAreNotUtf8) {
    EXPECT_EQ(
        "\"a\xEF\xBF\xBD"
        "b\"",
        json_writer::Quote("a\xFF"
                           "b"));
    EXPECT_EQ(
        "\"a\xFF"
        "b\"",
        json_writer::Quote("a\xFF"
                           "b",
                           json_writer::BAD_BYTES_KEEP));
}

TEST(JsonWriterTest, MembersStandInTheOrderOfTheirAdding) {
    JsonObject object;
    object.Add("z", "text").Add("a", 1).Add("b", true).Add("c", 0.5);
    object.Add("n", static_cast<int64_t>(-5)).Add("u", static_cast<uint64_t>(5));
    object.AddJson("o", JsonObject().Text());

    EXPECT_EQ(R"({"z":"text","a":1,"b":true,"c":0.500,"n":-5,"u":5,"o":{}})", object.Text());
}
