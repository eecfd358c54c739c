#include "host/report/text/VerdictRow.h"

#include <gtest/gtest.h>

TEST(VerdictRowTest, AVerdictStandsWithWhatHappenedAndWhoDidIt) {
    VerdictRow row = verdict_row::Judged("FileCreate", "/etc/cron.d/x", "/usr/bin/touch",
                                         {10, "packages", "coreutils"}, false);
    row.strTime = "09:30:00";

    EXPECT_EQ(
        "09:30:00  packaged   10  FileCreate   /etc/cron.d/x  by /usr/bin/touch  "
        "coreutils (packages)",
        verdict_row::Text(Console(), row));
}

TEST(VerdictRowTest, WhatIsNotKnownIsLeftOut) {
    VerdictRow row = verdict_row::Judged("launch", "/bin/a", "", {40, "none", ""}, true);
    row.strTime = "09:30:00";

    EXPECT_EQ("09:30:00  unknown    40  launch       /bin/a  cached",
              verdict_row::Text(Console(), row));
}

TEST(VerdictRowTest, ANameCannotForgeWhoMadeItAndItsPackage) {
    VerdictRow row =
        verdict_row::Judged("launch", "/tmp/x  by /usr/bin/dpkg   coreutils (packages)",
                            "/tmp/y  z", {40, "none", ""}, false);
    row.strTime = "09:30:00";

    EXPECT_EQ(
        "09:30:00  unknown    40  launch       "
        "/tmp/x \\x20by /usr/bin/dpkg \\x20 coreutils (packages)  by /tmp/y \\x20z",
        verdict_row::Text(Console(), row));
}

TEST(VerdictRowTest, NothingOutsideCanForgeALine) {
    VerdictRow row = verdict_row::Told("lost", "launch", "a\nb", "c\033[2J");
    row.strTime = "09:30:00";

    EXPECT_EQ("09:30:00  lost           launch       a\\x0Ab  c\\x1B[2J",
              verdict_row::Text(Console(), row));
}
