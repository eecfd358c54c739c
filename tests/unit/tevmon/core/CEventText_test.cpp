#include "tevmon/core/CEventText.h"

#include <gtest/gtest.h>

#include <string>

#include "public/pluginhelper/JsonHelpers.h"
#include "tevmon/core/EventHelpers.h"

TEST(CEventTextTest, AnEventWithoutItemsIsAnEmptyArray) {
    EXPECT_EQ("[]", CEventText().Text());
}

TEST(CEventTextTest, ItemsStandInTheirOrderWithAKeyAndAValue) {
    CEventText event;

    event.Append("hi.event_name", "CreateProcess");
    event.Append("hi.type", "0");

    EXPECT_EQ(R"([{"key":"hi.event_name","value":"CreateProcess"},{"key":"hi.type","value":"0"}])",
              event.Text());
}

TEST(CEventTextTest, TheTextIsWhatTheLibraryWritesForTheSameItems) {
    const std::string values[] = {"",
                                  "plain",
                                  "/tmp/\"a\\b\"",
                                  "\xe6\xb6\x88\xff",
                                  "a\x7f\x80",
                                  std::string("a\0b", 3),
                                  std::string(3000, 'x')};
    CEventText event;
    Json::Value jsonEvent(Json::arrayValue);

    for (const std::string& strValue : values) {
        event.Append("hi.process_path", strValue);
        AppendItem(jsonEvent, "hi.process_path", strValue);
    }

    std::string strByLibrary;
    ASSERT_EQ(1, JsonToText(jsonEvent, strByLibrary, true));
    EXPECT_EQ(strByLibrary, event.Text());
}
