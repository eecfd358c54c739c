#include "host/report/text/WatchLine.h"

#include <gtest/gtest.h>

TEST(WatchLineTest, AVerdictStandsWithWhatHappenedAndWhoDidIt) {
    WatchRow row = watch_line::Judged("FileCreate", "/etc/cron.d/x", "/usr/bin/touch",
                                      {10, "packages", "coreutils"}, false);
    row.strTime = "09:30:00";

    EXPECT_EQ(
        "09:30:00  packaged   10  FileCreate   /etc/cron.d/x  by /usr/bin/touch  "
        "coreutils (packages)",
        watch_line::Text(Output(), row));
}

TEST(WatchLineTest, WhatIsNotKnownIsLeftOut) {
    WatchRow row = watch_line::Judged("launch", "/bin/a", "", {40, "none", ""}, true);
    row.strTime = "09:30:00";

    EXPECT_EQ("09:30:00  unknown    40  launch       /bin/a  cached",
              watch_line::Text(Output(), row));
}

TEST(WatchLineTest, ANameCannotForgeWhoMadeItAndItsPackage) {
    WatchRow row = watch_line::Judged("launch", "/tmp/x  by /usr/bin/dpkg   coreutils (packages)",
                                      "/tmp/y  z", {40, "none", ""}, false);
    row.strTime = "09:30:00";

    EXPECT_EQ(
        "09:30:00  unknown    40  launch       "
        "/tmp/x \\x20by /usr/bin/dpkg \\x20 coreutils (packages)  by /tmp/y \\x20z",
        watch_line::Text(Output(), row));
}

TEST(WatchLineTest, NothingOutsideCanForgeALine) {
    WatchRow row = watch_line::Told("lost", "launch", "a\nb", "c\033[2J");
    row.strTime = "09:30:00";

    EXPECT_EQ("09:30:00  lost           launch       a\\x0Ab  c\\x1B[2J",
              watch_line::Text(Output(), row));
}
