#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "host/kernel/bpf/launch_record.h"
#include "host/kernel/launch/LaunchSource.h"
#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/ExecNoticeBytes.h"
#include "tests/support/host/FakeLaunchSensor.h"
#include "tests/support/host/HeldFiles.h"
#include "tests/support/kernel/FakeKernel.h"

using testing::HasSubstr;
using testing::Not;

namespace {

class Observer : public ILaunchObserver {
public:
    void OnLaunch(const Launch& launch) override { launches.push_back(launch); }
    void OnUnresolved(const LaunchEvent&, const LaunchContext&, const HeldFileRef& pFile) override {
        unresolved.push_back(pFile);
    }
    void OnRepeat(const Launch& launch) override { repeats.push_back(launch); }
    void OnLost(uint64_t, uint64_t) override {}
    void OnCounters(const LaunchCounters& now) override { counters = now; }
    void OnNotice(const std::string& strText) override { notices.push_back(strText); }

    std::vector<Launch> launches;
    std::vector<HeldFileRef> unresolved;
    std::vector<std::string> notices;
    std::vector<Launch> repeats;
    LaunchCounters counters;
};

// Files of this file system are started, by records.
class LaunchSourceHoldTest : public testing::Test {
protected:
    LaunchSourceHoldTest() {
        m_kernel.paths["/proc/self/mountinfo"] = m_dir.WriteFile("mountinfo", "");
        m_options.batchTime = std::chrono::milliseconds(0);
        m_options.nMountNs = 0;
        m_options.strCgroups = "";
        m_options.pLinks = std::make_shared<PinDirectory>();
        m_options.pAgain = std::make_shared<LaunchesAgain>();
        std::string strError;
        EXPECT_TRUE(m_options.pLinks->Open(m_dir.Path() + "/run", strError)) << strError;
    }

    LaunchSource& Source() {
        if (m_pSource == nullptr) {
            m_pSource = std::make_unique<LaunchSource>(std::make_unique<FakeLaunchSensor>(m_state),
                                                       m_observer, m_images, m_options);
            std::string strError;
            EXPECT_TRUE(m_pSource->Open(strError)) << strError;
        }
        return *m_pSource;
    }
    // The launch of a file as it is now, by a process that has ended.
    LaunchEvent EventOf(const std::string& strPath, uint32_t nPid = 0x7ffffff0) {
        FileStatus status;
        EXPECT_TRUE(file_look::AtTarget(strPath, status)) << strPath;
        LaunchEvent event;
        event.nPid = nPid;
        event.nPpid = 1;
        event.nDevice = major(status.st_dev) << 20 | minor(status.st_dev);
        event.nInode = status.st_ino;
        event.nMountId = status.nMountId;
        event.nSize = static_cast<uint64_t>(status.st_size);
        event.nChanged = status.Changed();
        event.strPath = strPath;
        event.strName = strPath;
        event.strCommand = strPath + " x";
        return event;
    }
    void Capture(const LaunchEvent& event) {
        m_state.records.push_back(EncodeLaunch(event));
        ++m_state.counts.nCaptured;
        (void)Source().Drain();
    }
    // It starts when its file was changed.
    void CaptureFresh(const LaunchEvent& event) {
        std::string strRecord = EncodeLaunch(event);
        launch_record head = {};
        std::memcpy(&head, strRecord.data(), sizeof(head));
        timespec real = {};
        timespec boot = {};
        (void)clock_gettime(CLOCK_REALTIME, &real);
        (void)clock_gettime(CLOCK_BOOTTIME, &boot);
        const int64_t nOffset =
            (real.tv_sec - boot.tv_sec) * int64_t{1000000000} + (real.tv_nsec - boot.tv_nsec);
        head.started = static_cast<uint64_t>(event.nChanged - nOffset);
        std::memcpy(strRecord.data(), &head, sizeof(head));
        m_state.records.push_back(strRecord);
        ++m_state.counts.nCaptured;
        (void)Source().Drain();
    }
    EventBatch Taken() {
        EventBatch batch;
        EXPECT_TRUE(Source().HasBatch(LaunchSource::Clock::now(), true));
        Source().TakeBatch(batch, 1);
        return batch;
    }
    void OpenFor(uint32_t nPid, const std::string& strPath) {
        m_kernel.Tell({}, {{exec_open_bytes::Opened(static_cast<int32_t>(nPid),
                                                    open(strPath.c_str(), O_RDONLY | O_CLOEXEC))}});
    }

