#include "host/kernel/file/FileSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/TestDir.h"
#include "tests/unit/host/kernel/file/CapturedFiles.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace file_event_bytes;
using namespace captured_files;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(FileSourceTest, OneEventOfSeveralActsIsReportedInTheirOrder) {
    Capture(At(FAN_DELETE | FAN_CLOSE_WRITE | FAN_MODIFY | FAN_CREATE, 5, CRON, "job"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/job", "write /etc/cron.d/job",
                                                "remove /etc/cron.d/job"));
    EXPECT_EQ(3u, Counters().nCaptured);
    EXPECT_EQ(3u, Counters().nReported);
    EXPECT_EQ(1u, Counters().nEvents);
}

TEST_F(FileSourceTest, WhatHappensElsewhereIsCountedOnly) {
    Capture(At(FAN_CREATE | FAN_CLOSE_WRITE, 5, TMP, "file") +
            At(FAN_DELETE, 5, UNITS, "a.service"));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(3u, Counters().nUnwatched);
    EXPECT_EQ(0u, Counters().Waiting());
}

TEST_F(FileSourceTest, EverythingIsReportedWhenThatIsWanted) {
    m_options.bAll = true;
    Capture(At(FAN_CREATE, 5, TMP, "file"));

    ASSERT_THAT(m_observer.m_lines, ElementsAre("create /tmp/file"));
    EXPECT_FALSE(m_observer.m_operations[0].bPlace);
}

TEST_F(FileSourceTest, ANamedPipeIsReportedWhereverItIsMadeAndThroughALinkToo) {
    m_pipes["/tmp/pipe"] = 1;
    m_links["/tmp/link"] = S_IFIFO;
    m_links["/tmp/other"] = S_IFREG;
    for (const char* pszName : {"pipe", "link", "other", "file"}) {
        Capture(At(FAN_CREATE, 5, TMP, pszName));
    }

    ASSERT_THAT(m_observer.m_lines, ElementsAre("create /tmp/pipe", "create /tmp/link"));
    EXPECT_TRUE(m_observer.m_operations[0].bPipe);
    EXPECT_FALSE(m_observer.m_operations[0].bPlace);
    EXPECT_EQ(77u, m_observer.m_operations[0].nInode);
    EXPECT_EQ("tmpfs", m_observer.m_operations[0].strFsType);
}

TEST_F(FileSourceTest, ARenameIsReportedUnderTheOldPathAndAsACreationInAPlace) {
    Capture(Rename(0, 5, CRON, "a", CRON, "b") + Rename(0, 5, TMP, "new", UNITS, "x.service") +
            Rename(0, 5, CRON, "c", TMP, "gone"));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("rename /etc/cron.d/a", "create /etc/cron.d/b",
                            "create /lib/systemd/system/x.service", "rename /etc/cron.d/c"));
}

TEST_F(FileSourceTest, ARenameWithinADirectoryElsewhereIsOneOperation) {
    m_options.bAll = true;
    Capture(Rename(0, 5, TMP, "a", TMP, "b"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("rename /tmp/a"));
}

TEST_F(FileSourceTest, ADirectoryMadeInAPlaceIsACreationAndWhatIsBelowItIsKnown) {
    Capture(At(FAN_CREATE | FAN_ONDIR, 5, CRON, "d", 100) + At(FAN_CREATE, 5, 100, "job") +
            At(FAN_DELETE, 5, 100, "job") + At(FAN_DELETE | FAN_ONDIR, 5, CRON, "d", 100));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/d", "create /etc/cron.d/d/job",
                            "remove /etc/cron.d/d/job", "remove /etc/cron.d/d"));
    EXPECT_THAT(m_sensor.directories, ElementsAre("/etc/cron.d/d"));
}

TEST_F(FileSourceTest, ADirectoryThatMovesTakesItsPathsAlong) {
    Capture(At(FAN_CREATE | FAN_ONDIR, 5, TMP, "d", 100) +
            Rename(FAN_ONDIR, 5, TMP, "d", CRON, "e", 100) + At(FAN_CREATE, 5, 100, "job"));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/e", "create /etc/cron.d/e/job"));
    EXPECT_THAT(m_sensor.directories, ElementsAre("/tmp/d", "/etc/cron.d/e"));
}

