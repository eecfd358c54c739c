#include "host/report/screen/ScreenLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/report/screen/DisplayWidth.h"

using testing::HasSubstr;

namespace {

using Lines = std::vector<std::string>;

ViewNumbers Numbers() {
    ViewNumbers numbers;
    numbers.strState = "watching";
    numbers.strClock = "09:30:00";
    numbers.nUpSeconds = 3723;
    numbers.nLaunches = 1234567;
    numbers.nFiles = 80;
    numbers.dLaunchRate = 811.6;
    numbers.nBacklogEvents = 402;
    numbers.nBacklogMessages = 3;
    numbers.nQueries = 10;
    numbers.nCached = 90;
    numbers.nPackaged = 7;
    numbers.nUnknown = 2;
    numbers.nBadPrograms = 1;
    numbers.nBadRuns = 4;
    numbers.nOverflows = 1;
    return numbers;
}

VerdictRow Row(const std::string& strSubject, const std::string& strBy, const Verdict& verdict) {
    VerdictRow row = verdict_row::Judged("launch", strSubject, strBy, verdict, false);
    row.strTime = "09:29:59";
    return row;
}

ViewScreen Screen(size_t nColumns, size_t nRows) {
    ViewScreen screen;
    screen.nColumns = nColumns;
    screen.nRows = nRows;
    screen.bColour = false;
    screen.bUnicode = false;
    return screen;
}

}  // namespace

TEST(ScreenLayoutTest, EightyColumnsShowWhatHappenedAndWhoDidIt) {
    VerdictRow folded = Row("/usr/bin/ls", "/usr/bin/bash", {10, "packages", "coreutils"});
    folded.nTimes = 12;
    VerdictRow error;
    error.strTime = "09:29:59";
    error.strSubject = "module L4  something\nforged";
    const std::vector<VerdictRow> rows = {
        folded, Row("/opt/some/very/long/folder/program", "", {70, "bad list b.txt", "x"}), error};

    const Lines lines = screen_layout::Lines(Numbers(), rows, Screen(80, 12));
    ASSERT_EQ(12u, lines.size());
    EXPECT_EQ(" tevmon-host watch   watching                             up 1:02:03   09:30:00 ",
              lines[0]);
    EXPECT_EQ(" launches   1234567  files           80  backlog        402  cache hits    90 % ",
              lines[1]);
    EXPECT_EQ(" packaged         7  good             0  unknown          2  bad              1 ",
              lines[2]);
    EXPECT_EQ(" queries         10  cached          90  lost            0+  unexplained      0 ",
              lines[3]);
    EXPECT_EQ("", lines[4]);
    EXPECT_EQ(" TIME      VERDICT   WHAT        TIMES  PROGRAM OR FILE         BY              ",
              lines[5]);
    EXPECT_EQ(" 09:29:59  packaged  launch        x12  /usr/bin/ls             /usr/bin/bash   ",
              lines[6]);
    EXPECT_EQ(" 09:29:59  bad       launch             /opt/so~folder/program                  ",
              lines[7]);
    EXPECT_EQ(" 09:29:59  module L4  something\\x0Aforged                                       ",
              lines[8]);
    EXPECT_EQ("", lines[9]);
}

TEST(ScreenLayoutTest, WideScreensHaveRatesLevelsAndOwners) {
    const std::vector<VerdictRow> rows = {
        Row("/usr/bin/ls", "/usr/bin/bash", {10, "packages", "coreutils"}),
        Row("/tmp/bad", "/usr/bin/bash", {70, "bad list b.txt", "x"})};

    const Lines lines = screen_layout::Lines(Numbers(), rows, Screen(120, 12));

    EXPECT_EQ(
        " launches   1,234,567  812/s   files             80  0/s     backlog          402  in 3   "
        " "
        "cache hits      90 %         ",
        lines[1]);
    EXPECT_EQ(
        " 09:29:59  packaged  10  launch             /usr/bin/ls                       "
        "/usr/bin/bash             coreutils       ",
        lines[6]);
    EXPECT_THAT(lines[7], HasSubstr("x (bad list"));
}

TEST(ScreenLayoutTest, NoLineIsWiderThanTheScreenAndAllRowsAreThere) {
    std::vector<VerdictRow> rows(
        50, Row("/tmp/\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E/program with a long name",
                "/usr/bin/bash", {40, "none", ""}));
    for (const size_t nColumns : {1u, 7u, 20u, 59u, 60u, 79u, 99u, 100u, 133u, 200u, 400u}) {
        for (const size_t nRows : {1u, 2u, 9u, 24u}) {
            const Lines lines = screen_layout::Lines(Numbers(), rows, Screen(nColumns, nRows));
            ASSERT_EQ(nRows, lines.size());
            for (const std::string& strLine : lines) {
                EXPECT_LE(display_width::Width(strLine), nColumns) << nColumns << ": " << strLine;
            }
        }
    }
}

TEST(ScreenLayoutTest, TheNewestRowsAreShownWhenThereIsNoRoomForAll) {
    std::vector<VerdictRow> rows;
    for (int i = 0; i < 30; ++i) {
        rows.push_back(Row("/bin/" + std::to_string(i), "", {40, "none", ""}));
    }

    const Lines lines = screen_layout::Lines(Numbers(), rows, Screen(80, 20));

    EXPECT_THAT(lines.back(), HasSubstr("/bin/29"));
    EXPECT_THAT(lines[6], HasSubstr("/bin/16"));
}