    FakeKernel m_kernel;
    const TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("bin/program", "content", 0755);
    FakeLaunchState m_state;
    Observer m_observer;
    ProcessTable m_images;
    LaunchSourceOptions m_options;
    std::unique_ptr<LaunchSource> m_pSource;
};

}  // namespace

TEST_F(LaunchSourceHoldTest, ALaunchHasItsFileAndItsVersion) {
    const LaunchEvent event = EventOf(m_strFile);
    Capture(event);
    Capture(event);

    ASSERT_EQ(2u, m_observer.launches.size());
    const HeldFileRef pFile = m_observer.launches[0].pFile;
    ASSERT_NE(nullptr, pFile);
    EXPECT_TRUE(pFile->IsSure());
    EXPECT_EQ(pFile, m_observer.launches[1].pFile);
    EXPECT_EQ(LAUNCH_PATH_INVOKED, m_observer.launches[0].eOrigin);
    const EventBatch batch = Taken();
    ASSERT_EQ(2u, batch.files.size());
    EXPECT_EQ(pFile, batch.files[1]);
    EXPECT_EQ("", batch.strTrueBody);
    EXPECT_THAT(batch.strBody,
                HasSubstr("\"version\":\"" + file_version::Text(pFile->Version()) + "\""));
}

TEST_F(LaunchSourceHoldTest, WhatIsHeldIsReportedByALinkWhenItsNameIsGone) {
    const LaunchEvent event = EventOf(m_strFile);
    Capture(event);
    ASSERT_EQ(0, unlink(m_strFile.c_str()));
    Capture(event);

    ASSERT_EQ(2u, m_observer.launches.size());
    const Launch& launch = m_observer.launches[1];
    EXPECT_EQ(LAUNCH_PATH_HELD, launch.eOrigin);
    EXPECT_EQ(m_strFile, launch.creation.strPath);
    EXPECT_EQ("content", FileText(launch.strLink));
    EXPECT_EQ(m_strFile, m_options.pLinks->TrueNames(launch.strLink));
    const EventBatch batch = Taken();
    EXPECT_THAT(batch.strBody, HasSubstr(launch.strLink));
    EXPECT_THAT(batch.strTrueBody, Not(HasSubstr(launch.strLink)));
    EXPECT_THAT(batch.strTrueBody, HasSubstr(m_strFile));
}

TEST_F(LaunchSourceHoldTest, WhatWasOpenedForTheStartIsHeldWithoutANameOrAProcess) {
    const LaunchEvent event = EventOf(m_strFile, 77);
    (void)Source();
    OpenFor(77, m_strFile);
    (void)HoldFile(m_strFile);  // until another change has another time
    ASSERT_EQ(0, rename(m_strFile.c_str(), (m_dir.Path() + "/elsewhere").c_str()));
    ASSERT_NE("", m_dir.WriteFile("bin/program", "another", 0755));
    Capture(event);

    // The change of the name has changed the time, so what it holds is not known to be the same.
    ASSERT_EQ(1u, m_observer.unresolved.size());
    ASSERT_NE(nullptr, m_observer.unresolved[0]);
    EXPECT_FALSE(m_observer.unresolved[0]->IsSure());
    EXPECT_EQ(event.nInode, m_observer.unresolved[0]->Status().st_ino);
}

