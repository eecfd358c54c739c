#include "host/kernel/file/FanotifySensor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "host/kernel/file/FileEvent.h"
#include "host/program/FileLook.h"
#include "tests/support/NoPrivilege.h"
#include "tests/support/TestDir.h"
#include "tests/support/kernel/FakeKernel.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

using namespace file_event_bytes;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

// What the kernel reports is tested live; this runs without any privilege, whatever its user may.
[[noreturn]] void OpenWithoutCapabilities(IFileSensor& sensor) {
    for (unsigned long nCapability = 0; prctl(PR_CAPBSET_DROP, nCapability, 0, 0, 0) == 0;) {
        ++nCapability;
    }
    OpenWithoutPrivilege(sensor);
}

class FanotifySensorTest : public testing::Test {
protected:
    FanotifySensorTest() {
        // All watched places are below a directory of the test's own, a file system by itself.
        std::filesystem::create_directories(m_strRoot + "/etc/cron.d");
        m_pPlaces = std::make_shared<WatchedPaths>(
            WatchedPaths::Aliases{},
            [this](const std::string& strPath) { return m_strRoot + strPath; });
        SetMounts("1 0 8:1 / " + m_strRoot + " rw - ext4 x rw\n");
    }
    void SetMounts(const std::string& strTable) {
        m_kernel.paths["/proc/self/mountinfo"] = m_dir.WriteFile("mountinfo", strTable);
    }
    std::unique_ptr<IFileSensor> Made(bool bAll = false) { return MakeFileSensor(m_pPlaces, bAll); }
    IFileSensor& Opened(bool bAll = false) {
        m_pSensor = Made(bAll);
        std::string strError;
        EXPECT_TRUE(m_pSensor->Open(strError)) << strError;
        return *m_pSensor;
    }
    std::string Refused() {
        std::string strError;
        EXPECT_FALSE(Made()->Open(strError));
        EXPECT_EQ(0u, m_kernel.OpenFds());
        return strError;
    }
    std::string Read(size_t nSize = 4096) {
        std::string strBytes(nSize, '\0');
        strBytes.resize(m_pSensor->Read(strBytes.data(), nSize));
        return strBytes;
    }
    // The identity that the kernel writes into handles of the file system of m_strRoot.
    std::string Fsid() const {
        struct statfs status = {};
        EXPECT_EQ(0, statfs(m_strRoot.c_str(), &status));
        return std::string(reinterpret_cast<const char*>(&status.f_fsid), sizeof(status.f_fsid));
    }
    // A handle that the kernel opens as strPath.
    std::string HandleOf(uint32_t nInode, const std::string& strPath) {
        const std::string strHandle = Handle(nInode, Fsid());
        m_kernel.handles[strHandle.substr(8)] = strPath;
        return strHandle;
    }
    std::vector<FakeKernel::Mark> MarksSince(size_t nBefore) {
        std::vector<FakeKernel::Mark> marks = m_kernel.Marks();
        marks.erase(marks.begin(), marks.begin() + static_cast<std::ptrdiff_t>(nBefore));
        return marks;
    }

    FakeKernel m_kernel;
    TestDir m_dir;
    const std::string m_strRoot = m_dir.Path() + "/root";
    std::shared_ptr<WatchedPaths> m_pPlaces;
    std::unique_ptr<IFileSensor> m_pSensor;
};

constexpr unsigned WHOLE = FAN_MARK_ADD | FAN_MARK_FILESYSTEM;

auto IsMark(unsigned nFlags, uint64_t nMask, const std::string& strPath) {
    return testing::AllOf(Field("flags", &FakeKernel::Mark::nFlags, nFlags),
                          Field("mask", &FakeKernel::Mark::nMask, nMask),
                          Field("path", &FakeKernel::Mark::strPath, strPath));
}

}  // namespace

// A mark of a whole file system needs privilege, also where the group itself does not: the sensor
// then says that it can watch places only, or that it is refused.
TEST(FanotifySensorDeathTest, WithoutPrivilegeItSaysWhatIsMissing) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto pSensor = MakeFileSensor(std::make_shared<WatchedPaths>(), false);
    EXPECT_EXIT(OpenWithoutCapabilities(*pSensor),
                testing::ExitedWithCode(REFUSED_WITHOUT_PRIVILEGE), "run as root");
}

