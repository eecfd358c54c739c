#include "host/doctor/DoctorSensors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include "tests/support/TestDir.h"
#include "tests/support/host/FakeFileSensor.h"
#include "tests/support/host/FakeLaunchSensor.h"
#include "tests/support/kernel/FakeKernel.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

// All of a finding as one text.
std::string Whole(const Finding& finding) {
    static const char* const STATES[] = {"ok", "warning", "failed"};
    return std::string(STATES[finding.eState]) + "|" + finding.strCheck + "|" + finding.strText +
           "|" + finding.strRemedy;
}

std::vector<std::string> LaunchFindings(
    const std::vector<std::pair<std::string, std::string>>& attempts) {
    std::vector<std::string> texts;
    for (const Finding& finding : doctor::OfLaunchSensors(attempts)) {
        texts.push_back(Whole(finding));
    }
    return texts;
}

// A kernel, its sensors and its mounts, all the test's own.
class DoctorOwnSensorsTest : public testing::Test {
protected:
    DoctorOwnSensorsTest() {
        m_makers.fnLaunches = [this](const std::string& strWord) {
            m_launches[strWord].strRefusal = m_refusals[strWord];
            return std::make_unique<FakeLaunchSensor>(m_launches[strWord]);
        };
        m_makers.fnFiles = [this](const std::shared_ptr<WatchedPaths>& pPlaces, bool bAll) {
            EXPECT_EQ(m_pPlaces, pPlaces);
            EXPECT_FALSE(bAll);
            return std::make_unique<FakeFileSensor>(m_files);
        };
        m_kernel.paths["/proc/self/mountinfo"] =
            m_dir.WriteFile("mountinfo",
                            "1 0 8:1 / / rw - ext4 x rw\n2 1 8:2 / /etc rw - overlay x rw\n"
                            "3 1 8:3 / /run rw - tmpfs x rw\n4 1 8:4 / /srv rw - xfs x rw\n");
    }
    std::vector<std::string> Findings() {
        std::vector<std::string> texts;
        for (const Finding& finding : doctor::OfSensors(m_makers, m_pPlaces)) {
            texts.push_back(Whole(finding));
        }
        return texts;
    }

    TestDir m_dir;
    FakeKernel m_kernel;
    SensorMakers m_makers;
    std::map<std::string, std::string> m_refusals;  // by word; none: it opens
    FakeFileState m_files;
    // No links are followed: the places are where they are written.
    const std::shared_ptr<WatchedPaths> m_pPlaces = std::make_shared<WatchedPaths>(
        WatchedPaths::Aliases{}, [](const std::string& strPath) { return strPath; });

private:
    std::map<std::string, FakeLaunchState> m_launches;
};

}  // namespace

TEST(DoctorSensorsTest, ASensorThatIsNotNeededIsNoWarning) {
    const std::vector<Finding> findings =
        doctor::OfLaunchSensors({{"ebpf", ""}, {"connector", "no right"}});

    ASSERT_EQ(2u, findings.size());
    EXPECT_EQ(FINDING_OK, findings[0].eState);
    EXPECT_EQ(FINDING_OK, findings[1].eState);
    EXPECT_EQ("not needed; no right", findings[1].strText);
}

TEST(DoctorSensorsTest, TheBestOneMissingIsAWarningAndAllMissingAFailure) {
    EXPECT_EQ(FINDING_WARNING,
              doctor::OfLaunchSensors({{"ebpf", "too old"}, {"connector", ""}})[0].eState);

    for (const Finding& finding :
         doctor::OfLaunchSensors({{"ebpf", "too old"}, {"connector", "no right"}})) {
        EXPECT_EQ(FINDING_FAILED, finding.eState);
        EXPECT_NE("", finding.strRemedy);
    }
}

TEST(DoctorSensorsTest, AFileSystemThatCannotBeWatchedWholeIsAWarningWithTheReason) {
    EXPECT_EQ(FINDING_OK, doctor::OfMark("/", "ext4", 0).eState);
    EXPECT_EQ(FINDING_FAILED, doctor::OfMark("/", "ext4", EPERM).eState);

    const Finding finding = doctor::OfMark("/", "overlay", EOPNOTSUPP);
    EXPECT_EQ(FINDING_WARNING, finding.eState);
    EXPECT_EQ(0u, finding.strText.find("overlay, cannot be watched whole: ")) << finding.strText;
}

TEST(DoctorSensorsTest, OfThreeSensorsTheOnesBeforeTheFirstThatWorksAreMissed) {
    EXPECT_THAT(
        LaunchFindings({{"best", "too old"}, {"second", ""}, {"third", "no right"}, {"last", ""}}),
        ElementsAre("warning|launches by best|too old|remove that cause; until then watch uses the "
                    "next one that works",
                    "ok|launches by second|works|", "ok|launches by third|not needed; no right|",
                    "ok|launches by last|works|"));
    EXPECT_THAT(LaunchFindings({{"only", "too old"}}),
                ElementsAre(StartsWith("failed|launches by only|too old|")));
    EXPECT_THAT(LaunchFindings({}), IsEmpty());
}

TEST(DoctorSensorsTest, AMarkThatIsRefusedIsAPrivilegeOrAKindOfFileSystem) {
    EXPECT_EQ("ok|file system /|ext4, can be watched whole|",
              Whole(doctor::OfMark("/", "ext4", 0)));
    EXPECT_EQ(
        "failed|file system /var|xfs, cannot be watched whole: Operation not permitted|run as root "
        "or with CAP_SYS_ADMIN",
        Whole(doctor::OfMark("/var", "xfs", EPERM)));
    EXPECT_EQ(
        "warning|file system /var|overlay, cannot be watched whole: Invalid cross-device link; "
        "only the watched directories that are there are reported|put the watched places on a file "
        "system such as ext4 or xfs",
        Whole(doctor::OfMark("/var", "overlay", EXDEV)));
}

TEST_F(DoctorOwnSensorsTest, EachSensorIsTriedAndThenEachFileSystemThatHoldsAWatchedPlace) {
    m_refusals["ebpf"] = "too old";
    m_kernel.markErrors["/etc"] = EOPNOTSUPP;

    EXPECT_THAT(
        Findings(),
        ElementsAre(StartsWith("warning|launches by ebpf|too old|"),
                    "ok|launches by connector-fanotify|works|", "ok|launches by connector|works|",
                    "ok|file operations|fanotify reports them|",
                    StartsWith("warning|file system /etc|overlay, cannot be watched whole"),
                    "ok|file system /|ext4, can be watched whole|",
                    "ok|file system /run|tmpfs, can be watched whole|"));
    EXPECT_EQ(0u, m_kernel.OpenFds());
}

TEST_F(DoctorOwnSensorsTest, WithoutPrivilegeEverySensorFailsWithItsReasonAndNothingIsMarked) {
    m_refusals = {{"ebpf", "no right"}, {"connector-fanotify", "none"}, {"connector", "nor here"}};
    m_files.strRefusal = "run as root";
    m_kernel.groupErrors = {EPERM};

    EXPECT_THAT(Findings(),
                ElementsAre(StartsWith("failed|launches by ebpf|no right|"),
                            StartsWith("failed|launches by connector-fanotify|none|"),
                            StartsWith("failed|launches by connector|nor here|"),
                            "failed|file operations|run as root|watch --no-files goes without"));
    EXPECT_THAT(m_kernel.Marks(), IsEmpty());
}