TEST_F(LaunchSourceHoldTest, WhatWasOpenedAndMovedWithItsDirectoryIsSure) {
    const LaunchEvent event = EventOf(m_strFile, 77);
    (void)Source();
    OpenFor(77, m_strFile);
    ASSERT_EQ(0, rename((m_dir.Path() + "/bin").c_str(), (m_dir.Path() + "/moved").c_str()));
    Capture(event);

    ASSERT_EQ(1u, m_observer.launches.size());
    EXPECT_EQ(LAUNCH_PATH_HELD, m_observer.launches[0].eOrigin);
    EXPECT_EQ("content", FileText(m_observer.launches[0].strLink));
}

TEST_F(LaunchSourceHoldTest, WhatNothingLeadsToIsNotHeld) {
    const LaunchEvent event = EventOf(m_strFile);
    ASSERT_EQ(0, unlink(m_strFile.c_str()));
    Capture(event);
    ASSERT_EQ(1u, m_observer.unresolved.size());
    EXPECT_EQ(nullptr, m_observer.unresolved[0]);
}

TEST_F(LaunchSourceHoldTest, WhatSomebodyServesIsReportedAndNotOpened) {
    LaunchEvent event = EventOf(m_strFile);
    event.bServed = true;
    Capture(event);
    ASSERT_EQ(1u, m_observer.launches.size());
    EXPECT_EQ(nullptr, m_observer.launches[0].pFile);
    (void)Taken();
    EXPECT_EQ(1u, m_observer.counters.nNotHeld);
}

TEST_F(LaunchSourceHoldTest, BeyondTheBoundALaunchIsReportedAndCounted) {
    m_options.nMostHeld = 1;
    const std::string strOther = m_dir.WriteFile("bin/other", "x", 0755);
    Capture(EventOf(m_strFile));
    Capture(EventOf(strOther));
    ASSERT_EQ(2u, m_observer.launches.size());
    EXPECT_EQ(nullptr, m_observer.launches[1].pFile);
    EXPECT_EQ(LAUNCH_PATH_INVOKED, m_observer.launches[1].eOrigin);
    (void)Taken();
    EXPECT_EQ(1u, m_observer.counters.nNotHeld);
}

TEST_F(LaunchSourceHoldTest, WhatIsToBeReportedOnceMoreGoesByALink) {
    Capture(EventOf(m_strFile));
    (void)Taken();
    ASSERT_TRUE(
        m_options.pAgain->Add({m_observer.launches[0].creation, m_observer.launches[0].pFile}));
    Source().TakeAgain();

    const EventBatch batch = Taken();
    EXPECT_EQ(1u, m_observer.counters.nAgain);
    EXPECT_EQ(1u, m_observer.launches.size());  // it was reported as a launch before
    EXPECT_THAT(batch.strBody, HasSubstr("/pins-"));
    EXPECT_THAT(batch.strBody, HasSubstr("\"cmd\":\"" + m_strFile + " x\""));
    EXPECT_EQ(m_observer.launches[0].pFile, batch.files.at(0));
}

TEST_F(LaunchSourceHoldTest, WithoutLinksNothingIsHeld) {
    m_options.pLinks = nullptr;
    Capture(EventOf(m_strFile));
    ASSERT_EQ(1u, m_observer.launches.size());
    EXPECT_EQ(nullptr, m_observer.launches[0].pFile);
    EXPECT_TRUE(m_kernel.Marks().empty());
}

TEST_F(LaunchSourceHoldTest, AFileChangedJustBeforeItsStartIsUnsure) {
    CaptureFresh(EventOf(m_strFile));

    ASSERT_EQ(1u, m_observer.launches.size());
    EXPECT_EQ(m_strFile, m_observer.launches[0].creation.strPath);
    ASSERT_NE(nullptr, m_observer.launches[0].pFile);
    EXPECT_FALSE(m_observer.launches[0].pFile->IsSure());
    EXPECT_NE(0u, m_observer.launches[0].pFile->Version().nFresh);
    (void)Taken();
    EXPECT_EQ(1u, m_observer.counters.nFresh);
}

