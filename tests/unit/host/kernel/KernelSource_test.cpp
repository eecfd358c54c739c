#include "host/kernel/KernelSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "host/base/JsonReader.h"
#include "host/kernel/bpf/launch_record.h"
#include "tests/support/host/FakeFileSensor.h"
#include "tests/support/host/FakeLaunchSensor.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

using std::chrono::milliseconds;
using std::chrono::minutes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr uint32_t NOBODY = 0x7ffffff0;  // beyond every process number

class Observer : public ILaunchObserver, public IFileObserver {
public:
    void OnLaunch(const Launch&) override {}
    void OnUnresolved(const LaunchEvent&, const LaunchContext&,
                      const std::shared_ptr<const HeldFile>&) override {}
    void OnRepeat(const Launch&) override {}
    void OnLost(uint64_t, uint64_t) override {}
    void OnCounters(const LaunchCounters&) override {}
    void OnOperation(const FileOperation& operation) override { m_operations.push_back(operation); }
    void OnOverflow(uint64_t, uint64_t) override {}
    void OnFileCounters(const FileCounters& counters) override { m_files = counters; }
    void OnNotice(const std::string& strText) override { m_notices.push_back(strText); }

    std::vector<FileOperation> m_operations;
    std::vector<std::string> m_notices;
    FileCounters m_files;
};

class KernelSourceTest : public testing::Test {
protected:
    KernelSourceTest() {
        m_launches.fnOnDrain = [this] { m_strOrder += "L"; };
        m_files.fnOnRead = [this] { m_strOrder += "F"; };
        m_files.paths = {{file_event_bytes::Handle(1), "/etc/cron.d"}};
        m_options.look = milliseconds(1);
        m_options.gather = milliseconds(1);
        m_options.launches.batchTime = m_options.files.batchTime = milliseconds(0);
        m_options.files.fnNames = [](const std::string&, size_t) {
            return std::vector<std::string>();
        };
        m_options.launches.fnLook = [](const std::string& strPath, struct stat& status) {
            status.st_mode = S_IFREG | 0755;
            status.st_ino = strPath.rfind("/bin/", 0) == 0 ? strPath.size() : 0;
            return strPath.rfind("/bin/", 0) == 0;
        };
    }
    KernelSource& Source(bool bLaunches = true, bool bFiles = true) {
        m_pSource = std::make_unique<KernelSource>(
            bLaunches ? std::make_unique<FakeLaunchSensor>(m_launches) : nullptr, m_observer,
            bFiles ? std::make_unique<FakeFileSensor>(m_files) : nullptr, m_observer, m_options);
        return *m_pSource;
    }
    KernelSource& Started(bool bLaunches = true, bool bFiles = true) {
        std::string strError;
        EXPECT_TRUE(Source(bLaunches, bFiles).Start(strError)) << strError;
        m_strOrder.clear();
        return *m_pSource;
    }
    // The inode of a program is the length of its path.
    void Start(uint32_t nPid, const std::string& strPath) {
        launch_record head = {};
        head.life.type = LAUNCH_EXEC;
        head.life.pid = nPid;
        head.life.ppid = 0x7ffffff0;
        head.inode = strPath.size();
        head.name_length = static_cast<unsigned short>(strPath.size() + 1);
        head.args_length = static_cast<unsigned int>(strPath.size() + 1);
        std::string strBytes(sizeof(head), '\0');
        std::memcpy(strBytes.data(), &head, sizeof(head));
        const std::string strText = strPath + std::string(1, '\0');
        m_launches.records.push_back(strBytes + strText + strText);
        ++m_launches.counts.nCaptured;
    }
    void Opened(uint32_t nPid, const std::string& strPath) {
        m_files.reads.push_back(file_event_bytes::At(FAN_OPEN_EXEC, static_cast<int32_t>(nPid), 3,
                                                     "x", static_cast<uint32_t>(strPath.size())));
    }
    void Touched(uint32_t nPid, uint64_t nMask = FAN_CREATE) {
        m_files.reads.push_back(file_event_bytes::At(nMask, static_cast<int32_t>(nPid), 1, "job"));
    }
    // Everything, to the end.
    // Until its end: what its batches hold and their numbers.
    std::vector<std::string> Run(KernelSource& source) {
        source.Stop();
        EventBatch batch;
        std::vector<std::string> batches;
        while (source.Next(batch, minutes(1)) != SOURCE_END) {
            const bool bFiles = batch.strBody.find("cloudfd") != std::string::npos;
            batches.push_back((bFiles ? "files " : "launches ") + std::to_string(batch.nNumber));
        }
        return batches;
    }

