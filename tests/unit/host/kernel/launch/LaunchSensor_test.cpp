#include "host/kernel/launch/LaunchSensor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "tests/support/NoPrivilege.h"

#ifdef TEVMON_LAUNCH_SENSOR
#include "host/kernel/bpf/launch_record.h"
#include "tests/support/bpf/FakeBpf.h"
#endif

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(LaunchRefusalTest, AKernelThatIsLockedDownIsNotTakenForAnOldOne) {
    const char* const CONFIDENTIAL = "none integrity [confidentiality]\n";

    EXPECT_THAT(LaunchRefusal(EINVAL, true, CONFIDENTIAL),
                HasSubstr("Invalid argument; it is locked down (confidentiality)"));
    EXPECT_THAT(LaunchRefusal(EINVAL, false, CONFIDENTIAL), HasSubstr("locked down"));
    EXPECT_THAT(LaunchRefusal(EPERM, true, CONFIDENTIAL), HasSubstr("run as root"));
    for (const char* const pszLockdown :
         {"", "[none] integrity confidentiality\n", "none [integrity] confidentiality\n"}) {
        EXPECT_THAT(LaunchRefusal(EINVAL, true, pszLockdown), HasSubstr("Linux 5.8 or newer"));
        EXPECT_THAT(LaunchRefusal(EINVAL, false, pszLockdown), HasSubstr("DEBUG_INFO_BTF"));
    }
}

TEST(LaunchSensorDeathTest, WithoutPrivilegeItSaysWhatIsMissingAndHowToGetIt) {
    const std::unique_ptr<ILaunchSensor> pSensor = MakeLaunchSensor();
    EXPECT_EXIT(OpenWithoutPrivilege(*pSensor), testing::ExitedWithCode(REFUSED_WITHOUT_PRIVILEGE),
                "run as root|built without the launch sensor");
}

#ifdef TEVMON_LAUNCH_SENSOR

namespace {

class LaunchSensorTest : public testing::Test {
protected:
    bool Open() { return m_pSensor->Open(m_strError); }
    // What the ring holds, up to nMost records.
    std::vector<std::string> Drained(size_t nMost = 100) {
        std::vector<std::string> records;
        m_pSensor->Drain([&records, nMost](const void* pData, size_t nSize) {
            records.emplace_back(static_cast<const char*>(pData), nSize);
            return records.size() < nMost;
        });
        return records;
    }
    // Captured, lost, and lost copies and ends.
    std::vector<uint64_t> Counts() const {
        const SensorCounts counts = m_pSensor->Counts();
        return {counts.nCaptured, counts.nLost, counts.nOthersLost};
    }
    void SetCounts(const std::vector<uint64_t>& sensed, const std::vector<uint64_t>& lost,
                   const std::vector<uint64_t>& othersLost) {
        m_kernel.counts = {{LAUNCH_COUNT_CAPTURED, sensed},
                           {LAUNCH_COUNT_LOST, lost},
                           {LAUNCH_COUNT_OTHERS_LOST, othersLost}};
    }
    // Refused, with nothing left behind in the kernel once the sensor is gone.
    void ExpectRefused() {
        EXPECT_FALSE(Open());
        m_pSensor.reset();
        EXPECT_THAT(m_kernel.attached, IsEmpty());
        EXPECT_EQ(0, m_kernel.nRings);
        EXPECT_EQ(0, m_kernel.nObjects);
    }

    FakeBpf m_kernel;
    std::unique_ptr<ILaunchSensor> m_pSensor = MakeLaunchSensor();
    std::string m_strError;
};

}  // namespace

TEST_F(LaunchSensorTest, CopiesAndEndsAreAttachedBeforeStartsSoThatAParentIsReportedFirst) {
    ASSERT_TRUE(Open());

    EXPECT_THAT(m_kernel.attached, ElementsAre("on_exit", "on_fork", "on_exec"));
    EXPECT_EQ(
        "\x7f"
        "ELF",
        m_kernel.strObject.substr(0, 4));
    EXPECT_EQ("", m_strError);
}

TEST_F(LaunchSensorTest, EachProcessorHasAScratchOfItsOwn) {
    m_kernel.nProcessors = 7;

    ASSERT_TRUE(Open());

    EXPECT_EQ(7u, m_kernel.maxEntries["scratches"]);
    EXPECT_EQ(1u, m_kernel.maxEntries.size());
}