TEST_F(FanotifySensorTest, TheGroupOnlyReportsAndNeverAsksForLeave) {
    (void)Opened();

    const std::vector<unsigned> flags = m_kernel.GroupFlags();
    ASSERT_EQ(1u, flags.size());
    EXPECT_EQ(0u, flags[0] & (FAN_CLASS_CONTENT | FAN_CLASS_PRE_CONTENT));
    EXPECT_EQ(0u, flags[0] & FAN_UNLIMITED_QUEUE);
    EXPECT_NE(0u, flags[0] & FAN_NONBLOCK);
    EXPECT_NE(0u, flags[0] & FAN_REPORT_TARGET_FID);
    for (const FakeKernel::Mark& mark : m_kernel.Marks()) {
        EXPECT_EQ(0u, mark.nMask & (FAN_OPEN_PERM | FAN_ACCESS_PERM | FAN_OPEN_EXEC_PERM));
    }
}

TEST_F(FanotifySensorTest,
       TheFileSystemOfTheWatchedPlacesIsMarkedWholeAndAutostartLocationsForWrites) {
    (void)Opened();

    EXPECT_THAT(m_kernel.Marks(), Contains(IsMark(WHOLE,
                                                  FAN_CREATE | FAN_DELETE | FAN_CLOSE_WRITE |
                                                      FAN_OPEN_EXEC | FAN_ONDIR | FAN_RENAME,
                                                  m_strRoot)));
    EXPECT_THAT(m_kernel.Marks(), Contains(IsMark(FAN_MARK_ADD | FAN_MARK_ONLYDIR,
                                                  FAN_MODIFY | FAN_EVENT_ON_CHILD | FAN_ONDIR,
                                                  m_strRoot + "/etc/cron.d")));
    EXPECT_TRUE(m_pSensor->ReportsStarts(8U << 20 | 1));
    EXPECT_FALSE(m_pSensor->ReportsStarts(8U << 20 | 2));
    EXPECT_THAT(m_pSensor->TakeNotices(), IsEmpty());
}

TEST_F(FanotifySensorTest, TheMarkThatTriesThePrivilegeIsTakenOffAgain) {
    (void)Opened();

    const std::vector<FakeKernel::Mark> marks = m_kernel.Marks();
    ASSERT_LE(2u, marks.size());
    EXPECT_THAT(marks[0], IsMark(WHOLE, FAN_OPEN_EXEC, "/"));
    EXPECT_THAT(marks[1], IsMark(FAN_MARK_REMOVE | FAN_MARK_FILESYSTEM, FAN_OPEN_EXEC, "/"));
}

TEST_F(FanotifySensorTest, OnAKernelWithoutRenamesBothHalvesOfOneAreAskedForAndThatIsSaidOnce) {
    m_kernel.groupErrors = {EINVAL};
    (void)Opened();

    const std::vector<unsigned> flags = m_kernel.GroupFlags();
    ASSERT_EQ(2u, flags.size());
    EXPECT_EQ(flags[0] & ~static_cast<unsigned>(FAN_REPORT_TARGET_FID), flags[1]);
    EXPECT_THAT(m_kernel.Marks(),
                Contains(IsMark(WHOLE,
                                FAN_CREATE | FAN_DELETE | FAN_CLOSE_WRITE | FAN_OPEN_EXEC |
                                    FAN_ONDIR | FAN_MOVED_FROM | FAN_MOVED_TO,
                                m_strRoot)));
    EXPECT_THAT(m_pSensor->TakeNotices(), ElementsAre(HasSubstr("older than Linux 5.17")));
    EXPECT_THAT(m_pSensor->TakeNotices(), IsEmpty());
}

TEST_F(FanotifySensorTest, ARefusedGroupIsReportedWithItsReasonAndRemedy) {
    m_kernel.groupErrors = {EPERM};
    EXPECT_THAT(Refused(), HasSubstr("run as root, or with the capabilities CAP_SYS_ADMIN"));
    m_kernel.groupErrors = {EPERM, ENOSYS};
    EXPECT_THAT(Refused(), HasSubstr("it needs Linux 5.9 or newer with CONFIG_FANOTIFY"));
    m_kernel.groupErrors = {EPERM, ENOSYS, EINVAL, EINVAL};
    EXPECT_THAT(Refused(), HasSubstr("Invalid argument; it needs Linux 5.9"));
}

