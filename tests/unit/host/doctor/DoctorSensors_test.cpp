#include "host/doctor/DoctorSensors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <set>

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

TEST(DoctorSensorsTest, EveryLaunchSensorHasAFindingWithOrWithoutPrivilege) {
    std::vector<std::string> checks;
    for (const Finding& finding : doctor::OfSensors()) {
        checks.push_back(finding.strCheck);
    }

    ASSERT_LE(4u, checks.size());
    EXPECT_EQ("launches by ebpf", checks[0]);
    EXPECT_EQ("file operations", checks[3]);
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

TEST(DoctorSensorsTest, EachFileSystemIsMarkedOnceAfterTheSensorOfFileOperations) {
    const std::vector<Finding> findings = doctor::OfSensors();
    std::set<std::string> checks;

    for (size_t i = 4; i < findings.size(); ++i) {
        EXPECT_THAT(findings[i].strCheck, StartsWith("file system /"));
        EXPECT_TRUE(checks.insert(findings[i].strCheck).second) << findings[i].strCheck;
    }
}
