#include "host/kernel/launch/ConnectorSensor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

using testing::HasSubstr;

namespace {

// In a child of its own: the user is the process's.
void OpenWithoutPrivilege(bool bOpens) {
    if (getuid() == 0 && setuid(65534) != 0) {
        _exit(3);
    }
    std::string strError;
    const bool bOpen = MakeConnectorSensor(bOpens)->Open(strError);
    std::fprintf(stderr, "%s\n", strError.c_str());
    _exit(bOpen ? 0 : 42);
}

}  // namespace

TEST(ConnectorSensorDeathTest, WithoutPrivilegeItSaysWhatIsMissing) {
    for (const bool bOpens : {false, true}) {
        EXPECT_EXIT(OpenWithoutPrivilege(bOpens), testing::ExitedWithCode(42),
                    "cannot be looked at; run as root");
    }
}

TEST(ConnectorSensorTest, OneThatWasNeverOpenedHasNothingAndEndsQuietly) {
    const std::unique_ptr<ILaunchSensor> pSensor = MakeConnectorSensor(true);
    size_t nRecords = 0;

    pSensor->Drain([&nRecords](const void*, size_t) { return ++nRecords > 0; });
    pSensor->Detach();

    EXPECT_EQ(0u, nRecords);
    EXPECT_EQ(0u, pSensor->Counts().nSensed);
}

TEST(ConnectorSensorTest, ItsLimitsSayWhatEachFormCannotSee) {
    EXPECT_EQ("process connector with fanotify", MakeConnectorSensor(true)->Name());
    EXPECT_THAT(MakeConnectorSensor(true)->Limits(), HasSubstr("arguments"));
    EXPECT_EQ("process connector", MakeConnectorSensor(false)->Name());
    EXPECT_THAT(MakeConnectorSensor(false)->Limits(), HasSubstr("unresolvable"));
}
