#include "host/event/WatchedPaths.h"

#include <gtest/gtest.h>

#include <map>

namespace {

// The links of a system where /lib is usr/lib and one place is a link itself.
std::string Real(const std::string& strPath) {
    static const std::map<std::string, std::string> LINKS = {{"/lib", "/usr/lib"},
                                                             {"/etc/init.d", "/etc/rc.d/init.d"}};
    const auto found = LINKS.find(strPath);
    return found == LINKS.end() ? (strPath == "/etc" || strPath == "/var" ? strPath : "")
                                : found->second;
}

bool Holds(const WatchedPaths& places, const std::string& strPath, bool bUnits) {
    for (const WatchedPaths::Directory& directory : places.Directories()) {
        if (directory.strPath == strPath && directory.bUnits == bUnits) {
            return true;
        }
    }
    return false;
}

}  // namespace

TEST(WatchedPathsTest, EveryOperationOnAnyNameInAnAutostartLocationIsWatched) {
    for (const FileAct eAct : {FILE_CREATE, FILE_WRITE, FILE_RENAME, FILE_REMOVE}) {
        EXPECT_TRUE(WatchedPaths::IsWatched(eAct, "/etc/cron.d/job"));
        EXPECT_TRUE(WatchedPaths::IsWatched(eAct, "/etc/cron.d/below/job"));
        EXPECT_FALSE(WatchedPaths::IsWatched(eAct, "/etc/cron.d"));
        EXPECT_FALSE(WatchedPaths::IsWatched(eAct, "/etc/cron.days/job"));
        EXPECT_FALSE(WatchedPaths::IsWatched(eAct, "/srv/etc/cron.d/job"));
    }
}

TEST(WatchedPathsTest, OfUnitsOnlyTheCreationIsWatched) {
    EXPECT_TRUE(WatchedPaths::IsWatched(FILE_CREATE, "/etc/systemd/system/a.service"));
    EXPECT_TRUE(WatchedPaths::IsWatched(FILE_CREATE, "/etc/systemd/system/x.wants/a.service"));
    EXPECT_TRUE(WatchedPaths::IsWatched(FILE_CREATE, "/etc/xdg/autostart/a.desktop"));
    EXPECT_FALSE(WatchedPaths::IsWatched(FILE_CREATE, "/etc/systemd/system/a.timer"));
    EXPECT_FALSE(WatchedPaths::IsWatched(FILE_WRITE, "/etc/systemd/system/a.service"));
    EXPECT_FALSE(WatchedPaths::IsWatched(FILE_REMOVE, "/etc/systemd/system/a.service"));
}

TEST(WatchedPathsTest, APathBehindALinkIsReportedAsThePlaceIsWritten) {
    const WatchedPaths places({}, Real);

    EXPECT_EQ("/lib/systemd/system/a.service", places.Spelled("/usr/lib/systemd/system/a.service"));
    EXPECT_EQ("/usr/lib/other/a.service", places.Spelled("/usr/lib/other/a.service"));
    EXPECT_EQ("/etc/init.d/job", places.Spelled("/etc/rc.d/init.d/job"));
    EXPECT_EQ("/etc/cron.d/job", places.Spelled("/etc/cron.d/job"));
    EXPECT_TRUE(Holds(places, "/usr/lib/systemd/system", true));
    EXPECT_TRUE(Holds(places, "/etc/cron.d", false));
}

TEST(WatchedPathsTest, AWholeRootMayBeAnAlias) {
    const WatchedPaths places({{"/mnt/root", "/"}}, Real);

    EXPECT_EQ("/etc/cron.d/job", places.Spelled("/mnt/root/etc/cron.d/job"));
    EXPECT_EQ("/etc/cron.d/job", places.Spelled("/etc/cron.d/job"));
    EXPECT_EQ("/mnt/root/home/job", places.Spelled("/mnt/root/home/job"));
    EXPECT_EQ("/mnt/rootless/etc/cron.d/job", places.Spelled("/mnt/rootless/etc/cron.d/job"));
    EXPECT_TRUE(Holds(places, "/mnt/root/etc/cron.d", false));
    EXPECT_TRUE(Holds(places, "/mnt/root/lib/systemd/system", true));
}

TEST(WatchedPathsTest, AGivenAliasIsWatchedAndReported) {
    const WatchedPaths places({{"/srv/root/etc/", "/etc"}}, Real);

    EXPECT_EQ("/etc/cron.d/job", places.Spelled("/srv/root/etc/cron.d/job"));
    EXPECT_EQ("/srv/root/etc/passwd", places.Spelled("/srv/root/etc/passwd"));
    EXPECT_EQ("/srv/root/etcetera/cron.d/job", places.Spelled("/srv/root/etcetera/cron.d/job"));
    EXPECT_TRUE(Holds(places, "/srv/root/etc/cron.d", false));
}