TEST_F(LaunchSourceHoldTest, AFileChangedJustBeforeItsStartIsAnotherVersionEachTime) {
    LaunchEvent event = EventOf("/proc/self/exe", static_cast<uint32_t>(getpid()) + 1);
    const pid_t nChild = fork();
    if (nChild == 0) {
        pause();
        _exit(0);
    }
    event.nPid = static_cast<uint32_t>(nChild);
    CaptureFresh(event);
    CaptureFresh(event);
    ASSERT_EQ(0, kill(nChild, SIGKILL));
    (void)waitpid(nChild, nullptr, 0);

    ASSERT_EQ(2u, m_observer.launches.size());
    ASSERT_NE(nullptr, m_observer.launches[0].pFile);
    EXPECT_FALSE(m_observer.launches[0].pFile->IsSure());  // it runs, which proves nothing
    EXPECT_NE(m_observer.launches[0].pFile, m_observer.launches[1].pFile);
}

TEST_F(LaunchSourceHoldTest, AFileSystemThatStampsLooselyMakesItsFilesUnsure) {
    std::string strRecord = EncodeLaunch(EventOf(m_strFile));
    launch_record head = {};
    std::memcpy(&head, strRecord.data(), sizeof(head));
    head.flags |= LAUNCH_LOOSE_TIMES;
    std::memcpy(strRecord.data(), &head, sizeof(head));
    m_state.records.push_back(strRecord);
    (void)Source().Drain();
    ASSERT_EQ(1u, m_observer.launches.size());
    ASSERT_NE(nullptr, m_observer.launches[0].pFile);
    EXPECT_FALSE(m_observer.launches[0].pFile->IsSure());
}

TEST_F(LaunchSourceHoldTest, AFileSystemThatCannotBeMarkedIsNamed) {
    m_kernel.paths["/proc/self/mountinfo"] =
        m_dir.WriteFile("mountinfo", "1 0 8:1 / /one rw - ext4 x rw\n");
    m_kernel.markErrors = {{"/one", EXDEV}};
    (void)Source();
    ASSERT_EQ(2u, m_observer.notices.size());
    EXPECT_EQ("programs that end at once are held by their paths alone on /one",
              m_observer.notices[1]);
}

TEST_F(LaunchSourceHoldTest, WithoutNoticesOfExecutedFilesItSaysSoAndGoesOn) {
    m_kernel.groupErrors = {EPERM};
    Capture(EventOf(m_strFile));
    ASSERT_EQ(2u, m_observer.notices.size());
    EXPECT_THAT(m_observer.notices[1], HasSubstr("held by their paths alone"));
    ASSERT_EQ(1u, m_observer.launches.size());
    EXPECT_NE(nullptr, m_observer.launches[0].pFile);
}

TEST_F(LaunchSourceHoldTest, TheReportOfAProgramThatIsJudgedDoesForItsOtherLaunches) {
    m_options.repeats = std::chrono::hours(1);
    Capture(EventOf(m_strFile));
    Capture(EventOf(m_strFile));  // nobody has said yet that it is no bad one
    ASSERT_EQ(2u, m_observer.launches.size());
    m_observer.launches[0].pFile->Settle();
    LaunchEvent again = EventOf(m_strFile, 0x7ffffff1);
    again.strCommand = "other arguments";
    again.bArgsCut = true;
    Capture(again);
    EXPECT_EQ(2u, m_observer.launches.size());
    EXPECT_EQ(2u, Taken().nEvents);
    ASSERT_EQ(1u, m_observer.repeats.size());
    const Launch& repeat = m_observer.repeats[0];
    EXPECT_EQ(m_strFile, repeat.creation.strPath);
    EXPECT_EQ("other arguments", repeat.creation.strCommand);
    EXPECT_EQ(0x7ffffff1u, repeat.creation.nPid);
    EXPECT_TRUE(repeat.bArgsCut);
    EXPECT_EQ(LAUNCH_PATH_INVOKED, repeat.eOrigin);
    EXPECT_EQ(m_observer.launches[0].context.nUid, repeat.context.nUid);

    Source().TakeCounts(true);
    EXPECT_EQ(2u, m_observer.counters.nReported);
    EXPECT_EQ(1u, m_observer.counters.nRepeated);
    EXPECT_EQ(0u, m_observer.counters.Waiting());
}

