#include "host/base/HumanText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

TEST(HumanTextTest, BytesAreWordedByTheirSize) {
    EXPECT_EQ("0 B", text::Bytes(0));
    EXPECT_EQ("1023 B", text::Bytes(1023));
    EXPECT_EQ("1.5 KiB", text::Bytes(1536));
    EXPECT_EQ("2.0 MiB", text::Bytes(2097152));
    EXPECT_EQ("1024.0 TiB", text::Bytes(1125899906842624));
}

TEST(HumanTextTest, TimesAreLocal) {
    setenv("TZ", "XXX-2", 1);
    tzset();

    EXPECT_EQ("1970-01-01 02:00:01", text::LocalTime(1));

    EXPECT_EQ(8u, text::ClockNow().size());
    setenv("TZ", "UTC0", 1);
    tzset();
}