TEST_F(LaunchSensorTest, WithoutThePrivilegeToLoadTheCapabilitiesAreNamed) {
    for (const int nError : {EPERM, EACCES}) {
        m_kernel.nLoadError = nError;
        m_pSensor = MakeLaunchSensor();
        m_strError.clear();

        ExpectRefused();

        EXPECT_THAT(m_strError, HasSubstr("capabilities CAP_BPF, CAP_PERFMON and CAP_SYS_PTRACE"));
    }
}

TEST_F(LaunchSensorTest, AKernelThatCannotLoadItIsDistinguishedFromOneThatMayNot) {
    m_kernel.nLoadError = EINVAL;

    ExpectRefused();

    EXPECT_THAT(m_strError, HasSubstr("refuses the launch sensor: Invalid argument; "));
    EXPECT_THAT(m_strError, HasSubstr("CONFIG_"));
    EXPECT_THAT(m_strError, testing::Not(HasSubstr("run as root")));
}

TEST_F(LaunchSensorTest, AProgramThatCannotBeReadOrHasNoRingIsRefusedWithTheReason) {
    m_kernel.nOpenError = ENOMEM;
    ExpectRefused();
    EXPECT_THAT(m_strError, HasSubstr("Cannot allocate memory"));

    m_kernel.nOpenError = 0;
    m_kernel.nRingError = EMFILE;
    m_pSensor = MakeLaunchSensor();
    ExpectRefused();
    EXPECT_THAT(m_strError, HasSubstr("Too many open files"));
}

TEST_F(LaunchSensorTest, WithoutAWordThatSaysWhetherItSleepsItIsRefused) {
    m_kernel.bReaderRefused = true;
    ExpectRefused();
    EXPECT_THAT(m_strError, HasSubstr("Bad file descriptor"));
}

TEST_F(LaunchSensorTest, TheKernelReadsWhetherItSleeps) {
    ASSERT_TRUE(Open());
    const auto word = [this] {
        uint32_t nWord = 99;
        EXPECT_EQ(4, pread(m_kernel.nReader, &nWord, sizeof(nWord), 0));
        return nWord;
    };
    EXPECT_EQ(0u, word());
    m_pSensor->SetSleeping(true);
    EXPECT_EQ(1u, word());
    m_pSensor->SetSleeping(false);
    EXPECT_EQ(0u, word());
}

TEST_F(LaunchSensorTest, WhatOnlyWakesItIsNoRecord) {
    ASSERT_TRUE(Open());
    const auto life = [](unsigned int nType) {
        const launch_life head = {nType, 1, 2};
        return std::string(reinterpret_cast<const char*>(&head), sizeof(head));
    };
    m_kernel.records = {life(LAUNCH_WAKE), life(LAUNCH_FORK), life(LAUNCH_WAKE)};
    EXPECT_EQ(std::vector<std::string>{life(LAUNCH_FORK)}, Drained());
}

TEST_F(LaunchSensorTest, WhereTheProcessorsCannotBeCountedNothingIsLoaded) {
    m_kernel.nProcessors = -EIO;

    ExpectRefused();

    EXPECT_EQ(0, m_kernel.nLoads);
    EXPECT_THAT(m_strError, HasSubstr("Input/output error"));
}

TEST_F(LaunchSensorTest, WhereOneOfThePartsCannotBeAttachedTheOthersAreTakenOffAgain) {
    for (const char* const pszPart : {"on_exit", "on_fork", "on_exec"}) {
        m_kernel.attachErrors = {{pszPart, ENOENT}};
        m_pSensor = MakeLaunchSensor();

        ExpectRefused();

        EXPECT_THAT(m_strError, HasSubstr("No such file or directory")) << pszPart;
    }
    EXPECT_THAT(m_kernel.detached, ElementsAre("on_exit", "on_fork", "on_exit"));
}

TEST_F(LaunchSensorTest, RecordsOfAnySizeAreDrainedByteForByteInTheirOrder) {
    ASSERT_TRUE(Open());
    const std::string strBinary("a\0\xff\n", 4);
    const std::string strLong(80000, 'x');
    m_kernel.records = {strBinary, "", strLong};

    EXPECT_THAT(Drained(), ElementsAre(strBinary, "", strLong));
    EXPECT_THAT(Drained(), IsEmpty());
}

TEST_F(LaunchSensorTest, ASinkThatHasEnoughLeavesTheRestForTheNextTime) {
    ASSERT_TRUE(Open());
    m_kernel.records = {"one", "two", "three"};

    EXPECT_THAT(Drained(1), ElementsAre("one"));
    EXPECT_THAT(Drained(), ElementsAre("two", "three"));
}

