#include "host/kernel/file/FanotifyMarks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>

#include <cerrno>

#include "tests/unit/host/kernel/file/FakeMarkCalls.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

namespace {

constexpr uint64_t EVENTS = FAN_CREATE | FAN_DELETE | FAN_ONDIR;
constexpr uint64_t ON_CHILDREN = FAN_EVENT_ON_CHILD | FAN_ONDIR;
constexpr uint64_t WRITES = FAN_MODIFY | ON_CHILDREN;

class FanotifyMarksTest : public testing::Test {
protected:
    FanotifyMarks& Marks() {
        if (m_pMarks == nullptr) {
            m_pMarks = std::make_unique<FanotifyMarks>(m_calls, m_places, EVENTS, m_bAll);
            m_pMarks->Refresh();
        }
        return *m_pMarks;
    }

    FakeMarkCalls m_calls;
    bool m_bAll = false;
    WatchedPaths m_places{{}, [](const std::string& strPath) { return strPath; }};
    std::unique_ptr<FanotifyMarks> m_pMarks;
};

}  // namespace

TEST_F(FanotifyMarksTest,
       FileSystemsThatHoldWatchedPlacesAreMarkedWholeAndAutostartLocationsForWrites) {
    FanotifyMarks& marks = Marks();

    EXPECT_THAT(m_calls.m_whole, ElementsAre(Pair("/", EVENTS), Pair("/run", EVENTS)));
    EXPECT_THAT(m_calls.m_single, ElementsAre(Pair("/etc/cron.d", WRITES)));
    EXPECT_THAT(marks.TakeNotices(), IsEmpty());
    EXPECT_FALSE(marks.IsEmpty());
    EXPECT_TRUE(marks.IsWhole(8U << 20 | 1));
    EXPECT_FALSE(marks.IsWhole(8U << 20 | 2));
}

TEST_F(FanotifyMarksTest, EveryLocalFileSystemIsMarkedWhenThatIsWanted) {
    m_bAll = true;
    (void)Marks();

    EXPECT_THAT(m_calls.m_whole, Contains(Pair("/srv", EVENTS)));
    EXPECT_THAT(m_calls.m_whole, Not(Contains(Pair("/proc", EVENTS))));
}

TEST_F(FanotifyMarksTest, WhereAFileSystemCannotBeMarkedThePlacesAreAndThatIsSaid) {
    m_calls.m_errors["/"] = EOPNOTSUPP;
    FanotifyMarks& marks = Marks();

    EXPECT_THAT(m_calls.m_single, Contains(Pair("/etc/cron.d", WRITES | EVENTS)));
    EXPECT_THAT(m_calls.m_single, Contains(Pair("/etc/systemd/system", EVENTS | ON_CHILDREN)));
    // Places that are not there yet: their making is to be seen.
    EXPECT_THAT(m_calls.m_single, Contains(Pair("/etc", EVENTS | ON_CHILDREN)));
    EXPECT_THAT(
        marks.TakeNotices(),
        ElementsAre(AllOf(HasSubstr("at / (ext4)"), HasSubstr("pipes: listed directories only"))));
    EXPECT_FALSE(marks.IsWhole(8U << 20 | 1));
}

TEST_F(FanotifyMarksTest, APlaceThatIsMadeLaterIsMarkedWithWhatIsInIt) {
    FanotifyMarks& marks = Marks();
    m_calls.m_directories.insert({"/etc/cron.daily", "/etc/cron.daily/below"});
    marks.OnDirectory("/etc/cron.daily");

    EXPECT_EQ(WRITES, m_calls.m_single["/etc/cron.daily"]);
    EXPECT_EQ(WRITES, m_calls.m_single["/etc/cron.daily/below"]);
}

TEST_F(FanotifyMarksTest, ADirectoryAboveAPlaceThatAppearsWithIt) {
    FanotifyMarks& marks = Marks();
    m_calls.m_directories.insert({"/var", "/var/spool", "/var/spool/cron"});
    marks.OnDirectory("/var");

    EXPECT_EQ(WRITES, m_calls.m_single["/var/spool/cron"]);
}

