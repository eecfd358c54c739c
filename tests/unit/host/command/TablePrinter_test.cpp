#include "host/command/TablePrinter.h"

#include <gtest/gtest.h>

TEST(TablePrinterTest, PadFillsAndNeverCuts) {
    EXPECT_EQ("ab  ", view::Pad("ab", 4));
    EXPECT_EQ("abcde", view::Pad("abcde", 4));
}

TEST(TablePrinterTest, PreviewCutsBetweenCharacters) {
    EXPECT_EQ("", view::Preview("", 4));
    EXPECT_EQ("abcd", view::Preview("abcd", 4));
    EXPECT_EQ("abcd...", view::Preview("abcde", 4));
    EXPECT_EQ("abc\u00E4...", view::Preview("abc\u00E4x", 4));
    EXPECT_EQ("\\xFF\\x0A...", view::Preview("\xFF\nx", 2));
}

TEST(TablePrinterTest, NumbersThatAreNoneShowAsDashAndNull) {
    JsonObject json;
    view::AddNumber(json, "number", std::nullopt);
    view::AddTime(json, "time", std::nullopt);

    EXPECT_EQ("{\"number\":null,\"time\":null}", json.Text());
    EXPECT_EQ("-", view::TimeText(std::nullopt));
    EXPECT_EQ("-", view::LevelWord({std::nullopt, "x"}));
    EXPECT_EQ("-", view::AnalyserWord({std::nullopt, "x"}));
}

TEST(TablePrinterTest, LevelsBeyondAnIntAreShownAsTheyAre) {
    EXPECT_EQ("blocked", view::LevelWord({70, "70"}));
    EXPECT_EQ("level -1", view::LevelWord({-1, "-1"}));
    EXPECT_EQ("level 4294967366", view::LevelWord({4294967366, "4294967366"}));
}