    std::string m_strOrder;  // which sensor was read: L launches, F files
    FakeLaunchState m_launches;
    FakeFileState m_files;
    Observer m_observer;
    KernelSourceOptions m_options;
    std::unique_ptr<KernelSource> m_pSource;
};

}  // namespace

TEST_F(KernelSourceTest, LaunchesAndFileOperationsComeInBatchesOfTheirOwnWithOneNumbering) {
    KernelSource& source = Started();
    Start(4711, "/bin/tool");
    Touched(4711);
    EventBatch batch;

    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_EQ(1u, batch.nNumber);
    EXPECT_THAT(batch.strBody, HasSubstr("cloudad"));
    EXPECT_THAT(batch.strBody, Not(HasSubstr("cloudfd")));
    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_THAT(batch.strBody, HasSubstr("cloudfd"));
    EXPECT_EQ(2u, batch.nNumber);
    EXPECT_EQ(2u, source.Counters().nBatches);
    EXPECT_EQ(2u, source.Counters().nEvents);
}

TEST_F(KernelSourceTest, FilesAreReadBeforeLaunchesSoThatWhoActedIsKnown) {
    KernelSource& source = Started();
    Start(4711, "/bin/tool");
    Opened(4711, "/bin/tool");
    Touched(4711);
    Run(source);

    EXPECT_LT(m_strOrder.find('F'), m_strOrder.find('L'));
    ASSERT_EQ(1u, m_observer.m_operations.size());
    EXPECT_EQ("/bin/tool", m_observer.m_operations[0].strProgram);
    EXPECT_EQ(4711u, m_observer.m_operations[0].nPid);
}

// The kernel's queue is small, and whoever takes a batch may be slow.
TEST_F(KernelSourceTest, WhatWaitsInTheKernelIsTakenBetweenTwoBatchesAsWell) {
    m_options.files.nMostOperations = 1;
    KernelSource& source = Started();
    Touched(4711);
    Touched(4711);
    Touched(4711);
    EventBatch batch;

    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_TRUE(m_files.reads.empty());
    EXPECT_EQ(1u, m_observer.m_operations.size());
    Touched(4711);
    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_TRUE(m_files.reads.empty());
    Run(source);

    EXPECT_EQ(4u, m_observer.m_operations.size());
}

TEST_F(KernelSourceTest, NoMoreIsTakenFromTheKernelThanThereIsRoomFor) {
    m_options.files.nMostOperations = 1;
    m_options.files.nMostHeld = 1;
    KernelSource& source = Started();
    Touched(4711);
    Touched(4711);
    EventBatch batch;

    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));

    EXPECT_EQ(1u, m_files.reads.size());
}

TEST_F(KernelSourceTest, TwoProgramsOfOneProcessAreDistinguished) {
    KernelSource& source = Started();
    Start(4711, "/bin/sh");
    Start(4711, "/bin/other");
    Opened(4711, "/bin/sh");
    Touched(4711, FAN_CREATE);
    Opened(4711, "/bin/other");
    Touched(4711, FAN_DELETE);
    Run(source);

    ASSERT_EQ(2u, m_observer.m_operations.size());
    EXPECT_EQ("/bin/sh", m_observer.m_operations[0].strProgram);
    EXPECT_EQ("/bin/other", m_observer.m_operations[1].strProgram);
}

TEST_F(KernelSourceTest, WithRecordsStillOutstandingNobodyIsSaidToHaveActed) {
    KernelSource& source = Started();
    Start(4711, "/bin/tool");
    Opened(4711, "/bin/tool");
    Touched(4711);
    m_launches.bCaughtUp = false;
    Run(source);

    ASSERT_EQ(1u, m_observer.m_operations.size());
    EXPECT_EQ("", m_observer.m_operations[0].strProgram);
    EXPECT_EQ(1u, m_observer.m_files.nNoProgram);
}

TEST_F(KernelSourceTest, WhileStartsAreMissingNobodyWaitsForTheirRecords) {
    KernelSource& source = Started();
    EventBatch batch;
    m_launches.bCaughtUp = false;
    Touched(NOBODY);
    (void)source.Next(batch, milliseconds(0));
    EXPECT_EQ(1u, m_launches.nCatchUps);

    for (int i = 0; i < 10; ++i) {
        Touched(NOBODY);
        (void)source.Next(batch, milliseconds(0));
    }

    EXPECT_GE(2u, m_launches.nCatchUps);  // one more when the processes were read anew
    EXPECT_LE(10u, m_observer.m_operations.size());
}