TEST_F(FanotifySensorTest, AGroupThatMayNotWatchWholeFileSystemsIsRefused) {
    m_kernel.nWholeError = EPERM;

    EXPECT_THAT(Refused(), HasSubstr("run as root"));
}

TEST_F(FanotifySensorTest, AFileSystemThatCannotBeWatchedWholeIsNoLackOfPrivilege) {
    m_kernel.nWholeError = EXDEV;

    (void)Opened();

    EXPECT_THAT(m_pSensor->TakeNotices(), Contains(HasSubstr("cannot be watched whole")));
    EXPECT_FALSE(m_pSensor->ReportsStarts(8U << 20 | 1));
}

TEST_F(FanotifySensorTest, WithoutAFileSystemThatHoldsAPlaceThereIsNothingToWatch) {
    SetMounts("not a table\n");

    EXPECT_THAT(Refused(), HasSubstr("no file system that holds a watched place"));
}

TEST_F(FanotifySensorTest, EveryLocalFileSystemIsMarkedWhenThatIsWanted) {
    SetMounts("1 0 8:1 / " + m_strRoot + " rw - ext4 x rw\n2 1 8:2 / /srv rw - xfs x rw\n" +
              "3 1 0:5 / /proc rw - proc x rw\n");

    EXPECT_FALSE(Opened().ReportsStarts(8U << 20 | 2));
    EXPECT_TRUE(Opened(true).ReportsStarts(8U << 20 | 2));
    EXPECT_FALSE(m_pSensor->ReportsStarts(5));
}

TEST_F(FanotifySensorTest, EventsAreReadByteForByteUntilNoneWaits) {
    (void)Opened();
    const std::string strFirst = At(FAN_CREATE, 5, 1, "job") + Event(FAN_Q_OVERFLOW, 0, "");
    const std::string strSecond = At(FAN_DELETE, 5, 1, "job");
    m_kernel.Tell({}, {{strFirst}, {strSecond}});

    EXPECT_EQ(strFirst, Read());
    EXPECT_EQ(strSecond, Read());
    EXPECT_EQ("", Read());
}

TEST_F(FanotifySensorTest, AReadThatASignalInterruptsIsMadeAgainAndAnErrorIsNoEvent) {
    (void)Opened();
    m_kernel.Tell({}, {{"", EINTR}, {"", EINTR}, {"event"}, {"", EINVAL}, {"next"}});

    EXPECT_EQ("event", Read());
    EXPECT_EQ("", Read());
    EXPECT_EQ("next", Read());
}

TEST_F(FanotifySensorTest, AReadOfNothingIsNoEventWhateverErrorCameBefore) {
    (void)Opened();
    m_kernel.Tell({}, {{""}, {"next"}});

    errno = EINTR;
    EXPECT_EQ("", Read());
    EXPECT_EQ("next", Read());
}

TEST_F(FanotifySensorTest, OnceDetachedNoMarkIsLeftAndWhatWaitsCanBeRead) {
    (void)Opened();
    const size_t nBefore = m_kernel.Marks().size();
    m_kernel.Tell({}, {{"waits"}});

    m_pSensor->Detach();

    EXPECT_THAT(MarksSince(nBefore),
                ElementsAre(IsMark(FAN_MARK_FLUSH, 0, "/"),
                            IsMark(FAN_MARK_FLUSH | FAN_MARK_FILESYSTEM, 0, "/")));
    EXPECT_EQ("waits", Read());
}

TEST_F(FanotifySensorTest, FileSystemsAreLookedAtAnewWhenTheTableOfMountsHasChanged) {
    (void)Opened(true);
    SetMounts("1 0 8:1 / " + m_strRoot + " rw - ext4 x rw\n2 1 8:2 / /srv rw - xfs x rw\n");
    EXPECT_EQ(NO_MOUNTS, m_pSensor->Tend());
    EXPECT_FALSE(m_pSensor->ReportsStarts(8U << 20 | 2));

    m_kernel.ChangeMounts();
    EXPECT_EQ(OTHER_MOUNTS, m_pSensor->Tend());
    EXPECT_TRUE(m_pSensor->ReportsStarts(8U << 20 | 2));
    EXPECT_EQ(NO_MOUNTS, m_pSensor->Tend());
}