TEST_F(LaunchSensorTest, ASinkThatThrowsIsReportedToTheCallerAndNotToTheLibrary) {
    ASSERT_TRUE(Open());
    m_kernel.records = {"one", "two"};

    EXPECT_THROW(m_pSensor->Drain([](const void*, size_t) -> bool { throw std::bad_alloc(); }),
                 std::bad_alloc);

    EXPECT_EQ(0, m_kernel.nLeaks);
    EXPECT_THAT(Drained(), ElementsAre("two"));
}

TEST_F(LaunchSensorTest, TheCountsOfAllProcessorsAreAddedUp) {
    ASSERT_TRUE(Open());
    SetCounts({1000, 7}, {20, 3}, {400, 1});

    EXPECT_THAT(Counts(), ElementsAre(1007, 23, 401));
}

TEST_F(LaunchSensorTest, LaunchesThatMetTheProgramAtWorkAreCapturedAndLost) {
    ASSERT_TRUE(Open());
    SetCounts({10, 0}, {2, 0}, {0, 0});
    m_kernel.missed = {{"on_exec", 5}, {"on_fork", 100}, {"on_exit", 1000}};

    EXPECT_THAT(Counts(), ElementsAre(15, 7, 0));
}

TEST_F(LaunchSensorTest, WhereTheKernelDoesNotSayWhatItSkippedTheOtherCountsStand) {
    ASSERT_TRUE(Open());
    SetCounts({10, 0}, {2, 0}, {1, 0});
    m_kernel.missed = {{"on_exec", 5}};
    m_kernel.bInfoRefused = true;

    EXPECT_THAT(Counts(), ElementsAre(10, 2, 1));
}

TEST_F(LaunchSensorTest, ACounterThatCannotBeReadIsNone) {
    ASSERT_TRUE(Open());
    m_kernel.counts = {{LAUNCH_COUNT_CAPTURED, {3, 4}}};

    EXPECT_EQ(7u, m_pSensor->Counts().nCaptured);
    EXPECT_EQ(0u, m_pSensor->Counts().nLost);
}

TEST_F(LaunchSensorTest, LaunchesLostWhileTheCountsAreReadAreNeverMoreThanThoseCaptured) {
    ASSERT_TRUE(Open());
    SetCounts({0, 0}, {0, 0}, {0, 0});
    m_kernel.fnBeforeLookup = [this] {
        ++m_kernel.counts[LAUNCH_COUNT_CAPTURED][0];
        ++m_kernel.counts[LAUNCH_COUNT_LOST][1];
    };

    const SensorCounts counts = m_pSensor->Counts();

    EXPECT_GE(counts.nCaptured, counts.nLost);
    EXPECT_GT(counts.nLost, 0u);
}

TEST_F(LaunchSensorTest, OnceDetachedItSensesNoMoreAndStillHandsOverAndCountsWhatWaits) {
    ASSERT_TRUE(Open());
    m_kernel.records = {"waits"};
    SetCounts({3, 0}, {0, 0}, {0, 0});
    m_kernel.missed = {{"on_exec", 2}};

    m_pSensor->Detach();
    m_pSensor->Detach();

    EXPECT_THAT(m_kernel.attached, IsEmpty());
    EXPECT_EQ(3u, m_kernel.detached.size());
    EXPECT_THAT(Drained(), ElementsAre("waits"));
    EXPECT_EQ(5u, m_pSensor->Counts().nCaptured);
}

TEST_F(LaunchSensorTest, ItsEndLeavesNothingInTheKernel) {
    ASSERT_TRUE(Open());
    EXPECT_EQ(1, m_kernel.nObjects);
    EXPECT_EQ(1, m_kernel.nRings);

    m_pSensor.reset();

    EXPECT_THAT(m_kernel.attached, IsEmpty());
    EXPECT_EQ(0, m_kernel.nObjects);
    EXPECT_EQ(0, m_kernel.nRings);
}

TEST_F(LaunchSensorTest, OneThatWasNeverOpenedEndsQuietly) {
    m_pSensor->Detach();
    m_pSensor.reset();

    EXPECT_THAT(m_kernel.detached, IsEmpty());
}

TEST_F(LaunchSensorTest, ItSaysByWhatItSensesAndWhereItsBoundsAre) {
    EXPECT_EQ("eBPF", m_pSensor->Name());
    EXPECT_THAT(m_pSensor->Limits(), HasSubstr("arguments beyond 16 KiB are cut"));
    EXPECT_THAT(m_pSensor->Limits(), HasSubstr("buffer of 8 MiB"));
}

#endif
