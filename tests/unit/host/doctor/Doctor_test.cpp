#include "host/doctor/Doctor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/HostProgram.h"
#include "tests/support/TestDir.h"
#include "tests/unit/host/database/DbFile.h"

using testing::HasSubstr;

namespace {

constexpr uint64_t ALL = (1ULL << 41) - 1;
constexpr uint64_t GIB = 1ULL << 30;

class DoctorTest : public testing::Test {
protected:
    TestDir m_dir;
    const std::string m_strDatabase = m_dir.Database("tevchennaldb.db");
};

}  // namespace

TEST_F(DoctorTest, MissingCapabilitiesAreNamed) {
    EXPECT_EQ(FINDING_OK, doctor::OfPrivilege(ALL).eState);

    const Finding finding = doctor::OfPrivilege(ALL & ~(1ULL << 39) & ~(1ULL << 21));
    EXPECT_EQ(FINDING_FAILED, finding.eState);
    EXPECT_EQ("missing CAP_BPF, CAP_SYS_ADMIN: watch cannot sense", finding.strText);
    EXPECT_NE("", finding.strRemedy);
}

TEST_F(DoctorTest, OldKernelsAreToldByWhatTheyLack) {
    EXPECT_EQ(FINDING_FAILED, doctor::OfKernel("5.7.19-generic").eState);
    EXPECT_EQ(FINDING_WARNING, doctor::OfKernel("5.10.0-28-amd64").eState);
    EXPECT_EQ(FINDING_OK, doctor::OfKernel("6.1.0-13-amd64").eState);
    EXPECT_EQ(FINDING_FAILED, doctor::OfKernel("").eState);
}

TEST_F(DoctorTest, AClockBefore2020OrSetBackIsFound) {
    EXPECT_EQ(FINDING_FAILED, doctor::OfClock(1000, 0).eState);
    EXPECT_EQ(FINDING_WARNING, doctor::OfClock(1700000000, 1700003600).eState);
    EXPECT_EQ(FINDING_OK, doctor::OfClock(1700000000, 1700000060).eState);
    EXPECT_EQ(FINDING_OK, doctor::OfClock(1700000000, 0).eState);
}

TEST_F(DoctorTest, LittleRoomIsAWarningAndNoneAFailure) {
    EXPECT_EQ(FINDING_OK, doctor::OfSpace("/", GIB, 1000, 2000).eState);
    EXPECT_EQ(FINDING_WARNING, doctor::OfSpace("/", GIB - 1, 1000, 2000).eState);
    EXPECT_EQ(FINDING_FAILED, doctor::OfSpace("/", 1000, 1000, 2000).eState);
    EXPECT_EQ(FINDING_FAILED, doctor::OfSpace("/", GIB, 99, 2000).eState);
    EXPECT_EQ(FINDING_OK, doctor::OfSpace("/", GIB, 0, 0).eState);  // btrfs counts none
}

TEST_F(DoctorTest, AStateDirectoryIsLookedAtAndNotMade) {
    const std::string strPath = m_dir.Path() + "/a/state";

    EXPECT_EQ(FINDING_OK, doctor::OfStateDirectory(strPath).eState);
    EXPECT_NE(0, access((m_dir.Path() + "/a").c_str(), F_OK));

    ASSERT_EQ(0, chmod((m_dir.Path() + "/run").c_str(), 0777));
    const Finding finding = doctor::OfStateDirectory(m_dir.Path() + "/run");
    EXPECT_EQ(FINDING_FAILED, finding.eState);
    EXPECT_THAT(finding.strText, HasSubstr("chmod 700"));
}

TEST_F(DoctorTest, ADatabaseIsCheckedWhileAModuleWorksWithIt) {
    EXPECT_EQ(FINDING_OK, doctor::OfDatabase(m_strDatabase).eState);
    DbFile module(m_strDatabase);
    module.Execute("pragma journal_mode = wal");
    module.Execute(CHANNEL_TABLE);
    module.Execute("begin immediate; insert into msgchennal(detail) values('a')");

    EXPECT_EQ(FINDING_OK, doctor::OfDatabase(m_strDatabase).eState);

    EXPECT_EQ(SQLITE_OK, module.TryExecute("commit"));
}

TEST_F(DoctorTest, ADamagedDatabaseHasFailed) {
    m_dir.WriteFile("data/db/tevchennaldb.db", "no database, and longer than none at all");

    const Finding finding = doctor::OfDatabase(m_strDatabase);

    EXPECT_EQ(FINDING_FAILED, finding.eState);
    EXPECT_THAT(finding.strRemedy, HasSubstr("move the file away"));
}

TEST_F(DoctorTest, AModuleIsLoadedAndNotStarted) {
    EXPECT_EQ(FINDING_OK, doctor::OfModule(FakeModule("works")).eState);
    EXPECT_NE(0, access("calls", F_OK));

    const Finding finding = doctor::OfModule(FakeModule("lacks_function"));
    EXPECT_EQ(FINDING_FAILED, finding.eState);
    EXPECT_THAT(finding.strText, HasSubstr("DestroyObject"));
}

TEST_F(DoctorTest, APackageDatabaseThatIsMissingIsAWarning) {
    EXPECT_EQ(FINDING_WARNING, doctor::OfPackages(m_dir.Path() + "/none").eState);

    m_dir.WriteFile("info/tool.md5sums", "9e107d9d372bb6826bd81d3542a419d6  usr/bin/tool\n");
    EXPECT_EQ(FINDING_OK, doctor::OfPackages(m_dir.Path() + "/info").eState);
}
