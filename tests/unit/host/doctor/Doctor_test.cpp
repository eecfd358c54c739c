#include "host/doctor/Doctor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/DbFile.h"
#include "tests/support/FakeModules.h"
#include "tests/support/TestDir.h"
#include "tests/support/TimeZone.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr uint64_t ALL = (1ULL << 41) - 1;  // capabilities, a bit by each number
constexpr uint64_t MIB = 1ULL << 20;
constexpr uint64_t GIB = 1ULL << 30;

// All of a finding as one text.
std::string Whole(const Finding& finding) {
    static const char* const STATES[] = {"ok", "warning", "failed"};
    return std::string(STATES[finding.eState]) + "|" + finding.strCheck + "|" + finding.strText +
           "|" + finding.strRemedy;
}

Finding Privilege(uint64_t nCapabilities) {
    return doctor::OfPrivilege(
        [nCapabilities](int nCapability) { return (nCapabilities >> nCapability & 1) != 0; });
}

class DoctorTest : public testing::Test {
protected:
    // What Examine finds out about strCheck, with a module, a state directory and a machine of the
    // test's own.
    Finding Examined(const std::string& strCheck) {
        for (const Finding& finding : doctor::Examine(m_options, m_machine)) {
            if (finding.strCheck == strCheck) {
                return finding;
            }
        }
        ADD_FAILURE() << "no finding about " << strCheck;
        return {};
    }
    static void SetChanged(const std::string& strFile, time_t tmWhen) {
        const timespec times[2] = {{tmWhen, 0}, {tmWhen, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, strFile.c_str(), times, 0));
    }

    TestDir m_dir;
    const std::string m_strDatabase = m_dir.Database("tevchennaldb.db");
    HostOptions m_options{m_dir.Path(), FakeModule("works")};
    doctor::Machine m_machine{[](int nCapability) { return nCapability != 21; }, "5.10.0",
                              [] {
                                  return std::vector<Finding>{{FINDING_OK, "first sensor", "", ""},
                                                              {FINDING_OK, "second", "", ""}};
                              },
                              [] { return int64_t{1700000000}; }, m_dir.Path() + "/info"};
};

}  // namespace

TEST_F(DoctorTest, MissingCapabilitiesAreNamed) {
    EXPECT_EQ(FINDING_OK, Privilege(ALL).eState);

    const Finding finding = Privilege(ALL & ~(1ULL << 39) & ~(1ULL << 21));
    EXPECT_EQ(FINDING_FAILED, finding.eState);
    EXPECT_EQ("missing CAP_BPF, CAP_SYS_ADMIN: watch cannot capture", finding.strText);
    EXPECT_NE("", finding.strRemedy);
}

