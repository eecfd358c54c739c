#include "tevmon/core/AutoRunLocations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

namespace {

thread_local Texts* t_pCompared = nullptr;

// The texts that work compares a path with by strncmp, in their order.
template <class Work>
Texts ComparedBy(Work work) {
    Texts compared;
    compared.reserve(32);
    t_pCompared = &compared;
    work();
    t_pCompared = nullptr;
    return compared;
}

// The texts as the compiler lets them be compared: clang leaves a call out whose answer it has from
// the call before; with it the repeats cannot be seen, the order can.
Texts AsCompiled(Texts locations) {
#ifdef __clang__
    locations.erase(std::unique(locations.begin(), locations.end()), locations.end());
#endif
    return locations;
}

}  // namespace

// Stands before the C library's, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) int strncmp(const char* pszFirst,
                                                              const char* pszSecond,
                                                              size_t nLength) noexcept {
    if (t_pCompared != nullptr) {
        t_pCompared->emplace_back(pszSecond);
    }
    for (size_t i = 0; i < nLength; ++i) {
        const auto nFirst = static_cast<unsigned char>(pszFirst[i]);
        const auto nSecond = static_cast<unsigned char>(pszSecond[i]);
        if (nFirst != nSecond || nFirst == 0) {
            return nFirst - nSecond;
        }
    }
    return 0;
}

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

TEST(AutoRunLocationsTest, TheLocationsAreTriedInTheirOrderTheMonthlyOneFourTimes) {
    const Texts compared = ComparedBy([] { (void)IsAutoRunLocation("/nowhere"); });

    EXPECT_EQ(
        AsCompiled({"/etc/cron.d/", "/etc/cron.daily/", "/etc/cron.hourly/", "/etc/cron.monthly/",
                    "/etc/cron.monthly/", "/etc/cron.monthly/", "/etc/cron.monthly/",
                    "/etc/cron.weekly/", "/var/spool/cron/crontabs/", "/etc/init.d/",
                    "/etc/rc.d/init.d/", "/etc/profile.d/", "/var/spool/cron/", "/var/spool/at/"}),
        AsCompiled(compared));
}

TEST(AutoRunLocationsTest, TheFirstLocationThatFitsIsTheLastTried) {
    const Texts compared = ComparedBy([] { (void)GetPathClass("/etc/cron.monthly/job"); });

    EXPECT_EQ(
        (Texts{"/etc/cron.d/", "/etc/cron.daily/", "/etc/cron.hourly/", "/etc/cron.monthly/"}),
        compared);
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

TEST(AutoRunUnitPathTest, TheDirectoriesAreTriedInTheirOrder) {
    const Texts compared = ComparedBy([] { (void)IsAutoRunUnitPath("/nowhere"); });

    EXPECT_EQ((Texts{"/etc/systemd/system/", "/run/systemd/system/", "/etc/xdg/autostart/",
                     "/lib/systemd/system/"}),
              compared);
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