TEST_F(FileSourceTest, ManyWritesWithoutAClosureAreOneInABatch) {
    m_options.nMostOperations = 2;
    Capture(At(FAN_MODIFY, 5, CRON, "job") + At(FAN_MODIFY, 5, CRON, "job"));
    Capture(At(FAN_MODIFY, 5, CRON, "job") + At(FAN_CLOSE_WRITE, 5, CRON, "job"));
    Capture(At(FAN_MODIFY, 5, CRON, "job"));  // the next batch

    EXPECT_EQ(3u, m_observer.m_lines.size());
    EXPECT_EQ(3u, Counters().nCaptured);
}

TEST_F(FileSourceTest, WritesOfTwoProcessesToOneFileAreTwoOperations) {
    Capture(At(FAN_MODIFY, 5, CRON, "job") + At(FAN_MODIFY, 6, CRON, "job"));
    Capture(At(FAN_MODIFY, 6, CRON, "job") + At(FAN_MODIFY, 5, CRON, "job"));

    EXPECT_EQ(2u, m_observer.m_lines.size());
}

TEST_F(FileSourceTest, TheHostsOwnDoingsAreCountedAndDropped) {
    Capture(At(FAN_CREATE, getpid(), CRON, "job"));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(1u, Counters().nOwn);
}

TEST_F(FileSourceTest, WhatHappenedInADirectoryThatIsGoneIsCounted) {
    Capture(At(FAN_CREATE, 5, GONE, "job"));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(1u, Counters().nUnresolved);
    EXPECT_EQ(0u, Counters().Waiting());
}

