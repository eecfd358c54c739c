#include "host/report/text/VerdictRow.h"

#include <gtest/gtest.h>

#include "tests/support/host/OnTerminal.h"

namespace {

// The line of a row that came at half past nine.
std::string Line(VerdictRow row, const Console& output = Console()) {
    row.strTime = "09:30:00";
    return verdict_row::Text(output, row);
}

}  // namespace

TEST(VerdictRowTest, AVerdictStandsWithWhatHappenedAndWhoDidIt) {
    const VerdictRow row = verdict_row::Judged("FileCreate", "/etc/cron.d/x", "/usr/bin/touch",
                                               {10, "packages", "coreutils"}, false);

    EXPECT_EQ(
        "09:30:00  packaged   10  FileCreate   /etc/cron.d/x  by /usr/bin/touch  "
        "coreutils (packages)",
        Line(row));
}

TEST(VerdictRowTest, WhatIsNotKnownIsLeftOut) {
    const VerdictRow row = verdict_row::Judged("launch", "/bin/a", "", {40, "none", ""}, true);

    EXPECT_EQ("09:30:00  unknown    40  launch       /bin/a  cached", Line(row));
}

TEST(VerdictRowTest, ANameCannotForgeWhoMadeItAndItsPackage) {
    const VerdictRow row =
        verdict_row::Judged("launch", "/tmp/x  by /usr/bin/dpkg   coreutils (packages)",
                            "/tmp/y  z", {40, "none", ""}, false);

    EXPECT_EQ(
        "09:30:00  unknown    40  launch       "
        "/tmp/x \\x20by /usr/bin/dpkg \\x20 coreutils (packages)  by /tmp/y \\x20z",
        Line(row));
}

TEST(VerdictRowTest, NothingOutsideCanForgeALine) {
    const VerdictRow row = verdict_row::Unjudged("lost", "launch", "a\nb", "c\033[2J");

    EXPECT_EQ("09:30:00  lost           launch       a\\x0Ab  c\\x1B[2J", Line(row));
}

TEST(VerdictRowTest, WhyIsThePackageAndItsSourceOrWhichOfTheTwoThereIs) {
    const struct {
        Verdict verdict;
        const char* pszWhy;
        const char* pszOwner;
    } CASES[] = {{{10, "packages", "coreutils"}, "coreutils (packages)", "coreutils"},
                 {{70, "bad list", ""}, "bad list", "bad list"},
                 {{40, "none", "x"}, "x", "x"},
                 {{40, "none", ""}, "", ""},
                 {{40, "", ""}, "", ""}};
    for (const auto& each : CASES) {
        const VerdictRow row = verdict_row::Judged("launch", "/bin/a", "", each.verdict, false);
        EXPECT_EQ(each.pszWhy, row.strWhy) << each.pszWhy;
        EXPECT_EQ(each.pszOwner, row.strOwner) << each.pszWhy;
    }
}

TEST(VerdictRowTest, AJudgedRowHasTheVerdictsWordAndLevelAndATime) {
    const VerdictRow row =
        verdict_row::Judged("FileModify", "/a", "/b", {55, "bad list", "x"}, true);

    EXPECT_EQ("level 55", row.strVerdict);
    EXPECT_EQ(55, row.nLevel);
    EXPECT_EQ("FileModify", row.strWhat);
    EXPECT_EQ("/a", row.strSubject);
    EXPECT_EQ("/b", row.strBy);
    EXPECT_TRUE(row.bCached);
    EXPECT_EQ(8u, row.strTime.size());
    EXPECT_EQ(1u, row.nTimes);
}

TEST(VerdictRowTest, ARowThatIsNoVerdictHasNoLevelAndNoOwner) {
    const VerdictRow row = verdict_row::Unjudged("lost", "launch", "3 launches", "buffer full");

    EXPECT_EQ("lost", row.strVerdict);
    EXPECT_EQ(0, row.nLevel);
    EXPECT_EQ("3 launches", row.strSubject);
    EXPECT_EQ("buffer full", row.strWhy);
    EXPECT_EQ("", row.strBy);
    EXPECT_EQ("", row.strOwner);
    EXPECT_FALSE(row.bCached);
}

TEST(VerdictRowTest, AWordLongerThanItsColumnMovesTheRestAndIsNotCut) {
    const VerdictRow row = verdict_row::Unjudged("a long word here", "FileSomething", "x", "");

    EXPECT_EQ("09:30:00  a long word here  FileSomething  x", Line(row));
}

TEST(VerdictRowTest, BlanksInANameAreEscapedFromTheSecondOnHoweverManyThereAre) {
    for (size_t nBlanks = 0; nBlanks < 9; ++nBlanks) {
        VerdictRow row =
            verdict_row::Unjudged("lost", "launch", "a" + std::string(nBlanks, ' ') + "b", "why");
        row.strTime = "09:30:00";
        const std::string strText = verdict_row::Text(Console(), row);
        const size_t nName = strText.find("a", 38);
        EXPECT_EQ("  why", strText.substr(strText.find("  ", nName))) << nBlanks;
    }
}

TEST(VerdictRowTest, GoodDoubtfulAndBadLevelsHaveTheirColours) {
    EXPECT_EQ(Console::COLOUR_GREEN, verdict_row::LevelColour(10));
    EXPECT_EQ(Console::COLOUR_GREEN, verdict_row::LevelColour(20));
    EXPECT_EQ(Console::COLOUR_YELLOW, verdict_row::LevelColour(21));
    EXPECT_EQ(Console::COLOUR_YELLOW, verdict_row::LevelColour(59));
    EXPECT_EQ(Console::COLOUR_RED, verdict_row::LevelColour(60));
}

TEST(VerdictRowTest, OnATerminalTheVerdictHasItsColourAndTheRestOfTheLineIsDim) {
    const Pty pty;
    const OnTerminal onTerminal(pty);
    const Console output;
    VerdictRow row = verdict_row::Judged("launch", "/bin/a", "/bin/b", {70, "list", "x"}, true);
    row.strTime = "09:30:00";
    EXPECT_EQ(
        "09:30:00  \033[31mbad        70\033[0m  launch       /bin/a\033[2m  by /bin/b  x (list)  "
        "cached\033[0m",
        verdict_row::Text(output, row));

    row = verdict_row::Unjudged("lost", "launch", "3 launches", "");
    row.strTime = "09:30:00";
    EXPECT_EQ("09:30:00  \033[2mlost         \033[0m  launch       3 launches",
              verdict_row::Text(output, row));
}

TEST(VerdictRowTest, LevelsAreMembersInTheirOrder) {
    EXPECT_EQ("{}", verdict_row::LevelsJson({}));
    EXPECT_EQ(R"({"-1":4,"10":18446744073709551615,"70":0})",
              verdict_row::LevelsJson({{70, 0}, {10, 18446744073709551615U}, {-1, 4}}));
}