TEST_F(FanotifyMarksTest, ADirectoryMadeInAPlaceIsMarkedAndOneElsewhereIsNot) {
    FanotifyMarks& marks = Marks();
    m_calls.m_directories.insert({"/etc/cron.d/below", "/etc/cron.different", "/srv/x"});
    for (const char* pszPath : {"/etc/cron.d/below", "/etc/cron.different", "/srv/x"}) {
        marks.OnDirectory(pszPath);
    }

    EXPECT_THAT(m_calls.m_single,
                ElementsAre(Pair("/etc/cron.d", WRITES), Pair("/etc/cron.d/below", WRITES)));
}

TEST_F(FanotifyMarksTest, UnitDirectoriesCountWithTheirDirectoriesWhereNothingIsMarkedWhole) {
    m_calls.m_errors["/"] = EXDEV;
    FanotifyMarks& marks = Marks();
    m_calls.m_directories.insert("/etc/systemd/system/x.wants");
    marks.OnDirectory("/etc/systemd/system/x.wants");

    EXPECT_EQ(EVENTS | ON_CHILDREN, m_calls.m_single["/etc/systemd/system/x.wants"]);
}

TEST_F(FanotifyMarksTest, AMountThatComesIsMarkedAndOneThatGoesIsForgotten) {
    m_bAll = true;
    FanotifyMarks& marks = Marks();
    const std::string strBefore = m_calls.m_strMounts;

    m_calls.m_strMounts += "5 1 8:3 / /mnt rw - ext4 x rw\n";
    marks.Refresh();
    EXPECT_TRUE(marks.IsWhole(8U << 20 | 3));
    EXPECT_THAT(marks.PointsOf("fsid/mnt", false), ElementsAre("/mnt"));
    EXPECT_EQ("ext4", marks.TypeOf("fsid/mnt", false));

    m_calls.m_strMounts = strBefore;
    marks.Refresh();
    EXPECT_FALSE(marks.IsWhole(8U << 20 | 3));
    EXPECT_THAT(marks.PointsOf("fsid/mnt", false), IsEmpty());
    EXPECT_EQ("", marks.TypeOf("fsid/mnt", false));
    EXPECT_THAT(marks.TakeNotices(), ElementsAre("/mnt is unmounted and watched no more"));
}

TEST_F(FanotifyMarksTest, AFileSystemThatGotTheNumberOfAnotherOneIsMarkedAsWell) {
    FanotifyMarks& marks = Marks();
    m_calls.m_whole.clear();

    marks.Refresh();  // of the same text

    EXPECT_THAT(m_calls.m_whole, Contains(Pair("/run", EVENTS)));
}

TEST_F(FanotifyMarksTest, WhatCannotBeMarkedWholeIsSaidOnce) {
    m_calls.m_errors["/"] = EOPNOTSUPP;
    FanotifyMarks& marks = Marks();
    EXPECT_EQ(1u, marks.TakeNotices().size());

    m_calls.m_strMounts += "5 1 8:3 / /mnt rw - ext4 x rw\n";
    marks.Refresh();

    EXPECT_THAT(marks.TakeNotices(), IsEmpty());
}

TEST_F(FanotifyMarksTest, APartOfAFileSystemIsMarkedByTheMountOfAllOfIt) {
    m_calls.m_strMounts = "1 0 8:1 /sub / rw - ext4 x rw\n2 1 8:1 / /whole rw - ext4 x rw\n";
    FanotifyMarks& marks = Marks();

    EXPECT_THAT(m_calls.m_whole, ElementsAre(Pair("/whole", EVENTS)));
    EXPECT_THAT(marks.PointsOf("fsid/whole", false), ElementsAre("/whole"));
}

