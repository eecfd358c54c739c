#include "host/report/screen/ScreenLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "host/report/screen/DisplayWidth.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using Lines = std::vector<std::string>;

ScreenNumbers Numbers() {
    ScreenNumbers numbers;
    numbers.strState = "watching";
    numbers.strClock = "09:30:00";
    numbers.nUpSeconds = 3723;
    numbers.nLaunches = 1234567;
    numbers.nFiles = 80;
    numbers.dLaunchRate = 811.6;
    numbers.nWaitingEvents = 402;
    numbers.nWaitingMessages = 3;
    numbers.nQueries = numbers.nQueried = 10;
    numbers.nCached = 90;
    numbers.nPackaged = 7;
    numbers.nUnknown = 2;
    numbers.nBadAnswers = 1;
    numbers.nBadRuns = 4;
    numbers.nOverflows = 1;
    return numbers;
}

VerdictRow Row(const std::string& strSubject, const std::string& strBy, const Verdict& verdict) {
    VerdictRow row = verdict_row::Judged("launch", strSubject, strBy, verdict, false);
    row.strTime = "09:29:59";
    return row;
}

ScreenFormat Screen(size_t nColumns, size_t nRows) {
    ScreenFormat screen;
    screen.nColumns = nColumns;
    screen.nRows = nRows;
    screen.bColour = false;
    screen.bUnicode = false;
    return screen;
}

ScreenFormat Coloured(size_t nColumns, size_t nRows) {
    ScreenFormat screen = Screen(nColumns, nRows);
    screen.bColour = true;
    return screen;
}

// A text of the host or the module.
VerdictRow Text(const std::string& strText) {
    VerdictRow row;
    row.strTime = "09:29:59";
    row.strSubject = strText;
    return row;
}