TEST_F(FanotifySensorTest, ADirectoryThatAppearsInAPlaceIsMarkedAndALinkIsNot) {
    (void)Opened();
    const std::string strBelow = m_strRoot + "/etc/cron.d/below";
    std::filesystem::create_directories(strBelow);
    std::filesystem::create_directory_symlink("/etc", m_strRoot + "/etc/cron.d/link");
    const size_t nBefore = m_kernel.Marks().size();

    m_pSensor->OnDirectory(strBelow);
    m_pSensor->OnDirectory(m_strRoot + "/etc/cron.d/link");
    m_pSensor->OnDirectory(m_strRoot + "/etc/cron.d/gone");

    EXPECT_THAT(MarksSince(nBefore),
                ElementsAre(IsMark(FAN_MARK_ADD | FAN_MARK_ONLYDIR,
                                   FAN_MODIFY | FAN_EVENT_ON_CHILD | FAN_ONDIR, strBelow)));
}

TEST_F(FanotifySensorTest, AnIgnoredDirectoryStillReportsItsStarts) {
    (void)Opened();
    const size_t nBefore = m_kernel.Marks().size();

    m_pSensor->Ignore("/state");

    const std::vector<FakeKernel::Mark> marks = MarksSince(nBefore);
    ASSERT_EQ(1u, marks.size());
    EXPECT_EQ("/state", marks[0].strPath);
    EXPECT_EQ(unsigned{FAN_MARK_ADD | FAN_MARK_IGNORE_SURV}, marks[0].nFlags);
    EXPECT_EQ(0u, marks[0].nMask & FAN_OPEN_EXEC);
    EXPECT_NE(0u, marks[0].nMask & FAN_EVENT_ON_CHILD);
    EXPECT_NE(0u, marks[0].nMask & FAN_CREATE);
}

TEST_F(FanotifySensorTest, WhereTheNewerWayToIgnoreIsUnknownTheOlderOneIsTaken) {
    (void)Opened();
    const size_t nBefore = m_kernel.Marks().size();
    m_kernel.nIgnoreError = EINVAL;

    m_pSensor->Ignore("/state");

    const std::vector<FakeKernel::Mark> marks = MarksSince(nBefore);
    ASSERT_EQ(2u, marks.size());
    EXPECT_EQ(unsigned{FAN_MARK_ADD | FAN_MARK_IGNORED_MASK | FAN_MARK_IGNORED_SURV_MODIFY},
              marks[1].nFlags);
    EXPECT_EQ(marks[0].nMask, marks[1].nMask);
    EXPECT_EQ("/state", marks[1].strPath);
}

TEST_F(FanotifySensorTest, AHandleLeadsToWhereItsDirectoryIsNow) {
    (void)Opened();
    const std::string strFrom = m_strRoot + "/etc/from";
    std::filesystem::create_directories(strFrom);
    const std::string strHandle = HandleOf(7, strFrom);

    EXPECT_EQ(strFrom, m_pSensor->PathOf(strHandle));
    EXPECT_EQ("ext4", m_pSensor->FsTypeOf(strHandle, ""));
}

TEST_F(FanotifySensorTest, AHandleThatTheKernelDoesNotKnowHasNoPath) {
    (void)Opened();
    const std::string strElsewhere = Handle(7, "no-mount");
    m_kernel.handles[strElsewhere.substr(8)] = m_strRoot;

    EXPECT_EQ("", m_pSensor->PathOf(Handle(8, Fsid())));
    EXPECT_EQ("", m_pSensor->PathOf(strElsewhere));  // of a file system that is mounted nowhere
    EXPECT_EQ("", m_pSensor->FsTypeOf(strElsewhere, ""));
}

TEST_F(FanotifySensorTest, AHandleOfADirectoryThatWasRemovedHasNoPath) {
    (void)Opened();
    const std::string strGone = m_strRoot + "/etc/gone";
    std::filesystem::create_directories(strGone);
    const int nFd = open(strGone.c_str(), O_PATH | O_CLOEXEC);
    ASSERT_TRUE(std::filesystem::remove(strGone));

    EXPECT_EQ("", m_pSensor->PathOf(HandleOf(7, "/proc/self/fd/" + std::to_string(nFd))));

    (void)close(nFd);
}

