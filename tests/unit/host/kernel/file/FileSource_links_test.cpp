#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include "host/kernel/file/FileSource.h"
#include "tests/unit/host/kernel/file/CapturedFiles.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace file_event_bytes;
using namespace captured_files;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class FileSourceLinksTest : public FileSourceTest {
protected:
    // With /etc/cron.d/job, inode 77, and a unit, inode 79, known.
    void Open() {
        m_names["/etc/cron.d"] = {"job"};
        m_names["/usr/lib/systemd/system"] = {"a.service"};
        m_inodes["/usr/lib/systemd/system/a.service"] = 79;
        std::string strError;
        ASSERT_TRUE(Source().Open(strError)) << strError;
        m_sensor.files["/etc/cron.d/job"] = Handle(77);
    }
};

}  // namespace

TEST_F(FileSourceLinksTest, AWriteUnderAnotherNameIsReportedUnderTheWatchedOne) {
    Open();

    Capture(At(FAN_CLOSE_WRITE, 5, TMP, "other", 77) + At(FAN_CLOSE_WRITE, 5, TMP, "file", 78) +
            At(FAN_CLOSE_WRITE, 5, GONE, "lost", 77) + At(FAN_CLOSE_WRITE, 5, CRON, "own", 77));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("write /etc/cron.d/job", "write /etc/cron.d/job",
                                                "write /etc/cron.d/own"));
    EXPECT_EQ(1u, Counters().nUnwatched);
    EXPECT_EQ(0u, Counters().nUnresolved);
}

TEST_F(FileSourceLinksTest, SmallWritesUnderAnotherNameAreOneInABatch) {
    Open();

    Capture(At(FAN_MODIFY, 5, TMP, "other", 77) + At(FAN_MODIFY, 5, TMP, "other", 77));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("write /etc/cron.d/job"));
}

TEST_F(FileSourceLinksTest, AFileThatOnlyHasTheInodeOfAWatchedOneIsAnotherFile) {
    Open();
    m_sensor.files["/etc/cron.d/job"] = Handle(77, "another.");

    Capture(At(FAN_CLOSE_WRITE, 5, TMP, "other", 77));

    EXPECT_THAT(m_observer.m_lines, IsEmpty());
    EXPECT_EQ(1u, Counters().nUnwatched);
}

TEST_F(FileSourceLinksTest, AFurtherNameIsKnownFromTheCreationOnAndNotFromARemoval) {
    Open();
    m_sensor.files = {{"/etc/cron.d/a", Handle(50)}, {"/etc/cron.d/b", Handle(51)}};

    Capture(At(FAN_CREATE, 5, CRON, "a", 50) + At(FAN_CLOSE_WRITE, 5, TMP, "other", 50) +
            At(FAN_DELETE, 5, CRON, "b", 51) + At(FAN_CLOSE_WRITE, 5, TMP, "more", 51));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/a", "write /etc/cron.d/a", "remove /etc/cron.d/b"));
}

TEST_F(FileSourceLinksTest, AJobThatGetsAFurtherNameElsewhereIsMarkedByItselfAndAUnitIsNot) {
    Open();
    EXPECT_THAT(m_sensor.linked, IsEmpty());

    m_nLinks = 2;
    Capture(At(FAN_CREATE, 5, TMP, "other", 77) + At(FAN_CREATE, 5, TMP, "unit", 79));
    for (int i = 0; i < 2; ++i) {
        (void)m_pSource->Read();
        m_pSource->Resolve();
    }

    EXPECT_THAT(m_sensor.linked, ElementsAre("/etc/cron.d/job"));
    EXPECT_THAT(m_observer.m_lines, IsEmpty());
}

TEST_F(FileSourceLinksTest, FilesWithFurtherNamesAreMarkedAtTheStart) {
    m_nLinks = 2;
    Open();

    EXPECT_THAT(m_sensor.linked, ElementsAre("/etc/cron.d/job"));
}

TEST_F(FileSourceLinksTest, AFileWithoutANameIsInNoPlaceUntilItIsGivenOne) {
    m_options.bAll = true;
    Open();
    m_sensor.files["/etc/cron.d/named"] = Handle(50);

    Capture(At(FAN_CLOSE_WRITE, 5, CRON, "#50", 50) + At(FAN_CREATE, 5, CRON, "named", 50) +
            At(FAN_CLOSE_WRITE, 5, CRON, "#50", 50) + At(FAN_CLOSE_WRITE, 5, CRON, "#51", 51));

    EXPECT_THAT(m_observer.m_lines,
                ElementsAre("create /etc/cron.d/named", "write /etc/cron.d/named"));
    EXPECT_EQ(2u, Counters().nUnwatched);
    EXPECT_EQ(4u, Counters().nCaptured);
}

TEST_F(FileSourceLinksTest, AFileThatIsReallyCalledSoHasAName) {
    Open();
    m_inodes["/etc/cron.d/#50"] = 50;

    Capture(At(FAN_CLOSE_WRITE, 5, CRON, "#50", 50) + At(FAN_CLOSE_WRITE, 5, CRON, "#51", 52) +
            At(FAN_CLOSE_WRITE, 5, CRON, "#x", 53) + At(FAN_CLOSE_WRITE, 5, CRON, "50", 50) +
            At(FAN_CLOSE_WRITE, 5, CRON, "#0", 0));

    EXPECT_THAT(m_observer.m_lines, ElementsAre("write /etc/cron.d/#50", "write /etc/cron.d/#51",
                                                "write /etc/cron.d/#x", "write /etc/cron.d/50",
                                                "write /etc/cron.d/#0"));
}

TEST_F(FileSourceLinksTest, WhatTheHostWritesWithoutANameIsItsOwn) {
    Open();

    Capture(At(FAN_CLOSE_WRITE, getpid(), CRON, "#50", 50));

    EXPECT_EQ(1u, Counters().nOwn);
    EXPECT_EQ(0u, Counters().Waiting());
}