// strLine without the sequences that colour it.
std::string Plain(const std::string& strLine) {
    return std::regex_replace(strLine, std::regex("\033\\[[0-9;]*m"), "");
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
    EXPECT_EQ(" launches   1234567  files           80  waiting        402  cache hits    90 % ",
              lines[1]);
    EXPECT_EQ(" packaged         7  good             0  unknown          2  bad              1 ",
              lines[2]);
    EXPECT_EQ(" queries         10  dropped          0  lost            0+  unexplained      0 ",
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
        " launches   1,234,567  812/s   files             80  0/s     waiting          402  in 3   "
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

TEST(ScreenLayoutTest, ANumberThatFindsNoRoomLosesItsCommasAndThenItsThousands) {
    const std::pair<uint64_t, std::string> NUMBERS[] = {{999999, "999,999"},
                                                        {9999999, "9999999"},
                                                        {12345678, " 12345k"},
                                                        {1234567890, "  1234M"},
                                                        {999999999999, "999999M"},
                                                        {1000000000000, "  1000G"},
                                                        {999999999999999999, "999999T"}};
    for (const auto& number : NUMBERS) {
        ScreenNumbers numbers;
        numbers.nLaunches = number.first;
        EXPECT_EQ(" launches   " + number.second + " ",
                  screen_layout::Lines(numbers, {}, Screen(80, 12))[1].substr(0, 20));
    }
}

TEST(ScreenLayoutTest, ATitleKeepsItsClockAndCutsItsStateWhereThereIsNoRoom) {
    ScreenNumbers numbers = Numbers();
    numbers.strState = "ending: a\033b";
    numbers.nUpSeconds = 360061;
    const std::pair<size_t, std::string> TITLES[] = {
        {10, "up 100:01~"},
        {40, " tevmon-host wa~up 100:01:01   09:30:00 "},
        {60, " tevmon-host watch   ending: a\\x1Bb up 100:01:01   09:30:00 "},
        {100,
         " tevmon-host watch   ending: a\\x1Bb                   Ctrl-C ends the run   up "
         "100:01:01   09:30:00 "}};
    for (const auto& title : TITLES) {
        EXPECT_EQ(title.second, screen_layout::Lines(numbers, {}, Screen(title.first, 12))[0]);
    }
}

TEST(ScreenLayoutTest, CacheHitsNeedSomethingThatWasLookedUp) {
    const struct {
        uint64_t nQueried;
        uint64_t nCached;
        const char* pszField;
    } CASES[] = {{0, 0, " cache hits       - "},
                 {1, 0, " cache hits     0 % "},
                 {0, 1, " cache hits   100 % "},
                 {1, 199, " cache hits    99 % "}};
    for (const auto& each : CASES) {
        ScreenNumbers numbers;
        numbers.nQueried = each.nQueried;
        numbers.nCached = each.nCached;
        EXPECT_EQ(each.pszField,
                  screen_layout::Lines(numbers, {}, Screen(80, 12))[1].substr(60, 20));
    }
}

TEST(ScreenLayoutTest, WideFieldsSayMoreAboutWhatWaitsAndTheBad) {
    ScreenNumbers numbers = Numbers();
    numbers.nOverflows = 0;
    numbers.nDropped = 6;
    numbers.nLost = 5;
    numbers.nBadRuns = 1400;
    const Lines lines = screen_layout::Lines(numbers, {}, Screen(120, 12));
    EXPECT_EQ(
        " packaged           7          good               0          unknown            2         "
        " "
        "bad                1  ran 1,~",
        lines[2]);
    EXPECT_EQ(
        " queries           10          dropped            6          lost               5         "
        " "
        "unexplained        0         ",
        lines[3]);

    numbers.nOverflows = 1;
    EXPECT_THAT(screen_layout::Lines(numbers, {}, Screen(120, 12))[3],
                HasSubstr(" lost               5  full 1 "));
    numbers.nWaitingMessages = 0;
    EXPECT_EQ(" waiting          402         ",
              screen_layout::Lines(numbers, {}, Screen(120, 12))[1].substr(60, 30));
}

TEST(ScreenLayoutTest, ASmallScreenHasTheNewestRowsAndNoHead) {
    const std::vector<VerdictRow> rows = {Row("/bin/a", "", {10, "packages", "p"}),
                                          Row("/bin/b", "", {40, "none", ""}), Text("c")};
    EXPECT_THAT(screen_layout::Lines(Numbers(), rows, Screen(80, 11))[1], HasSubstr(" launches "));
    Lines lines = screen_layout::Lines(Numbers(), rows, Screen(80, 10));
    EXPECT_EQ(" 09:29:59  packaged  launch             /bin/a                                  ",
              lines[1]);
    EXPECT_EQ("", lines[4]);

    lines = screen_layout::Lines(Numbers(), rows, Screen(80, 3));
    EXPECT_EQ(" 09:29:59  unknown   launch             /bin/b                                  ",
              lines[1]);
    EXPECT_EQ(" 09:29:59  c                                                                    ",
              lines[2]);
    EXPECT_EQ(Lines(), screen_layout::Lines(Numbers(), rows, Screen(80, 0)));
}

TEST(ScreenLayoutTest, ANarrowScreenHasAVerdictAndANameALine) {
    const std::vector<VerdictRow> rows = {
        Row("/opt/a long folder/\033[2Jprogram", "/bin/sh", Verdict()), Text("a\nb")};
    EXPECT_EQ((Lines{" tevmon~up 1:02:03   09:30:00 ", "unknown /~older/\\x1B[2Jprogram",
                     " a\\x0Ab                       "}),
              screen_layout::Lines(Numbers(), rows, Screen(30, 3)));
    EXPECT_THAT(screen_layout::Lines(Numbers(), rows, Screen(59, 20))[1], StartsWith("unknown /"));
    EXPECT_THAT(screen_layout::Lines(Numbers(), rows, Screen(60, 20))[1], StartsWith(" launches"));
}

TEST(ScreenLayoutTest, WithUnicodeTimesAndCutsHaveSignsOfTheirOwn) {
    VerdictRow row = Row("/opt/some/very/long/folder/program", "", {70, "bad list b.txt", "x"});
    row.nTimes = 1000;
    ScreenFormat screen = Screen(80, 3);
    screen.bUnicode = true;
    EXPECT_EQ(
        " 09:29:59  bad       launch      \xC3\x97"
        "1000  /opt/so\xE2\x80\xA6"
        "folder/program                  ",
        screen_layout::Lines(Numbers(), {row}, screen)[1]);

    row.nTimes = 10000;
    screen.bUnicode = false;
    EXPECT_THAT(screen_layout::Lines(Numbers(), {row}, screen)[1],
                HasSubstr("launch      x100~  "));
}

TEST(ScreenLayoutTest, TheOwnerOfAGoodProgramIsItsPackageAndOfABadOneTheWholeReason) {
    const std::vector<VerdictRow> rows = {Row("/bin/a", "", {20, "good list g", "entry"}),
                                          Row("/bin/b", "", {70, "list b", "entry"}),
                                          Row("/bin/c", "", {40, "some list", ""}),
                                          verdict_row::Unjudged("lost", "launch", "3", "a\rb")};
    const Lines lines = screen_layout::Lines(Numbers(), rows, Screen(120, 12));
    const std::string OWNERS[] = {"entry           ", "entry (list b)  ", "some list       ",
                                  "a\\x0Db          "};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(OWNERS[i], lines[i + 6].substr(104)) << lines[i + 6];
    }
    EXPECT_EQ("  good      20  launch  ", lines[6].substr(9, 24));
    EXPECT_EQ("  lost          launch  ", lines[9].substr(9, 24));
}

TEST(ScreenLayoutTest, AStarterCanNeitherSteerTheScreenNorEndItsLine) {
    const VerdictRow row = Row("/bin/a", "/b\r\033[2J", {40, "none", ""});
    EXPECT_EQ(" 09:29:59  unknown   launch             /bin/a                  /b\\x0D\\x1B[2J   ",
              screen_layout::Lines(Numbers(), {row}, Screen(80, 3))[1]);
}

TEST(ScreenLayoutTest, ColoursTakeNoRoom) {
    std::vector<VerdictRow> rows = {Row("/bin/a", "/bin/b", {10, "packages", "p"}),
                                    Row("/bin/a", "/bin/b", {70, "list", "p"}), Text("c")};
    rows[0].nTimes = 3;
    for (const size_t nColumns : {30u, 60u, 80u, 120u}) {
        const Lines coloured = screen_layout::Lines(Numbers(), rows, Coloured(nColumns, 12));
        const Lines plain = screen_layout::Lines(Numbers(), rows, Screen(nColumns, 12));
        for (size_t i = 0; i < 12; ++i) {
            EXPECT_EQ(plain[i], Plain(coloured[i]));
        }
    }
}

TEST(ScreenLayoutTest, NumbersHaveTheColoursOfWhatTheyMeanAndNoneIsDim) {
    const Lines lines = screen_layout::Lines(Numbers(), {}, Coloured(80, 12));
    EXPECT_THAT(lines[0], StartsWith("\033[7m tevmon-host watch   watching   "));
    EXPECT_EQ(
        " \033[2mpackaged   \033[0m\033[32m      7\033[0m  \033[2mgood       \033[0m\033[2m      "
        "0\033[0m  \033[2munknown    \033[0m\033[33m      2\033[0m  \033[2mbad        "
        "\033[0m\033[1;31m      1\033[0m ",
        lines[2]);
    EXPECT_EQ(
        " \033[2mqueries    \033[0m     10  \033[2mdropped    \033[0m\033[32m      0\033[0m  "
        "\033[2mlost       "
        "\033[0m\033[1;31m     0+\033[0m  \033[2munexplained\033[0m\033[32m      0\033[0m ",
        lines[3]);

    ScreenNumbers numbers;
    numbers.nUnexplained = 1;
    numbers.nBadRuns = 1;  // of a program known from an earlier run
    numbers.nDropped = 1;
    const Lines more = screen_layout::Lines(numbers, {}, Coloured(80, 12));
    EXPECT_THAT(more[2], EndsWith("\033[2mbad        \033[0m\033[1;31m      0\033[0m "));
    EXPECT_THAT(more[3], EndsWith("\033[2mdropped    \033[0m\033[1;31m      1\033[0m  "
                                  "\033[2mlost       \033[0m\033[32m      0\033[0m  "
                                  "\033[2munexplained\033[0m\033[1;31m      1\033[0m "));
}

TEST(ScreenLayoutTest, ARowHasTheColourOfItsVerdictAndABadPrograms) {
    const std::vector<VerdictRow> rows = {
        Row("/bin/a", "", {20, "list", "p"}), Row("/bin/b", "", {40, "none", ""}),
        Row("/bin/c", "", {60, "list", "p"}), verdict_row::Unjudged("lost", "launch", "3", "why"),
        Text("d")};
    const Lines lines = screen_layout::Lines(Numbers(), rows, Coloured(80, 12));
    const std::string VERDICTS[] = {"\033[32mgood    \033[0m", "\033[33munknown \033[0m",
                                    "\033[1;31mlevel 60\033[0m", "\033[31mlost    \033[0m"};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_THAT(lines[i + 6], HasSubstr("\033[0m  " + VERDICTS[i] + "  launch      "));
    }
    EXPECT_THAT(lines[7], HasSubstr("  /bin/b   "));
    EXPECT_THAT(lines[8], HasSubstr("  \033[1;31m/bin/c                \033[0m  "));
    EXPECT_THAT(lines[10], StartsWith("\033[2m 09:29:59\033[0m  \033[33md   "));
}