TEST_F(FanotifySensorTest, HandlesOfOddSizesAreRefused) {
    (void)Opened();
    const std::string strGood =
        Fsid() + Bytes<uint32_t>(8) + Bytes<uint32_t>(1) + "eight by";  // no zero at its end
    m_kernel.handles[strGood.substr(8)] = m_strRoot;
    ASSERT_EQ(m_strRoot, m_pSensor->PathOf(strGood));

    for (size_t nSize = 0; nSize < strGood.size(); ++nSize) {
        EXPECT_EQ("", m_pSensor->PathOf(strGood.substr(0, nSize))) << nSize;
    }
    EXPECT_EQ("", m_pSensor->PathOf(strGood + std::string(200, 'x')));
    std::string strLying = strGood;
    strLying.replace(8, 4, 4, '\xff');  // bytes of the handle, as it says itself
    EXPECT_EQ("", m_pSensor->PathOf(strLying));
}

TEST_F(FanotifySensorTest, WhereNoHandleCanBeOpenedAMarkedDirectoryIsKnownByItsOwn) {
    (void)Opened();
    const std::string strPlace = m_strRoot + "/etc/cron.d";
    alignas(file_handle) char szHandle[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
    auto* const pHandle = reinterpret_cast<file_handle*>(szHandle);
    pHandle->handle_bytes = MAX_HANDLE_SZ;
    int nMount = 0;
    ASSERT_EQ(0, name_to_handle_at(AT_FDCWD, strPlace.c_str(), pHandle, &nMount, 0));

    const std::string strHandle =
        Fsid() + std::string(szHandle, sizeof(file_handle) + pHandle->handle_bytes);

    EXPECT_EQ(strPlace, m_pSensor->PathOf(strHandle));
}

TEST_F(FanotifySensorTest, ItsDescriptorIsTheGroupsAndClosedWithIt) {
    EXPECT_EQ(-1, Made()->Descriptor());
    EXPECT_LE(0, Opened().Descriptor());
    EXPECT_EQ(1u, m_kernel.OpenFds());

    m_pSensor.reset();

    EXPECT_EQ(0u, m_kernel.OpenFds());
}

TEST_F(FanotifySensorTest, TheGroupNamesTheDirectoryTheNameAndTheFileAndIsNoChilds) {
    m_kernel.groupErrors = {EINVAL};
    (void)Opened();

    constexpr unsigned BOTH =
        FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_DFID_NAME | FAN_REPORT_FID;
    EXPECT_THAT(m_kernel.GroupFlags(), ElementsAre(BOTH | FAN_REPORT_TARGET_FID, BOTH));
}

TEST_F(FanotifySensorTest, DirectoriesInAPlaceAreMarkedEachOnceAndNeitherFilesNorLinks) {
    const std::string strPlace = m_strRoot + "/etc/cron.d";
    std::filesystem::create_directories(strPlace + "/a/b");
    std::filesystem::create_directory_symlink("/etc", strPlace + "/link");
    m_dir.WriteFile("root/etc/cron.d/job", "");

    (void)Opened();

    std::vector<std::string> places;
    for (const FakeKernel::Mark& mark : m_kernel.Marks()) {
        if ((mark.nFlags & FAN_MARK_ONLYDIR) != 0 && mark.strPath.rfind(strPlace, 0) == 0) {
            places.push_back(mark.strPath);
        }
    }
    EXPECT_THAT(places,
                testing::UnorderedElementsAre(strPlace, strPlace + "/a", strPlace + "/a/b"));
}

TEST_F(FanotifySensorTest, AHandleIsOpenedByTheNextMountWhenTheFirstIsGone) {
    const std::string strFirst = m_dir.Path() + "/first";
    std::filesystem::create_directory(strFirst);
    SetMounts("1 0 8:1 / " + strFirst + " rw - ext4 x rw\n2 0 8:2 / " + m_strRoot +
              " rw - ext4 x rw\n");
    (void)Opened(true);
    const std::string strHandle = HandleOf(7, m_strRoot + "/etc");

    std::filesystem::remove(strFirst);

    EXPECT_EQ(m_strRoot + "/etc", m_pSensor->PathOf(strHandle));
}

TEST_F(FanotifySensorTest, ANoticeIsTakenOnceWhoeverGaveIt) {
    m_kernel.groupErrors = {EINVAL};
    m_kernel.nWholeError = EXDEV;
    (void)Opened();

    EXPECT_THAT(m_pSensor->TakeNotices(), ElementsAre(HasSubstr("older than Linux 5.17"),
                                                      HasSubstr("cannot be watched whole")));
    EXPECT_THAT(m_pSensor->TakeNotices(), IsEmpty());
}

TEST_F(FanotifySensorTest, TheTypeOfAFileSystemIsKnownByAPathOnIt) {
    SetMounts("1 0 8:1 / " + m_strRoot + " rw - ext4 x rw\n2 0 8:2 / " + m_strRoot +
              "/etc rw - xfs x rw\n");
    (void)Opened();

    EXPECT_EQ("xfs", m_pSensor->FsTypeOf("", m_strRoot + "/etc/cron.d/job"));
    EXPECT_EQ("ext4", m_pSensor->FsTypeOf("", m_strRoot + "/var/job"));
    EXPECT_EQ("", m_pSensor->FsTypeOf("", "/elsewhere"));
}

TEST_F(FanotifySensorTest, AFileMountedInAPlaceIsReportedUnderItsNameThere) {
    FileStatus status;
    ASSERT_TRUE(file_look::AtItself(m_strRoot, status));
    SetMounts(std::to_string(status.nMountId) + " 0 8:1 / " + m_strRoot + " rw - ext4 x rw\n" +
              std::to_string(status.nMountId + 1) + " 0 8:1 /jobs/one " + m_strRoot +
              "/etc/cron.d/two rw - ext4 x rw\n");
    (void)Opened();

    EXPECT_EQ(m_strRoot + "/etc/cron.d/two", m_pSensor->PathInPlace(m_strRoot + "/jobs/one"));
    EXPECT_EQ(m_strRoot + "/jobs/two", m_pSensor->PathInPlace(m_strRoot + "/jobs/two"));
}

TEST_F(FanotifySensorTest, AMountOverAPlaceIsDistinguishedFromOthers) {
    (void)Opened();
    SetMounts("1 0 8:1 / " + m_strRoot + " rw - ext4 x rw\n2 1 8:2 / " + m_strRoot +
              "/etc/cron.d rw - xfs x rw\n");
    m_kernel.ChangeMounts();

    EXPECT_EQ(PLACE_MOUNTS, m_pSensor->Tend());
}

TEST_F(FanotifySensorTest, AFileWithFurtherNamesIsMarkedByItselfForItsWritesAndNoLinkFollowed) {
    (void)Opened();
    const std::string strJob = m_dir.WriteFile("root/etc/cron.d/job", "x");
    const size_t nBefore = m_kernel.Marks().size();

    m_pSensor->OnLinked(strJob);

    EXPECT_THAT(MarksSince(nBefore), ElementsAre(IsMark(FAN_MARK_ADD | FAN_MARK_DONT_FOLLOW,
                                                        FAN_MODIFY | FAN_CLOSE_WRITE, strJob)));
}

TEST_F(FanotifySensorTest, AFileThatIsNotThereHasNoHandle) {
    (void)Opened();

    EXPECT_FALSE(m_pSensor->IsFile(m_strRoot + "/none", ""));
    EXPECT_FALSE(m_pSensor->IsFile(m_strRoot + "/none", Handle(7)));
}

TEST_F(FanotifySensorTest, TheKindOfAFileIsKnownByItsHandleWhateverItsNameIs) {
    (void)Opened();
    const std::string strPipe = m_strRoot + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));

    EXPECT_EQ(static_cast<uint32_t>(S_IFIFO), m_pSensor->KindOf(HandleOf(7, strPipe)));
    EXPECT_EQ(static_cast<uint32_t>(S_IFDIR), m_pSensor->KindOf(HandleOf(8, m_strRoot)));
    EXPECT_EQ(0u, m_pSensor->KindOf(HandleOf(9, m_strRoot + "/none")));
    EXPECT_EQ(0u, m_pSensor->KindOf(""));
}

TEST_F(FanotifySensorTest, MountsThatChangeAllTheTimeAreLookedAtNowAndThen) {
    (void)Opened();
    constexpr int CHANGES = 200;
    int nLooks = 0;
    for (int i = 0; i < CHANGES; ++i) {
        m_kernel.ChangeMounts();
        nLooks += m_pSensor->Tend() == NO_MOUNTS ? 0 : 1;
    }

    EXPECT_LE(1, nLooks);
    EXPECT_GT(CHANGES / 2, nLooks);
}