TEST_F(FanotifyMarksTest, OverlaysThatHaveTheIdentifierOfTheirUpperLayerAreDistinguishedFromIt) {
    m_bAll = true;
    m_calls.m_strMounts +=
        "5 1 0:30 / /one rw - overlay x rw\n6 1 0:31 / /other rw - overlay x rw\n";
    m_calls.m_fsids = {{"/one", "fsid/run"}, {"/other", "fsid/run"}};

    FanotifyMarks& marks = Marks();

    EXPECT_THAT(marks.PointsOf("fsid/run", true), ElementsAre("/one", "/other"));
    EXPECT_THAT(marks.PointsOf("fsid/run", false), ElementsAre("/run"));
    EXPECT_EQ("overlay", marks.TypeOf("fsid/run", true));
    EXPECT_EQ("tmpfs", marks.TypeOf("fsid/run", false));
}

TEST_F(FanotifyMarksTest, AMarkedDirectoryIsKnownByItsHandle) {
    EXPECT_EQ("/etc/cron.d", Marks().MarkedPath("handle/etc/cron.d"));
    EXPECT_EQ("", Marks().MarkedPath("handle/etc"));
}

TEST_F(FanotifyMarksTest, TheNumberOfDirectoriesIsBoundedAndThatIsSaidOnce) {
    for (size_t i = 0; i < FanotifyMarks::MOST_DIRECTORIES + 10; ++i) {
        m_calls.m_directories.insert("/etc/cron.d/" + std::to_string(i));
    }
    FanotifyMarks& marks = Marks();
    m_calls.m_directories.insert("/etc/cron.d/more");
    marks.OnDirectory("/etc/cron.d/more");
    marks.OnDirectory("/etc/cron.d/more");

    EXPECT_EQ(FanotifyMarks::MOST_DIRECTORIES, m_calls.m_single.size());
    EXPECT_THAT(marks.TakeNotices(), ElementsAre(HasSubstr("more than 4096 directories")));
}

TEST_F(FanotifyMarksTest, DirectoriesThatCameAndWentMakeRoomForOthers) {
    FanotifyMarks& marks = Marks();
    for (size_t i = 0; i < 2 * FanotifyMarks::MOST_DIRECTORIES; ++i) {
        const std::string strPath = "/etc/cron.d/" + std::to_string(i);
        m_calls.m_directories.insert(strPath);
        marks.OnDirectory(strPath);
        m_calls.m_directories.erase(strPath);
    }
    m_calls.m_directories.insert("/etc/cron.d/last");

    marks.OnDirectory("/etc/cron.d/last");

    EXPECT_THAT(m_calls.m_single, Contains(Pair("/etc/cron.d/last", WRITES)));
    EXPECT_THAT(marks.TakeNotices(), IsEmpty());
    EXPECT_EQ("/etc/cron.d/last", marks.MarkedPath("handle/etc/cron.d/last"));
}

TEST_F(FanotifyMarksTest, PlacesThatGetOtherMountsAreNamed) {
    FanotifyMarks& marks = Marks();
    const std::string strBefore = m_calls.m_strMounts;
    EXPECT_THAT(marks.TakeNotices(), IsEmpty());

    m_calls.m_strMounts += "5 1 8:2 /jobs /etc/cron.d rw - xfs x rw\n";
    marks.Refresh();
    EXPECT_THAT(marks.TakeNotices(), ElementsAre(EndsWith("with what was known: /etc/cron.d")));
    EXPECT_TRUE(marks.IsWhole(8U << 20 | 2));
    EXPECT_EQ("xfs", marks.TypeAt("/etc/cron.d/job"));

    marks.Refresh();
    EXPECT_THAT(marks.TakeNotices(), IsEmpty());

    m_calls.m_strMounts = strBefore;
    marks.Refresh();
    EXPECT_THAT(marks.TakeNotices(), ElementsAre(EndsWith("with what was known: /etc/cron.d")));
}