TEST_F(KernelSourceTest, ManyLaunchesLetBatchesOutAndWhoActedIsKnownAfterTheLast) {
    m_options.launches.nMostRecords = 2;
    KernelSource& source = Started();
    Start(NOBODY, "/bin/sh");
    Start(NOBODY, "/bin/sh");
    Start(NOBODY, "/bin/tool");
    Opened(NOBODY, "/bin/sh");
    Opened(NOBODY, "/bin/tool");
    Touched(NOBODY);
    EventBatch batch;

    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_EQ(2u, batch.nEvents);
    EXPECT_EQ(1u, m_launches.records.size());
    EXPECT_THAT(m_observer.m_operations, testing::IsEmpty());
    Run(source);

    EXPECT_THAT(m_launches.records, testing::IsEmpty());
    EXPECT_EQ(4u, source.Counters().nEvents);
    ASSERT_EQ(1u, m_observer.m_operations.size());
    EXPECT_EQ("/bin/tool", m_observer.m_operations[0].strProgram);
}

TEST_F(KernelSourceTest, LaunchesWithoutEndAreNotWaitedForAndNobodyIsSaidToHaveActed) {
    m_options.launches.nMostRecords = 2;
    KernelSource& source = Started();
    m_launches.fnOnDrain = [this] {
        for (int i = 0; i < 3; ++i) {
            Start(NOBODY, "/bin/tool");
        }
    };
    Opened(NOBODY, "/bin/tool");
    Touched(NOBODY);
    EventBatch batch;
    int nLooks = 0;
    for (; m_observer.m_operations.empty() && nLooks < 1000; ++nLooks) {
        (void)source.Next(batch, milliseconds(0));
    }

    ASSERT_EQ(1u, m_observer.m_operations.size()) << nLooks;
    EXPECT_EQ("", m_observer.m_operations[0].strProgram);
    EXPECT_LT(60, nLooks);
}

// A copy that was lost leaves its number with the program of whoever had it before.
TEST_F(KernelSourceTest, AfterALossNobodyIsSaidToHaveActedUntilTheProcessesAreLookedAtAnew) {
    for (uint64_t SensorCounts::*const pCount :
         {&SensorCounts::nLost, &SensorCounts::nOthersLost}) {
        m_observer.m_operations.clear();
        m_launches.counts = {};
        KernelSource& source = Started();
        EventBatch batch;
        const auto fnActor = [&] {
            Touched(NOBODY);
            const size_t nBefore = m_observer.m_operations.size();
            while (m_observer.m_operations.size() == nBefore) {
                (void)source.Next(batch, milliseconds(0));
            }
            while (source.Next(batch, milliseconds(0)) != SOURCE_NOTHING_YET) {
            }
            return m_observer.m_operations.back().strProgram;
        };
        Start(NOBODY, "/bin/tool");
        Opened(NOBODY, "/bin/tool");
        EXPECT_EQ("/bin/tool", fnActor());

        ++(m_launches.counts.*pCount);
        EXPECT_EQ("", fnActor());
        EXPECT_EQ("", fnActor());  // it is not among the processes that run
        Start(NOBODY, "/bin/other");
        Opened(NOBODY, "/bin/other");
        EXPECT_EQ("/bin/other", fnActor());
    }
}

TEST_F(KernelSourceTest, WithASensorThatIsNotExactNobodyActsInDoubt) {
    m_launches.bExact = false;
    KernelSource& source = Started();
    Start(NOBODY, "/bin/sh");
    Opened(NOBODY, "/bin/sh");
    Touched(NOBODY);
    Start(NOBODY, "/bin/other");
    Touched(NOBODY);
    Run(source);

    ASSERT_EQ(2u, m_observer.m_operations.size());
    EXPECT_EQ("", m_observer.m_operations[0].strProgram);
    EXPECT_EQ("", m_observer.m_operations[1].strProgram);
}

TEST_F(KernelSourceTest, AStartBeforeALookThatLeftNothingIsInEffectWithoutAnOpening) {
    m_launches.bExact = false;
    KernelSource& source = Started();
    EventBatch batch;
    Start(NOBODY, "/bin/sh");
    Start(NOBODY, "/bin/other");
    for (int i = 0; i < 3; ++i) {  // the launches; a look at files that has nothing; another one
        (void)source.Next(batch, milliseconds(0));
    }
    Touched(NOBODY);
    Run(source);

    ASSERT_EQ(1u, m_observer.m_operations.size());
    EXPECT_EQ("/bin/other", m_observer.m_operations[0].strProgram);
}

TEST_F(KernelSourceTest, LaunchesAreWatchedAlone) {
    KernelSource& source = Started(true, false);
    Start(4711, "/bin/tool");
    Touched(4711);

    EXPECT_THAT(Run(source), ElementsAre("launches 1"));
}

