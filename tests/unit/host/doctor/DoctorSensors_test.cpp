#include "host/doctor/DoctorSensors.h"

#include <gtest/gtest.h>

#include <cerrno>

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