TEST_F(LaunchSourceHoldTest, ARepeatIsKnownAsTheStarterOfOthers) {
    m_options.repeats = std::chrono::hours(1);
    m_images.SetExact(true);
    Capture(EventOf(m_strFile));
    ASSERT_EQ(1u, m_observer.launches.size());
    m_observer.launches[0].pFile->Settle();
    LaunchEvent again = EventOf(m_strFile, 0x7ffffff1);
    Capture(again);
    EXPECT_EQ(1u, m_observer.launches.size());
    LaunchEvent child = EventOf(m_dir.WriteFile("bin/child", "other", 0755), 0x7ffffff2);
    child.nPpid = again.nPid;
    Capture(child);
    ASSERT_EQ(2u, m_observer.launches.size());
    EXPECT_EQ(m_strFile, m_observer.launches[1].strStarter);
}

TEST_F(LaunchSourceHoldTest, WithoutRepeatsEveryLaunchIsReported) {
    Capture(EventOf(m_strFile));
    ASSERT_EQ(1u, m_observer.launches.size());
    m_observer.launches[0].pFile->Settle();
    Capture(EventOf(m_strFile));
    EXPECT_EQ(2u, m_observer.launches.size());
    EXPECT_EQ(0u, m_observer.counters.nRepeated);
}

TEST_F(LaunchSourceHoldTest, ASensorThatIsNotExactHasEveryLaunchReported) {
    m_options.repeats = std::chrono::hours(1);
    m_state.bExact = false;
    Capture(EventOf(m_strFile));
    ASSERT_EQ(1u, m_observer.launches.size());
    ASSERT_NE(nullptr, m_observer.launches[0].pFile);
    m_observer.launches[0].pFile->Settle();
    Capture(EventOf(m_strFile));
    EXPECT_EQ(2u, m_observer.launches.size());
}

// What it runs is an argument.
TEST_F(LaunchSourceHoldTest, EveryLaunchOfALoaderIsReported) {
    m_options.repeats = std::chrono::hours(1);
    const std::string strLoader =
        m_dir.WriteFile("bin/tool", FileText("/lib64/ld-linux-x86-64.so.2"), 0755);
    Capture(EventOf(strLoader));
    ASSERT_FALSE(m_observer.launches.empty());
    const HeldFileRef pFile = m_observer.launches[0].pFile;
    ASSERT_NE(nullptr, pFile);
    pFile->Settle();
    m_observer.launches.clear();
    Capture(EventOf(strLoader));
    ASSERT_FALSE(m_observer.launches.empty());
    EXPECT_EQ(strLoader, m_observer.launches[0].creation.strPath);
    EXPECT_TRUE(m_observer.repeats.empty());
}

TEST_F(LaunchSourceHoldTest, WhatARepeatOpenedIsOfNoLaterScript) {
    m_options.repeats = std::chrono::hours(1);
    constexpr uint32_t PID = 0x7ffffff0;
    const std::string strScript = m_dir.WriteFile("bin/script", "#!" + m_strFile + "\n", 0755);
    Capture(EventOf(m_strFile));
    ASSERT_EQ(1u, m_observer.launches.size());
    m_observer.launches[0].pFile->Settle();
    OpenFor(PID, strScript);  // and could not start it: nobody says so
    OpenFor(PID, m_strFile);
    Capture(EventOf(m_strFile, PID));
    ASSERT_EQ(1u, m_observer.repeats.size());
    OpenFor(PID, m_strFile);
    LaunchEvent event = EventOf(m_strFile, PID);
    event.strName = m_dir.Path() + "/bin/gone";
    event.strInterp = m_strFile;
    Capture(event);
    ASSERT_EQ(2u, m_observer.launches.size());  // of the script nothing is known
    EXPECT_FALSE(m_observer.launches[1].bScript);
}