TEST_F(DoctorTest, OldKernelsAreRecognisedByWhatTheyLack) {
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

TEST_F(DoctorTest, TheServicesDirectoryIsNoFailureForRoot) {
    const std::string strPath = m_dir.Path() + "/service";
    ASSERT_EQ(0, mkdir(strPath.c_str(), 0700));
    if (chown(strPath.c_str(), 54321, 54321) != 0) {
        GTEST_SKIP() << "only root can make a directory of another user";
    }
    const Finding finding = doctor::OfStateDirectory(strPath);
    EXPECT_EQ(FINDING_OK, finding.eState);
    EXPECT_THAT(finding.strText, HasSubstr("of the user number 54321"));

    ASSERT_EQ(0, chmod(strPath.c_str(), 0770));
    EXPECT_EQ(FINDING_FAILED, doctor::OfStateDirectory(strPath).eState);
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

TEST_F(DoctorTest, EachCapabilityThatASensorNeedsIsAskedForByItsNumber) {
    const std::pair<int, std::string> needed[] = {{39, "CAP_BPF"},
                                                  {38, "CAP_PERFMON"},
                                                  {21, "CAP_SYS_ADMIN"},
                                                  {19, "CAP_SYS_PTRACE"},
                                                  {2, "CAP_DAC_READ_SEARCH"}};
    uint64_t nNeeded = 0;
    for (const auto& [nNumber, strName] : needed) {
        nNeeded |= 1ULL << nNumber;
        EXPECT_EQ("failed|privilege|missing " + strName +
                      ": watch cannot capture|run as root or with these capabilities; scan and "
                      "replay work without",
                  Whole(Privilege(ALL & ~(1ULL << nNumber))));
    }

    EXPECT_EQ("ok|privilege|everything that the sensors need|", Whole(Privilege(nNeeded)));
}

TEST_F(DoctorTest, AKernelIsJudgedByItsFirstTwoNumbers) {
    const std::string strOld =
        " is older than 5.17: a rename is reported as two operations that nothing ties "
        "together|use a newer kernel, as Debian 12 has it";

    EXPECT_EQ(
        "failed|kernel|Linux 4.19.0 is older than 5.8|use a newer kernel, as Debian 12 has it",
        Whole(doctor::OfKernel("4.19.0")));
    EXPECT_EQ(FINDING_FAILED, doctor::OfKernel("5.7").eState);
    EXPECT_EQ("warning|kernel|Linux 5.8.0" + strOld, Whole(doctor::OfKernel("5.8.0")));
    EXPECT_EQ("warning|kernel|Linux 5.16" + strOld, Whole(doctor::OfKernel("5.16")));
    EXPECT_EQ("ok|kernel|Linux 5.17-rc1|", Whole(doctor::OfKernel("5.17-rc1")));
    EXPECT_EQ(FINDING_OK, doctor::OfKernel("10.0").eState);
    EXPECT_EQ(FINDING_FAILED, doctor::OfKernel("v6.1").eState);
}

TEST_F(DoctorTest, AClockIsShownInLocalTimeWithWhatItIsComparedTo) {
    const TimeZone zone("EAST-2");

    EXPECT_EQ(
        "failed|clock|it shows 2020-01-01 01:59:59: verdicts expire by it, and would live too "
        "long or not at all|set the clock, or let systemd-timesyncd do it",
        Whole(doctor::OfClock(1577836799, 0)));
    EXPECT_EQ("ok|clock|2020-01-01 02:00:00|", Whole(doctor::OfClock(1577836800, 1577836920)));
    EXPECT_EQ(
        "warning|clock|it shows 2020-01-01 02:00:00, but a database was written at 2020-01-01 "
        "02:02:01: it has been set back, and verdicts of that time live longer|look whether the "
        "clock is right now",
        Whole(doctor::OfClock(1577836800, 1577836921)));
}

TEST_F(DoctorTest, SpaceIsJudgedByBytesAndByFiles) {
    const std::string strRemedy = "|make room there, or choose another --state-dir";

    EXPECT_EQ("failed|free space|64.0 MiB free below /srv: messages would be lost" + strRemedy,
              Whole(doctor::OfSpace("/srv", 64 * MIB - 1, 1000, 2000)));
    EXPECT_EQ(
        "warning|free space|64.0 MiB free below /srv: too little for a queue at its limit of "
        "512 MiB" +
            strRemedy,
        Whole(doctor::OfSpace("/srv", 64 * MIB, 1000, 2000)));
    EXPECT_EQ(
        "failed|free space|2.0 GiB free below /srv, and no room for more files: messages "
        "would be lost" +
            strRemedy,
        Whole(doctor::OfSpace("/srv", 2 * GIB, 99, 2000)));
    EXPECT_EQ("ok|free space|2.0 GiB free below /srv|",
              Whole(doctor::OfSpace("/srv", 2 * GIB, 100, 2000)));
}

TEST_F(DoctorTest, AWholeDatabaseIsReportedWithItsSize) {
    EXPECT_EQ("ok|database tevchennaldb.db|none yet, a run makes it|",
              Whole(doctor::OfDatabase(m_strDatabase)));
    EXPECT_EQ("ok|database x.db|none yet, a run makes it|",
              Whole(doctor::OfDatabase(m_dir.WriteFile("file", "") + "/x.db")));

    DbFile(m_strDatabase).Execute(CHANNEL_TABLE);

    EXPECT_EQ("ok|database tevchennaldb.db|12.0 KiB, whole|",
              Whole(doctor::OfDatabase(m_strDatabase)));
}

TEST_F(DoctorTest, ADatabaseWhoseWayCannotBeGoneIsNotTakenForMissing) {
    ASSERT_EQ(0, symlink("loop.db", m_dir.Database("loop.db").c_str()));

    EXPECT_EQ("failed|database loop.db|" + m_dir.Database("loop.db") +
                  ": Too many levels of symbolic links|run as the user who runs the host",
              Whole(doctor::OfDatabase(m_dir.Database("loop.db"))));
}

TEST_F(DoctorTest, ADatabaseThatIsBeingWrittenIsNotCalledDamaged) {
    DbFile writer(m_strDatabase);
    writer.Execute(CHANNEL_TABLE);
    writer.Execute("begin exclusive");

    EXPECT_EQ("warning|database tevchennaldb.db|" + m_strDatabase +
                  " is being written: not examined|look again",
              Whole(doctor::OfDatabase(m_strDatabase)));
}

TEST_F(DoctorTest, ADatabaseThatCannotBeReadIsNotCalledDamaged) {
    ASSERT_EQ(0, mknod(m_strDatabase.c_str(), S_IFSOCK | 0600, 0));  // nobody can open it

    EXPECT_EQ("warning|database tevchennaldb.db|" + m_strDatabase +
                  " cannot be read: unable to open database file|run as the user who runs the "
                  "host; what a killed host left is completed by the next run",
              Whole(doctor::OfDatabase(m_strDatabase)));
}

TEST_F(DoctorTest, AnErrorOfTheDiskIsNoDamageOfTheDatabase) {
    ASSERT_EQ(0, mkdir(m_strDatabase.c_str(), 0700));

    EXPECT_EQ("failed|database tevchennaldb.db|" + m_strDatabase +
                  " cannot be read: disk I/O error|look at what lies there and at its disk",
              Whole(doctor::OfDatabase(m_strDatabase)));
}

TEST_F(DoctorTest, ATornPageIsReportedInSqlitesWords) {
    {
        DbFile db(m_strDatabase);
        db.Execute("pragma page_size = 4096; create table a(x); create table b(x)");
        db.Execute("insert into a values(1), (2); pragma writable_schema = on");
        db.Execute("update sqlite_master set rootpage = 2 where name = 'b'");
    }

    EXPECT_EQ("failed|database tevchennaldb.db|" + m_strDatabase +
                  " is damaged: *** in database main ***\n2nd reference to page 2|stop the host "
                  "and move the file away; the "
                  "module makes a new one",
              Whole(doctor::OfDatabase(m_strDatabase)));
}

TEST_F(DoctorTest, AModuleIsNamedWhetherItLoadsOrNot) {
    const std::string strWorks = FakeModule("works");
    const std::string strNoModule = m_dir.WriteFile("module.so", "no library");

    EXPECT_EQ("ok|module|" + strWorks + " loads and has its functions|",
              Whole(doctor::OfModule(strWorks)));
    EXPECT_THAT(Whole(doctor::OfModule(strNoModule)),
                StartsWith("failed|module|cannot load the module " + strNoModule + ": "));
    EXPECT_EQ("name the module with --module", doctor::OfModule(strNoModule).strRemedy);
}

TEST_F(DoctorTest, PackagesAreCountedWithTheirPrograms) {
    m_dir.WriteFile("info/tool.md5sums",
                    "9e107d9d372bb6826bd81d3542a419d6  usr/bin/tool\n"
                    "e4d909c290d0fb1ca068ffaddf22cbd0  usr/bin/other\n"
                    "0cc175b9c0f1b6a831c399e269772661  usr/lib/third\n");
    m_dir.WriteFile("info/doc.md5sums", "");

    EXPECT_EQ("ok|packages|3 programs of 2 packages|",
              Whole(doctor::OfPackages(m_dir.Path() + "/info")));
    EXPECT_EQ("warning|packages|the package database " + m_dir.Path() +
                  "/run lists no package; programs of packages count as unknown|on a machine "
                  "without dpkg use good lists; every program is unknown without",
              Whole(doctor::OfPackages(m_dir.Path() + "/run")));
}

TEST_F(DoctorTest, ExamineLooksInTheOrderInWhichAUserMendsThings) {
    std::vector<std::string> checks;
    for (const Finding& finding : doctor::Examine(m_options, m_machine)) {
        checks.push_back(finding.strCheck);
    }

    EXPECT_THAT(checks,
                ElementsAre("privilege", "kernel", "first sensor", "second", "module",
                            "state directory", "database tevchennaldb.db",
                            "database tevcloudcacho.db", "free space", "clock", "packages"));
}

TEST_F(DoctorTest, ExamineAsksTheMachineThatItIsGiven) {
    const TimeZone zone("UTC0");
    m_dir.WriteFile("info/tool.md5sums", "9e107d9d372bb6826bd81d3542a419d6  usr/bin/tool\n");

    EXPECT_EQ("missing CAP_SYS_ADMIN: watch cannot capture", Examined("privilege").strText);
    EXPECT_THAT(Examined("kernel").strText, StartsWith("Linux 5.10.0 is older than 5.17"));
    EXPECT_EQ("2023-11-14 22:13:20", Examined("clock").strText);
    EXPECT_EQ("1 program of 1 package", Examined("packages").strText);
}

TEST_F(DoctorTest, TheClockIsComparedToTheNewerOfBothDatabases) {
    const std::string strCache = m_dir.WriteFile("data/db/tevcloudcacho.db", "");
    SetChanged(strCache, 1700000120);
    EXPECT_EQ(FINDING_OK, Examined("clock").eState);

    SetChanged(strCache, 1700000121);
    EXPECT_THAT(Examined("clock").strText, HasSubstr("but a database was written at 2"));

    SetChanged(strCache, 1000);
    SetChanged(m_dir.WriteFile("data/db/tevchennaldb.db", ""), 1700000121);
    EXPECT_EQ(FINDING_WARNING, Examined("clock").eState);
}

TEST_F(DoctorTest, SpaceIsAskedForWhereTheDatabasesWillBeMade) {
    m_options.strStateDir = m_dir.Path() + "/run/none/state";

    EXPECT_THAT(Examined("free space").strText, HasSubstr(" free below " + m_dir.Path() + "/run"));
    EXPECT_FALSE(std::filesystem::exists(m_dir.Path() + "/run/none"));
}

TEST_F(DoctorTest, WithoutANameTheModuleIsTheOneBesideTheProgram) {
    m_options.strModule.clear();

    EXPECT_THAT(Examined("module").strText, HasSubstr(ProgramFolder() + "libtevmon.so"));
}