TEST_F(KernelSourceTest, FilesAreWatchedAlone) {
    KernelSource& source = Started(false, true);
    Touched(0);

    EXPECT_THAT(Run(source), ElementsAre("files 1"));
    EXPECT_EQ(1u, m_observer.m_files.nNoProgram);
}

TEST_F(KernelSourceTest, WhereFilesAreRefusedLaunchesGoOnAndThatIsSaid) {
    m_files.strRefusal = "no files here";
    KernelSource& source = Started();
    Start(4711, "/bin/tool");

    EXPECT_THAT(Run(source), ElementsAre("launches 1"));
    EXPECT_THAT(m_observer.m_notices, testing::Contains("no files here; watching launches only"));
}

TEST_F(KernelSourceTest, WhatIsRefusedAloneEndsTheStart) {
    std::string strError;
    m_files.strRefusal = "no files here";
    EXPECT_FALSE(Source(false, true).Start(strError));
    EXPECT_EQ("no files here", strError);

    m_launches.strRefusal = "no launches here";
    EXPECT_FALSE(Source(true, false).Start(strError));
    EXPECT_EQ("no launches here", strError);
}

TEST_F(KernelSourceTest, TheHostsDirectoriesAreIgnoredOnceTheRunHasBegun) {
    m_options.files.ignored = {"/state"};
    KernelSource& source = Started();
    EXPECT_THAT(m_files.ignored, testing::IsEmpty());
    EventBatch batch;
    (void)source.Next(batch, milliseconds(0));
    (void)source.Next(batch, milliseconds(0));

    EXPECT_THAT(m_files.ignored, ElementsAre("/state"));
}

TEST_F(KernelSourceTest, StopEndsAWaitAndReportsWhatWasCaptured) {
    m_options.look = minutes(1);
    m_options.launches.batchTime = m_options.files.batchTime = minutes(10);
    KernelSource& source = Started();
    Start(4711, "/bin/tool");
    Touched(4711);
    std::thread stopper([&source] { source.Stop(); });
    EventBatch batch;

    EXPECT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    stopper.join();
    EXPECT_TRUE(m_launches.bDetached);
    EXPECT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_EQ(SOURCE_END, source.Next(batch, minutes(1)));
    EXPECT_EQ(0u, m_observer.m_files.Waiting());
    EXPECT_EQ(0u, m_observer.m_files.nBatched);
}

// Nothing but that launch would end the sleep: the descriptor says nothing of it.
TEST_F(KernelSourceTest, ALaunchWrittenAsItFallsAsleepIsTakenAtOnce) {
    int pipeEnds[2];
    ASSERT_EQ(0, pipe(pipeEnds));
    m_launches.nDescriptor = pipeEnds[0];
    m_options.look = m_options.rest = std::chrono::hours(1);
    size_t nDrains = 0;
    m_launches.fnOnDrain = [&] {
        if (++nDrains == 2) {
            EXPECT_EQ(std::vector<bool>{true}, m_launches.sleeps);
            Start(NOBODY, "/bin/tool");
        }
    };
    KernelSource& source = Started(true, false);
    EventBatch batch;
    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_EQ(2u, nDrains);
    EXPECT_EQ((std::vector<bool>{true, false}), m_launches.sleeps);
    (void)close(pipeEnds[0]);
    (void)close(pipeEnds[1]);
}

TEST_F(KernelSourceTest, LaunchesThatComeTogetherAreGatheredWithoutAWakeUp) {
    m_options.launches.batchTime = std::chrono::hours(1);
    m_options.launches.nMostLaunches = 100;
    std::vector<std::vector<bool>> sleeps;  // before each drain
    m_launches.fnOnDrain = [&] {
        sleeps.push_back(m_launches.sleeps);
        if (sleeps.size() == 1) {
            Start(NOBODY, "/bin/tool");
            Start(NOBODY, "/bin/tool");
        } else if (sleeps.size() == 3) {
            m_pSource->Stop();
        }
    };
    KernelSource& source = Started(true, false);
    EventBatch batch;
    ASSERT_EQ(SOURCE_BATCH, source.Next(batch, minutes(1)));
    EXPECT_EQ(2u, batch.nEvents);
    ASSERT_LE(3u, sleeps.size());
    EXPECT_EQ(std::vector<bool>{}, sleeps[0]);
    EXPECT_EQ(std::vector<bool>{false}, sleeps[1]);  // it slept without asking to be woken
    EXPECT_EQ((std::vector<bool>{false, true}), sleeps[2]);
}
