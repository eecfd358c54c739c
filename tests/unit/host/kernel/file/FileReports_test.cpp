#include "host/kernel/file/FileReports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/host/kernel/file/CapturedFiles.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace captured_files;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class FileReportsTest : public FileSourceTest {
protected:
    FileReports& Reports() {
        if (m_pReports == nullptr) {
            m_pReports = std::make_unique<FileReports>(m_fake, m_observer, m_places, m_images,
                                                       FileReportsOptions(m_options));
        }
        return *m_pReports;
    }
    void Find(FileAct eAct, const std::string& strPath, uint64_t nInode = 1) {
        Reports().ReportFound({eAct, strPath, nInode});
        m_pReports->Observe();
    }
    // Process 5; whether the path is in a watched place.
    bool Happen(FileAct eAct, const std::string& strPath, uint32_t nPid = 5) {
        FileEvent event;
        event.nMask = FAN_CREATE;
        event.nPid = nPid;
        return Reports().Report(eAct, event, "", strPath, 1000);
    }

    const FakeFileSensor m_fake{m_sensor};
    std::unique_ptr<FileReports> m_pReports;
};

}  // namespace

TEST_F(FileReportsTest, WhatIsFoundIsReportedWithoutAProgramAndCounted) {
    m_sensor.strFsType = "xfs";
    Find(FILE_WRITE, "/etc/cron.d/job", 7);

    ASSERT_THAT(m_observer.m_lines, ElementsAre("write /etc/cron.d/job"));
    const FileOperation& operation = m_observer.m_operations[0];
    EXPECT_TRUE(operation.bFound);
    EXPECT_TRUE(operation.bPlace);
    EXPECT_EQ("", operation.strProgram);
    EXPECT_EQ(0u, operation.nPid);
    EXPECT_EQ(7u, operation.nInode);
    EXPECT_EQ("xfs", operation.strFsType);
    const FileCounters& counters = Reports().Counters();
    EXPECT_EQ(1u, counters.nFound);
    EXPECT_EQ(1u, counters.nCaptured);
    EXPECT_EQ(1u, counters.nReported);
    EXPECT_EQ(1u, counters.nNoProgram);
    EXPECT_EQ(0u, counters.Waiting());
}

TEST_F(FileReportsTest, WhatIsFoundComesInABatch) {
    Find(FILE_REMOVE, "/etc/cron.d/job");
    EventBatch batch;
    Reports().TakeBatch(batch, 4);

    EXPECT_EQ(1u, batch.nEvents);
    EXPECT_THAT(batch.strBody, HasSubstr(R"("path":"/etc/cron.d/job","optertion":"remove",)"
                                         R"("exe_path":"","exe_pid":0,"ino":1,)"));
    EXPECT_EQ(0u, Reports().Counters().nBatched);
}

TEST_F(FileReportsTest, OfUnitsOnlyWhatIsMadeIsReportedAsFound) {
    for (const FileAct eAct : {FILE_WRITE, FILE_CREATE, FILE_REMOVE}) {
        Find(eAct, "/usr/lib/systemd/system/a.service");
    }

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /lib/systemd/system/a.service"));
    EXPECT_EQ(1u, Reports().Counters().nCaptured);
}

TEST_F(FileReportsTest, EverythingFoundIsReportedWhenThatIsWanted) {
    m_options.bAll = true;
    Find(FILE_REMOVE, "/usr/lib/systemd/system/a.service");

    EXPECT_EQ(1u, m_observer.m_lines.size());
}

TEST_F(FileReportsTest, APipeThatIsFoundIsOne) {
    m_pipes["/etc/cron.d/pipe"] = 1;
    Find(FILE_CREATE, "/etc/cron.d/pipe");

    EXPECT_TRUE(m_observer.m_operations.at(0).bPipe);
}

TEST_F(FileReportsTest, OfWhatHappensInAWatchedPlaceItSaysSoWhetherOrNotItIsReported) {
    EXPECT_TRUE(Happen(FILE_CREATE, "/etc/cron.d/job"));
    EXPECT_TRUE(Happen(FILE_WRITE, "/usr/lib/systemd/system/a.service"));
    EXPECT_FALSE(Happen(FILE_WRITE, "/usr/lib/systemd/system/a.txt"));
    EXPECT_FALSE(Happen(FILE_CREATE, "/tmp/job"));
    EXPECT_FALSE(Happen(FILE_CREATE, ""));
    EXPECT_FALSE(Happen(FILE_CREATE, "/etc/cron.d/job", static_cast<uint32_t>(getpid())));

    EXPECT_EQ(1u, Reports().Counters().nReported);
    EXPECT_EQ(6u, Reports().Counters().nCaptured);
}

TEST_F(FileReportsTest, APipeThatHasAnotherNameByNowIsKnownByItsHandle) {
    m_options.fnLook = [](const std::string& strPath, struct stat& status) {
        status.st_ino = 60;
        status.st_mode = S_IFREG;
        return strPath == "/tmp/replaced";
    };
    m_sensor.kinds = {{Handle(50), S_IFIFO}, {Handle(51), S_IFREG}};
    const auto make = [this](const std::string& strPath, uint32_t nInode) {
        FileEvent event;
        const std::string strHandle = Handle(nInode);
        event.nMask = FAN_CREATE;
        event.nPid = 5;
        event.strTarget = strHandle;
        (void)Reports().Report(FILE_CREATE, event, "", strPath, 1000);
        m_pReports->Observe();
    };

    make("/tmp/renamed", 50);
    make("/tmp/file", 51);
    make("/tmp/replaced", 50);
    make("/tmp/removed", 52);
    make("/tmp/replaced", 53);

    EXPECT_THAT(m_observer.m_lines, ElementsAre("create /tmp/renamed", "create /tmp/replaced"));
    EXPECT_TRUE(m_observer.m_operations[0].bPipe);
    EXPECT_EQ(50u, m_observer.m_operations[0].nInode);
    EXPECT_EQ(50u, m_observer.m_operations[1].nInode);
    EXPECT_EQ(1u, Reports().Counters().nGone);
    EXPECT_EQ(3u, Reports().Counters().nUnwatched);
}

TEST_F(FileReportsTest, AFileThatIsThereIsLookedAtByItsPathAlone) {
    m_sensor.kinds = {{Handle(77), S_IFIFO}};
    FileEvent event;
    const std::string strHandle = Handle(77);
    event.nMask = FAN_CREATE;
    event.strTarget = strHandle;

    (void)Reports().Report(FILE_CREATE, event, "", "/tmp/file", 1000);
    event.strTarget = "";  // not known
    m_sensor.kinds[""] = S_IFIFO;
    (void)Reports().Report(FILE_CREATE, event, "", "/tmp/file", 1000);

    EXPECT_EQ(2u, Reports().Counters().nUnwatched);
    EXPECT_EQ(0u, Reports().Counters().nGone);
}

TEST_F(FileReportsTest, AFileWhoseRemovalIsInTheSameEventIsGone) {
    m_options.fnLook = [](const std::string&, struct stat&) { return false; };
    m_sensor.kinds = {{Handle(50), S_IFIFO}};
    const std::string strHandle = Handle(50);
    FileEvent event;
    event.nMask = FAN_CREATE | FAN_DELETE;
    event.strTarget = strHandle;

    (void)Reports().Report(FILE_CREATE, event, "", "/tmp/pipe", 1000);

    EXPECT_EQ(1u, Reports().Counters().nGone);
    EXPECT_EQ(1u, Reports().Counters().nUnwatched);
}