TEST_F(FanotifyMarksTest, AMountAboveAPlaceAndOneBelowItConcernItAndOneElsewhereDoesNot) {
    FanotifyMarks& marks = Marks();
    m_calls.m_strMounts += "5 1 8:2 / /srv/more rw - xfs x rw\n";
    marks.Refresh();
    EXPECT_THAT(marks.TakeNotices(), IsEmpty());

    m_calls.m_strMounts += "6 1 8:2 /job /etc/cron.d/job rw - xfs x rw\n";
    marks.Refresh();
    EXPECT_THAT(marks.TakeNotices(), ElementsAre(EndsWith("known: /etc/cron.d")));

    m_calls.m_strMounts += "7 1 8:2 /etc /etc rw - xfs x rw\n";
    marks.Refresh();
    EXPECT_THAT(marks.TakeNotices(),
                ElementsAre(AllOf(HasSubstr("/etc/cron.d, "), HasSubstr("/etc/systemd/system"))));
}

TEST_F(FanotifyMarksTest, APlaceThatADirectoryIsMadeForIsOnTheSameMount) {
    FanotifyMarks& marks = Marks();
    m_calls.m_directories.insert({"/etc/cron.daily", "/var"});
    marks.Refresh();

    EXPECT_THAT(marks.TakeNotices(), IsEmpty());
}

TEST_F(FanotifyMarksTest, AMountThatIsHiddenByAnotherAboveItIsNotTakenForThePlaces) {
    m_calls.m_strMounts += "5 1 8:2 / /etc/cron.d rw - xfs x rw\n6 1 8:3 / /etc rw - ext4 x rw\n";
    m_calls.m_mountIds = {{"/etc/cron.d", 6}, {"/etc", 6}};
    FanotifyMarks& marks = Marks();

    EXPECT_THAT(m_calls.m_whole, Contains(Pair("/etc", EVENTS)));
    EXPECT_THAT(m_calls.m_whole, Not(Contains(Pair("/etc/cron.d", EVENTS))));
    EXPECT_EQ("ext4", marks.TypeAt("/etc/cron.d"));
}

TEST_F(FanotifyMarksTest, AMountOfAllOfAFileSystemThatIsHiddenIsNotTheOneToMarkItBy) {
    m_calls.m_strMounts = "1 0 8:1 /sub / rw - ext4 x rw\n2 1 8:1 / /whole rw - ext4 x rw\n";
    m_calls.m_mountIds = {{"/whole", 3}};
    (void)Marks();

    EXPECT_THAT(m_calls.m_whole, ElementsAre(Pair("/", EVENTS)));
}

TEST_F(FanotifyMarksTest, AFileWithFurtherNamesIsMarkedOnceAndAgainWhenMountsChanged) {
    FanotifyMarks& marks = Marks();
    m_calls.m_handles["/etc/cron.d/job"] = "job";
    marks.OnLinked("/etc/cron.d/job");
    marks.OnLinked("/etc/cron.d/gone");
    EXPECT_THAT(m_calls.m_files,
                ElementsAre(Pair("/etc/cron.d/job", FAN_MODIFY | FAN_CLOSE_WRITE)));

    m_calls.m_files.clear();
    marks.OnLinked("/etc/cron.d/job");
    EXPECT_THAT(m_calls.m_files, IsEmpty());
    marks.Refresh();
    marks.OnLinked("/etc/cron.d/job");
    EXPECT_EQ(1u, m_calls.m_files.size());
}

TEST_F(FanotifyMarksTest, TheNumberOfFilesIsBoundedAndThatIsSaidOnce) {
    FanotifyMarks& marks = Marks();
    for (size_t i = 0; i < FanotifyMarks::MOST_FILES + 2; ++i) {
        const std::string strPath = "/etc/cron.d/" + std::to_string(i);
        m_calls.m_handles[strPath] = strPath;
        marks.OnLinked(strPath);
    }

    EXPECT_EQ(FanotifyMarks::MOST_FILES, m_calls.m_files.size());
    EXPECT_THAT(marks.TakeNotices(), ElementsAre(HasSubstr("more than 1024 files")));
}
