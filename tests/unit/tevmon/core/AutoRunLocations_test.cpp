#include "tevmon/core/AutoRunLocations.h"

#include <gtest/gtest.h>

namespace {

TEST(AutoRunLocationsTest, AnEmptyPathIsOfClassZero) {
    EXPECT_EQ(0U, GetPathClass(""));
}

TEST(AutoRunLocationsTest, TheDirectoryItselfIsOfClassThreeAndAFileInItOfClassOne) {
    EXPECT_EQ(3U, GetPathClass("/etc/cron.d"));
    EXPECT_EQ(1U, GetPathClass("/etc/cron.d/job"));
    EXPECT_EQ(1U, GetPathClass("/etc/cron.d/"));
}

TEST(AutoRunLocationsTest, BothSpoolDirectoriesOfCronAreOfClassOne) {
    EXPECT_EQ(1U, GetPathClass("/var/spool/cron/crontabs/root"));
    EXPECT_EQ(1U, GetPathClass("/var/spool/cron/x"));
}

TEST(AutoRunLocationsTest, DoubledSeparatorsAndOtherCaseAreOfClassThree) {
    EXPECT_EQ(3U, GetPathClass("/etc//cron.d/job"));
    EXPECT_EQ(3U, GetPathClass("/ETC/cron.d/job"));
}

TEST(AutoRunLocationsTest, EveryLocationIsOfClassOneAndNothingShorterIs) {
    for (const char* pszLocation :
         {"/etc/cron.d/", "/etc/cron.daily/", "/etc/cron.hourly/", "/etc/cron.monthly/",
          "/etc/cron.weekly/", "/var/spool/cron/crontabs/", "/etc/init.d/", "/etc/rc.d/init.d/",
          "/etc/profile.d/", "/var/spool/cron/", "/var/spool/at/"}) {
        const std::string strLocation = pszLocation;
        EXPECT_EQ(1U, GetPathClass(strLocation + "a/b")) << strLocation;
        EXPECT_TRUE(IsAutoRunLocation(strLocation)) << strLocation;
    }
    EXPECT_FALSE(IsAutoRunLocation("/etc/init.d"));
    EXPECT_FALSE(IsAutoRunLocation("/etc/rc.d/rc.local"));
    EXPECT_FALSE(IsAutoRunLocation("/var/spool/mail/root"));
    EXPECT_FALSE(IsAutoRunLocation("etc/cron.d/job"));
}

TEST(AutoRunLocationsTest, NoPathIsOfClassTwo) {
    for (const char* pszPath : {"", "/", "/etc/cron.d/job", "/bin/sh", "a", "/home/u/.bashrc"}) {
        EXPECT_NE(2U, GetPathClass(pszPath)) << pszPath;
        EXPECT_FALSE(IsPathClassTwo(pszPath)) << pszPath;
    }
}

TEST(AutoRunUnitPathTest, AServiceUnderEtcSystemdQualifiesAndATimerDoesNot) {
    EXPECT_TRUE(IsAutoRunUnitPath("/etc/systemd/system/evil.service"));
    EXPECT_FALSE(IsAutoRunUnitPath("/etc/systemd/system/evil.timer"));
}

TEST(AutoRunUnitPathTest, ADesktopEntryUnderXdgAutostartQualifiesAndAServiceThereDoesNot) {
    EXPECT_TRUE(IsAutoRunUnitPath("/etc/xdg/autostart/app.desktop"));
    EXPECT_FALSE(IsAutoRunUnitPath("/etc/xdg/autostart/app.service"));
}

TEST(AutoRunUnitPathTest, UsrLibIsNotListedAndSubdirectoriesOfLibAre) {
    EXPECT_FALSE(IsAutoRunUnitPath("/usr/lib/systemd/system/x.service"));
    EXPECT_TRUE(IsAutoRunUnitPath("/lib/systemd/system/multi-user.target.wants/x.service"));
    EXPECT_TRUE(IsAutoRunUnitPath("/run/systemd/system/x.service"));
}

TEST(AutoRunUnitPathTest, TheSuffixIsCaseSensitive) {
    EXPECT_FALSE(IsAutoRunUnitPath("/etc/systemd/system/x.SERVICE"));
}

TEST(AutoRunUnitPathTest, AFileWithoutADotDoesNotQualify) {
    EXPECT_FALSE(IsAutoRunUnitPath("/etc/systemd/system/service"));
    EXPECT_FALSE(IsAutoRunUnitPath("/etc/xdg/autostart/desktop"));
    EXPECT_FALSE(IsAutoRunUnitPath("/etc/systemd/system/x.service.d/override"));
}

TEST(AutoRunUnitPathTest, TheTextAfterTheLastDotDecides) {
    EXPECT_TRUE(IsAutoRunUnitPath("/etc/systemd/system/a.b.service"));
    EXPECT_TRUE(IsAutoRunUnitPath("/etc/systemd/system/.service"));
    EXPECT_FALSE(IsAutoRunUnitPath("/etc/systemd/system/a.service."));
}

}  // namespace