TEST_F(FileSourceTest, ADirectoryWithoutAPathMarksNoPlaces) {
    Capture(At(FAN_CREATE | FAN_ONDIR, 5, GONE, "new", 7));

    EXPECT_THAT(m_sensor.directories, IsEmpty());
    EXPECT_EQ(1u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, WhatHappenedInADirectoryRemovedSinceIsKnownByTheRemoval) {
    Capture(At(FAN_DELETE, 5, 101, "job") + At(FAN_DELETE | FAN_ONDIR, 5, 100, "inner", 101) +
            At(FAN_DELETE | FAN_ONDIR, 5, CRON, "outer", 100));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("remove /etc/cron.d/outer/inner/job", "remove /etc/cron.d/outer/inner",
                            "remove /etc/cron.d/outer"));
    EXPECT_EQ(0u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, DirectoriesRemovedFromEachOtherDoNotHang) {
    Capture(At(FAN_DELETE | FAN_ONDIR, 5, 100, "a", 101) +
            At(FAN_DELETE | FAN_ONDIR, 5, 101, "b", 100));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(2u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, AnOverflowIsAnnouncedOnceAndWhatIsKnownOfPathsEndsThere) {
    Capture(At(FAN_CREATE | FAN_ONDIR, 5, CRON, "d", 100));
    Capture(Event(FAN_Q_OVERFLOW, 0, ""));
    Capture(At(FAN_CREATE, 5, 100, "job"));

    EXPECT_THAT(m_observer.m_overflows, ElementsAre("1 of 1"));
    EXPECT_EQ(1u, Counters().nOverflows);
    EXPECT_EQ(1u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, AfterAMountPathsAreLookedUpAnew) {
    Capture(At(FAN_CREATE, 5, CRON, "job"));
    m_sensor.paths[Handle(CRON)] = "/elsewhere";
    m_sensor.eMounted = PLACE_MOUNTS;
    Capture(At(FAN_CREATE, 5, CRON, "job"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/job"));
}

TEST_F(FileSourceTest, OnAnOldKernelARenameIsTwoOperations) {
    Capture(At(FAN_MOVED_FROM, 5, CRON, "a") + At(FAN_MOVED_TO, 5, CRON, "b"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("rename /etc/cron.d/a", "create /etc/cron.d/b"));
}

TEST_F(FileSourceTest, OnAnOldKernelADirectoryThatMovesIsLookedUpAnew) {
    m_options.bAll = true;
    Capture(At(FAN_CREATE | FAN_ONDIR, 5, CRON, "d", 100));
    m_sensor.paths[Handle(100)] = "/tmp/e";
    Capture(At(FAN_MOVED_FROM | FAN_ONDIR, 5, CRON, "d", 100) + At(FAN_CREATE, 5, 100, "a") +
            At(FAN_MOVED_TO | FAN_ONDIR, 5, TMP, "e", 100));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/d", "rename /etc/cron.d/d",
                                                "create /tmp/e/a", "create /tmp/e"));
    EXPECT_THAT(m_sensor.directories, ElementsAre("/etc/cron.d/d", "/etc/cron.d/d", "/tmp/e"));
}

TEST_F(FileSourceTest, ARenameToAUnitsNameInItsDirectoryIsACreationBehindALinkToo) {
    Capture(Rename(0, 5, UNITS, "a.tmp", UNITS, "a.service") +
            Rename(0, 5, UNITS, "b.service", UNITS, "b.old"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /lib/systemd/system/a.service"));
    EXPECT_EQ(3u, Counters().nCaptured);
    EXPECT_EQ(2u, Counters().nUnwatched);
}

TEST_F(FileSourceTest, OneEventOfARenameAndAWriteIsBoth) {
    Capture(Event(FAN_RENAME | FAN_CLOSE_WRITE, 5,
                  Info(FAN_EVENT_INFO_TYPE_FID, Handle(999)) +
                      Info(FAN_EVENT_INFO_TYPE_OLD_DFID_NAME, Handle(CRON), "a") +
                      Info(FAN_EVENT_INFO_TYPE_NEW_DFID_NAME, Handle(TMP), "b")));

    EXPECT_EQ("rename /etc/cron.d/a", m_observer.m_lines.at(0));
    EXPECT_EQ(1u, Counters().nUnresolved);  // such a write has no name of its own
}

TEST_F(FileSourceTest, SmallWritesElsewhereAndTheHostsOwnAreCountedEachTime) {
    for (int i = 0; i < 3; ++i) {
        Capture(At(FAN_MODIFY, 5, TMP, "file") + At(FAN_MODIFY, getpid(), CRON, "job"));
    }

    EXPECT_EQ(3u, Counters().nUnwatched);
    EXPECT_EQ(3u, Counters().nOwn);
    EXPECT_EQ(6u, Counters().nCaptured);
}

TEST_F(FileSourceTest, TheInodeIsTheFilesAsItIsNowElseThatOfTheEvent) {
    m_options.fnLook = [](const std::string& strPath, struct stat& status) {
        status.st_ino = 78;
        return strPath == "/etc/cron.d/there";
    };
    Capture(At(FAN_CREATE, 5, CRON, "there", 55) + At(FAN_CLOSE_WRITE, 5, CRON, "there", 56));

    EXPECT_EQ(78u, m_observer.m_operations.at(0).nInode);
    EXPECT_EQ(56u, m_observer.m_operations.at(1).nInode);  // not examined for a pipe
}

TEST_F(FileSourceTest, WithoutLooksOfATestItLooksAtTheDiskAndNotThroughALinkForItsInode) {
    m_options = FileSourceOptions();
    const TestDir dir;
    const std::string strLink = dir.Path() + "/link";
    ASSERT_EQ(0, mkfifo((dir.Path() + "/pipe").c_str(), 0600));
    ASSERT_EQ(0, symlink("pipe", strLink.c_str()));
    struct stat status = {};
    ASSERT_EQ(0, lstat(strLink.c_str(), &status));
    (void)Source();
    m_sensor.paths[Handle(50)] = dir.Path();

    Capture(At(FAN_CREATE, 5, 50, "link") + At(FAN_CREATE, 5, 50, "none"));

    ASSERT_THAT(m_observer.m_lines, ElementsAre("create " + strLink));
    EXPECT_TRUE(m_observer.m_operations[0].bPipe);
    EXPECT_EQ(status.st_ino, m_observer.m_operations[0].nInode);
}

TEST_F(FileSourceTest, OnlyACreatedFileIsLookedAtForAPipe) {
    m_pipes = {{"/tmp/pipe", 1}, {"/tmp/d", 1}};
    Capture(At(FAN_DELETE, 5, TMP, "pipe") + At(FAN_CLOSE_WRITE, 5, TMP, "pipe") +
            At(FAN_CREATE | FAN_ONDIR, 5, TMP, "d", 100));
    EXPECT_THAT(m_observer.m_lines, IsEmpty());

    Capture(Rename(0, 5, CRON, "x", TMP, "pipe"));
    EXPECT_THAT(m_observer.m_lines, ElementsAre("rename /etc/cron.d/x", "create /tmp/pipe"));
    EXPECT_FALSE(m_observer.m_operations[0].bPipe);
    EXPECT_TRUE(m_observer.m_operations[0].bPlace);
}

TEST_F(FileSourceTest, AFileThatIsGoneOrALinkThatLeadsNowhereIsNoPipe) {
    m_options.fnLook = [](const std::string& strPath, struct stat& status) {
        status.st_mode = strPath == "/tmp/gone" ? S_IFIFO : S_IFLNK;
        return strPath != "/tmp/gone";
    };
    m_options.fnLookThrough = [](const std::string&, struct stat& status) {
        status.st_mode = S_IFIFO;
        return false;
    };
    Capture(At(FAN_CREATE, 5, TMP, "gone") + At(FAN_CREATE, 5, TMP, "dangling"));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(2u, Counters().nUnwatched);
}

TEST_F(FileSourceTest, ARemovalAmongLaterPiecesSaysWhereADirectoryWas) {
    const std::string strFirst = At(FAN_CREATE, 5, 100, "a");
    m_options.nReadBytes = strFirst.size();
    Capture(strFirst + At(FAN_DELETE, 5, 100, "a") + At(FAN_DELETE | FAN_ONDIR, 5, CRON, "d", 100));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/d/a", "remove /etc/cron.d/d/a",
                                                "remove /etc/cron.d/d"));
}

TEST_F(FileSourceTest, ARemovedFileIsNoDirectoryThatWasRemoved) {
    Capture(At(FAN_CREATE, 5, 100, "a") + At(FAN_DELETE, 5, CRON, "file", 100) +
            At(FAN_CREATE | FAN_ONDIR, 5, CRON, "made", 100));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("remove /etc/cron.d/file", "create /etc/cron.d/made"));
    EXPECT_EQ(1u, Counters().nUnresolved);
}

// Whoever removes a tree decides how deep it was.
TEST_F(FileSourceTest, ARemovedTreeIsFollowedUpSixtyFourDirectoriesAndNoMore) {
    std::string strEvents = At(FAN_DELETE, 5, 1065, "job");
    for (uint32_t nDepth = 65; nDepth > 0; --nDepth) {
        strEvents += At(FAN_DELETE | FAN_ONDIR, 5, nDepth == 1 ? CRON : 1000 + nDepth - 1, "d",
                        1000 + nDepth);
    }
    Capture(strEvents);

    EXPECT_EQ(1u, Counters().nUnresolved);
    ASSERT_EQ(65u, m_observer.m_lines.size());
    EXPECT_EQ("remove /etc/cron.d/d", m_observer.m_lines.back());
    EXPECT_EQ(std::string("remove /etc/cron.d").size() + 65 * 2, m_observer.m_lines.front().size());
}

TEST_F(FileSourceTest, ADirectoryThatWasMadeIsKnownUntilItIsRemoved) {
    Capture(At(FAN_CREATE | FAN_ONDIR, 5, CRON, "d", 100));
    Capture(At(FAN_CREATE, 5, 100, "a"));
    Capture(At(FAN_DELETE | FAN_ONDIR, 5, CRON, "d", 100));
    Capture(At(FAN_CREATE, 5, 100, "b"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/d", "create /etc/cron.d/d/a",
                                                "remove /etc/cron.d/d"));
    EXPECT_EQ(1u, Counters().nUnresolved);
}

TEST_F(FileSourceTest, AfterAMountTheWatchedPlacesAreComparedWithWhatWasKnown) {
    m_names["/etc/cron.d"] = {"job"};
    std::string strError;
    ASSERT_TRUE(Source().Open(strError)) << strError;
    m_names["/etc/cron.d"] = {"job", "mounted"};
    Capture("");
    EXPECT_THAT(m_observer.m_lines, IsEmpty());

    m_sensor.eMounted = PLACE_MOUNTS;
    Capture("");

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/mounted"));
    EXPECT_TRUE(m_observer.m_operations[0].bFound);
}

TEST_F(FileSourceTest, AfterAnOverflowWhatWasLostIsFoundOnceTheQueueIsEmpty) {
    std::string strError;
    ASSERT_TRUE(Source().Open(strError)) << strError;
    m_names["/etc/cron.d"] = {"lost"};

    Capture(At(FAN_CREATE, 5, CRON, "job") + Event(FAN_Q_OVERFLOW, 0, "") +
            At(FAN_CREATE, 5, CRON, "after"));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/job", "create /etc/cron.d/after",
                            "create /etc/cron.d/lost"));
    EXPECT_EQ(1u, Counters().nFound);
    EXPECT_EQ(3u, Counters().nCaptured);
    EXPECT_EQ(0u, Counters().Waiting());
}

TEST_F(FileSourceTest, WhileMoreWaitsInTheKernelNothingIsCompared) {
    std::string strError;
    m_options.nMostHeld = 1;
    ASSERT_TRUE(Source().Open(strError)) << strError;
    m_names["/etc/cron.d"] = {"lost"};
    m_sensor.reads = {Event(FAN_Q_OVERFLOW, 0, ""), At(FAN_CREATE, 5, CRON, "after")};

    ASSERT_TRUE(m_pSource->Read());
    m_pSource->Resolve();
    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    ASSERT_TRUE(m_pSource->Read());
    m_pSource->Resolve();
    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/after"));
    EXPECT_FALSE(m_pSource->Read());
    m_pSource->Resolve();
    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/after", "create /etc/cron.d/lost"));
}

TEST_F(FileSourceTest, ADoubtAtTheEndIsComparedWithoutWaiting) {
    m_options.compare = std::chrono::minutes(10);
    std::string strError;
    ASSERT_TRUE(Source().Open(strError)) << strError;
    Capture(Event(FAN_Q_OVERFLOW, 0, ""));
    m_names["/etc/cron.d"] = {"lost"};
    Capture(Event(FAN_Q_OVERFLOW, 0, ""));
    (void)m_pSource->Read();
    m_pSource->Resolve();
    EXPECT_THAT(m_observer.m_lines, IsEmpty());

    m_pSource->Detach();
    (void)m_pSource->Read();
    m_pSource->Resolve();

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/lost"));
}

TEST_F(FileSourceTest, WhatItReportedItDoesNotFindLater) {
    std::string strError;
    ASSERT_TRUE(Source().Open(strError)) << strError;
    m_names["/etc/cron.d"] = {"job"};
    Capture(At(FAN_CREATE, 5, CRON, "job"));
    for (int i = 0; i < 2; ++i) {
        (void)m_pSource->Read();
        m_pSource->Resolve();
    }

    Capture(Event(FAN_Q_OVERFLOW, 0, ""));
    (void)m_pSource->Read();
    m_pSource->Resolve();

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/job"));
}

TEST_F(FileSourceTest, WhatHappensToADirectoryMountedOverAPlaceIsReportedAsThePlaces) {
    m_sensor.inPlaces = {{"/tmp/a", "/etc/cron.d/a"}, {"/tmp/b", "/etc/cron.d/b"}};
    Capture(At(FAN_CREATE, 5, TMP, "a") + Rename(0, 5, TMP, "a", TMP, "b"));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/a", "rename /etc/cron.d/a",
                                                "create /etc/cron.d/b"));
}

TEST_F(FileSourceTest, AMountElsewhereDoesNotFindWhatWasJustReported) {
    std::string strError;
    ASSERT_TRUE(Source().Open(strError)) << strError;
    m_names["/etc/cron.d"] = {"job"};
    m_sensor.eMounted = OTHER_MOUNTS;
    Capture(At(FAN_CREATE, 5, CRON, "job"));
    (void)m_pSource->Read();
    m_pSource->Resolve();

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /etc/cron.d/job"));
}

TEST_F(FileSourceTest, AMountOverAPlaceMayHaveReplacedWhatWasJustReported) {
    std::string strError;
    ASSERT_TRUE(Source().Open(strError)) << strError;
    m_names["/etc/cron.d"] = {"job"};
    m_sensor.eMounted = PLACE_MOUNTS;
    Capture(At(FAN_CREATE, 5, CRON, "job"));
    (void)m_pSource->Read();
    m_pSource->Resolve();

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/job", "create /etc/cron.d/job"));
}
