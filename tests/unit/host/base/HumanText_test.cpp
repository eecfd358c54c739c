#include "host/base/HumanText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "tests/support/TimeZone.h"

TEST(HumanTextTest, BytesAreWordedByTheirSize) {
    EXPECT_EQ("0 B", text::Bytes(0));
    EXPECT_EQ("1023 B", text::Bytes(1023));
    EXPECT_EQ("1.5 KiB", text::Bytes(1536));
    EXPECT_EQ("2.0 MiB", text::Bytes(2097152));
    EXPECT_EQ("1024.0 TiB", text::Bytes(1125899906842624));
}

TEST(HumanTextTest, TimesAreLocal) {
    const TimeZone zone("XXX-2");

    EXPECT_EQ("1970-01-01 02:00:01", text::LocalTime(1));

    EXPECT_EQ(8u, text::ClockNow().size());
}

TEST(HumanTextTest, BytesChangeTheirUnitAtEachPowerOf1024) {
    EXPECT_EQ("1.0 KiB", text::Bytes(1024));
    EXPECT_EQ("1023.0 KiB", text::Bytes(1023 * 1024));
    EXPECT_EQ("1.0 MiB", text::Bytes(1024 * 1024));
    EXPECT_EQ("1.0 GiB", text::Bytes(1024 * 1024 * 1024));
    EXPECT_EQ("1.0 TiB", text::Bytes(1099511627776));
    EXPECT_EQ("16777216.0 TiB", text::Bytes(std::numeric_limits<uint64_t>::max()));
}

TEST(HumanTextTest, NumbersAreGroupedByThrees) {
    EXPECT_EQ("0", text::Number(0));
    EXPECT_EQ("999", text::Number(999));
    EXPECT_EQ("1,000", text::Number(1000));
    EXPECT_EQ("12,345", text::Number(12345));
    EXPECT_EQ("999,999", text::Number(999999));
    EXPECT_EQ("1,234,567", text::Number(1234567));
    EXPECT_EQ("18,446,744,073,709,551,615", text::Number(std::numeric_limits<uint64_t>::max()));
}

TEST(HumanTextTest, OneThingHasTheWordOfOne) {
    EXPECT_EQ("0 messages", text::Count(0, "message"));
    EXPECT_EQ("1 message", text::Count(1, "message"));
    EXPECT_EQ("1,000 messages", text::Count(1000, "message"));
    EXPECT_EQ("1 launch", text::Count(1, "launch", "launches"));
    EXPECT_EQ("2 launches", text::Count(2, "launch", "launches"));
}

TEST(HumanTextTest, TimesBeforeTheEpochAndFarAheadArePrinted) {
    const TimeZone zone("UTC0");

    EXPECT_EQ("1969-12-31 23:59:59", text::LocalTime(-1));
    EXPECT_EQ("2038-01-19 03:14:08", text::LocalTime(2147483648));
    EXPECT_EQ("9999-12-31 23:59:59", text::LocalTime(253402300799));
}

TEST(HumanTextTest, ATimeThatNoCalendarHasIsPrintedAsItsNumber) {
    EXPECT_EQ("9223372036854775807", text::LocalTime(std::numeric_limits<int64_t>::max()));
    EXPECT_EQ("-9223372036854775808", text::LocalTime(std::numeric_limits<int64_t>::min()));
}