TEST(WatchedPathsTest, LinksMadeLaterCountAfterTheNextLook) {
    std::string strLib = "/lib";
    WatchedPaths places({}, [&strLib](const std::string& strPath) {
        return strPath == "/lib" ? strLib : std::string();
    });
    EXPECT_EQ("/usr/lib/systemd/system/a.service",
              places.Spelled("/usr/lib/systemd/system/a.service"));

    strLib = "/usr/lib";
    places.Resolve();

    EXPECT_EQ("/lib/systemd/system/a.service", places.Spelled("/usr/lib/systemd/system/a.service"));
}

TEST(WatchedPathsTest, EachPlaceIsWatchedFromItsSlashOn) {
    for (const char* pszPlace :
         {"/etc/cron.d", "/etc/cron.daily", "/etc/cron.hourly", "/etc/cron.monthly",
          "/etc/cron.weekly", "/var/spool/cron/crontabs", "/etc/init.d", "/etc/rc.d/init.d",
          "/etc/profile.d", "/var/spool/cron", "/var/spool/at"}) {
        EXPECT_TRUE(WatchedPaths::IsWatched(FILE_REMOVE, std::string(pszPlace) + "/job"))
            << pszPlace;
    }
    for (const char* pszUnit : {"/etc/systemd/system/a.service", "/run/systemd/system/a.service",
                                "/etc/xdg/autostart/a.desktop", "/lib/systemd/system/a.service"}) {
        EXPECT_TRUE(WatchedPaths::IsWatched(FILE_CREATE, pszUnit)) << pszUnit;
        EXPECT_FALSE(WatchedPaths::IsWatched(FILE_RENAME, pszUnit)) << pszUnit;
    }
    EXPECT_EQ(15u, WatchedPaths::All().size());
}

TEST(WatchedPathsTest, AUnitIsKnownByTheEndOfItsNameAlone) {
    for (const char* pszName :
         {".service", "a.b.service", "\xff\n.service", "a.service/b.service"}) {
        EXPECT_TRUE(
            WatchedPaths::IsWatched(FILE_CREATE, std::string("/etc/systemd/system/") + pszName))
            << pszName;
    }
    for (const char* pszName : {"service", "a.SERVICE", "a.service~", "a.service/b", "a.services",
                                "a.desktop", "a.service ", ""}) {
        EXPECT_FALSE(
            WatchedPaths::IsWatched(FILE_CREATE, std::string("/etc/systemd/system/") + pszName))
            << pszName;
    }
}

TEST(WatchedPathsTest, ALinkAboveAPlaceThatIsNotThereYetIsFollowed) {
    const WatchedPaths places({}, [](const std::string& strPath) {
        return strPath == "/var" ? "/data/var" : strPath == "/run" ? "/" : "";
    });

    EXPECT_TRUE(Holds(places, "/data/var/spool/cron", false));
    EXPECT_TRUE(Holds(places, "/data/var/spool/cron/crontabs", false));
    EXPECT_TRUE(Holds(places, "/systemd/system", true));  // of /run, a link to /
    EXPECT_TRUE(Holds(places, "/etc/cron.d", false));     // nothing is known of it
    EXPECT_EQ("/var/spool/at/job", places.Spelled("/data/var/spool/at/job"));
    EXPECT_EQ("/run/systemd/system/a.service", places.Spelled("/systemd/system/a.service"));
    EXPECT_EQ("/data/var/lib/x", places.Spelled("/data/var/lib/x"));
}

TEST(WatchedPathsTest, WithoutLinksThereIsOneDirectoryForEachPlaceHoweverOftenOneLooks) {
    WatchedPaths places({}, [](const std::string& strPath) { return strPath; });
    EXPECT_EQ(15u, places.Directories().size());

    places.Resolve();

    EXPECT_EQ(15u, places.Directories().size());
    EXPECT_EQ("/etc/cron.d/job", places.Spelled("/etc/cron.d/job"));
    EXPECT_EQ("/usr/lib/systemd/system/a.service",
              places.Spelled("/usr/lib/systemd/system/a.service"));
}

TEST(WatchedPathsTest, AnAliasMayBeAPlaceItselfOrLieBelowOne) {
    const WatchedPaths places({{"/srv/jobs//", "/etc/cron.d/"}, {"/srv/deep", "/etc/cron.d/a/b"}},
                              [](const std::string& strPath) { return strPath; });

    EXPECT_TRUE(Holds(places, "/srv/jobs", false));
    EXPECT_EQ(16u, places.Directories().size());
    EXPECT_EQ("/etc/cron.d/job", places.Spelled("/srv/jobs/job"));
    EXPECT_EQ("/etc/cron.d/a/b/job", places.Spelled("/srv/deep/job"));
    EXPECT_EQ("/srv/jobs", places.Spelled("/srv/jobs"));
}

TEST(WatchedPathsTest, OfSeveralAliasesTheFirstThatLeadsIntoAPlaceIsTaken) {
    const WatchedPaths places(
        {{"/srv/root", "/opt"}, {"/srv/root/etc", "/etc"}, {"/srv", "/etc/cron.d"}}, Real);

    EXPECT_EQ("/etc/init.d/job", places.Spelled("/srv/root/etc/init.d/job"));
    EXPECT_EQ("/etc/cron.d/root/usr/x", places.Spelled("/srv/root/usr/x"));
}
