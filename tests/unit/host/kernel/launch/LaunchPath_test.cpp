#include "host/kernel/launch/LaunchPath.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <map>

namespace {

// File systems with one device and files by path.
class LaunchPathTest : public testing::Test {
protected:
    LaunchPathTest() {
        m_event.nPid = 4711;
        m_event.nDevice = 8 << 20 | 1;
        m_event.nInode = 7;
        m_event.nMountNs = 1;
        m_event.strPath = "/usr/bin/tool";
        m_event.strName = "/bin/tool";
        Put("/usr/bin/tool", 7);
        Put("/bin/tool", 7);
    }

    void Put(const std::string& strPath, ino_t nInode, dev_t nDevice = makedev(8, 1),
             mode_t nMode = S_IFREG | 0755) {
        FileStatus status;
        status.st_ino = nInode;
        status.st_dev = nDevice;
        status.st_mode = nMode;
        m_files[strPath] = status;
    }
    void SetChanged(const std::string& strPath, time_t tmSeconds, long nNanos, off_t nSize) {
        m_files[strPath].st_ctim = {tmSeconds, nNanos};
        m_files[strPath].st_size = nSize;
    }
    FileLook Look() const {
        return [this](const std::string& strPath, FileStatus& status) {
            const auto found = m_files.find(strPath);
            if (found != m_files.end()) {
                status = found->second;
            }
            return found != m_files.end();
        };
    }
    std::string Chosen() const { return ChooseLaunchPath(m_event, Look()).strPath; }
    LaunchPathOrigin Origin() const { return ChooseLaunchPath(m_event, Look()).eOrigin; }

    LaunchEvent m_event;
    std::map<std::string, FileStatus> m_files;
};

}  // namespace

TEST_F(LaunchPathTest, TheNameAsInvokedComesFirst) {
    EXPECT_EQ("/bin/tool", Chosen());
    EXPECT_EQ(LAUNCH_PATH_INVOKED, Origin());
}

TEST_F(LaunchPathTest, ARelativeNameIsMadeAbsoluteWithTheProcessesDirectory) {
    m_event.strDirectory = "/bin";
    m_event.strName = "././/tool";
    EXPECT_EQ("/bin/tool", Chosen());
    m_event.strName = "tool";
    EXPECT_EQ("/bin/tool", Chosen());
}

TEST_F(LaunchPathTest, ANameThatNamesAnotherFileIsNotReported) {
    Put("/bin/tool", 8);
    EXPECT_EQ("/usr/bin/tool", Chosen());
    EXPECT_EQ(LAUNCH_PATH_RESOLVED, Origin());

    Put("/bin/tool", 7, makedev(8, 2));
    EXPECT_EQ("/usr/bin/tool", Chosen());
    Put("/bin/tool", 7, makedev(8, 1), S_IFDIR | 0755);
    EXPECT_EQ("/usr/bin/tool", Chosen());
}

TEST_F(LaunchPathTest, WithoutANameTheProcessItselfLeadsToTheFile) {
    m_files.clear();
    Put("/usr/bin/tool", 9);
    Put("/proc/4711/exe", 7);
    EXPECT_EQ("/proc/4711/exe", Chosen());
    EXPECT_EQ(LAUNCH_PATH_PROC, Origin());
}

TEST_F(LaunchPathTest, ANumberThatIsUsedAgainLeadsNowhere) {
    m_files.clear();
    Put("/proc/4711/exe", 8);
    EXPECT_EQ("", Chosen());
    EXPECT_EQ(LAUNCH_PATH_NONE, Origin());
}

TEST_F(LaunchPathTest, AFileSystemWhoseStatNamesOtherDevicesIsKnownByTheMount) {
    Put("/bin/tool", 7, makedev(0, 44));
    EXPECT_EQ("/usr/bin/tool", Chosen());
    m_event.nMountId = 30;
    EXPECT_EQ("/usr/bin/tool", Chosen());
    m_files["/bin/tool"].nMountId = 30;
    EXPECT_EQ("/bin/tool", Chosen());

    m_files["/bin/tool"].nMountId = 31;  // of another namespace, say
    EXPECT_EQ("/usr/bin/tool", Chosen());
    m_files["/bin/tool"].nMountDevice = 8 << 20 | 1;
    EXPECT_EQ("/bin/tool", Chosen());
}

TEST_F(LaunchPathTest, AFileOfAnotherFileSystemWithTheSameNumberIsNotTaken) {
    m_event.nDevice = 44;
    m_event.nMountId = 30;
    EXPECT_EQ("", Chosen());
    m_files["/bin/tool"].nMountId = 31;
    m_files["/bin/tool"].nMountDevice = 45;
    EXPECT_EQ("", Chosen());
}

TEST_F(LaunchPathTest, AFileThatHasChangedIsAnotherOne) {
    SetChanged("/bin/tool", 5, 9, 100);
    SetChanged("/usr/bin/tool", 5, 9, 100);
    m_event.nChanged = 5000000009;
    m_event.nSize = 100;
    EXPECT_EQ("/bin/tool", Chosen());

    SetChanged("/bin/tool", 5, 10, 100);
    EXPECT_EQ("/usr/bin/tool", Chosen());
    SetChanged("/usr/bin/tool", 5, 9, 101);
    EXPECT_EQ("", Chosen());
}

TEST_F(LaunchPathTest, WhileItRunsAChangedFileIsStillTheOneThatWasStarted) {
    SetChanged("/bin/tool", 6, 0, 100);  // renamed, or has a link more
    m_event.nChanged = 5000000009;
    m_event.nSize = 100;
    m_files.erase("/usr/bin/tool");
    EXPECT_EQ("", Chosen());
    Put("/proc/4711/exe", 7);
    SetChanged("/proc/4711/exe", 6, 0, 100);
    m_files["/proc/4711/exe"].nBorn = 5000000009;
    EXPECT_EQ("/bin/tool", Chosen());

    m_files.erase("/bin/tool");
    EXPECT_EQ("/proc/4711/exe", Chosen());
    m_files["/proc/4711/exe"].nBorn = 5000000010;  // the number was given away
    EXPECT_EQ("", Chosen());
    m_files["/proc/4711/exe"].nBorn = 0;  // a file system that keeps no births
    EXPECT_EQ("/proc/4711/exe", Chosen());
}

TEST_F(LaunchPathTest, OfTwoNamesTheOneOfAnInterpreterIsReported) {
    m_event.strName = "/bin/sh";
    m_event.strPath = "/usr/bin/dash";
    Put("/bin/sh", 7);
    Put("/usr/bin/dash", 7);
    EXPECT_EQ("/usr/bin/dash", Chosen());

    m_event.strName = "/usr/bin/python3";
    m_event.strPath = "/usr/bin/python3.11";
    Put("/usr/bin/python3", 7);
    Put("/usr/bin/python3.11", 7);
    EXPECT_EQ("/usr/bin/python3", Chosen());

    m_event.strName = "/bin/sh";
    m_event.strPath = "/usr/bin/dash";
    Put("/usr/bin/dash", 8);  // replaced since
    EXPECT_EQ("/bin/sh", Chosen());
}

TEST_F(LaunchPathTest, AScriptsInterpreterIsTheProgram) {
    m_event.strName = "/srv/a.sh";
    m_event.strInterp = "/bin/tool";
    Put("/srv/a.sh", 50);
    EXPECT_EQ("/bin/tool", Chosen());
    EXPECT_EQ("/srv/a.sh", ScriptPath(m_event, 1, Look()));
}

TEST_F(LaunchPathTest, AProcessWithItsOwnRootIsTakenByThatRoot) {
    m_event.strRoot = "/jail";
    Put("/jail/bin/tool", 7);
    EXPECT_EQ("/jail/bin/tool", Chosen());
}

TEST_F(LaunchPathTest, AScriptIsNotReportedWhereItMayBeAnotherFile) {
    m_event.strName = "/srv/a.sh";
    Put("/srv/a.sh", 50);
    EXPECT_EQ("", ScriptPath(m_event, 1, Look())) << "no script";
    m_event.strInterp = "/bin/tool";
    EXPECT_EQ("", ScriptPath(m_event, 2, Look())) << "another mount namespace";
    m_event.strRoot = "/jail";
    EXPECT_EQ("", ScriptPath(m_event, 1, Look())) << "another root";
    m_event.strRoot = "";
    m_event.strName = "/srv/gone.sh";
    EXPECT_EQ("", ScriptPath(m_event, 1, Look()));
    m_event.strName = "";
    EXPECT_EQ("", ScriptPath(m_event, 1, Look()));
}

TEST_F(LaunchPathTest, AScriptInADirectoryThatMayLeadElsewhereIsNotReported) {
    m_event.strInterp = "/bin/tool";
    m_event.strDirectory = "/srv";
    m_event.strName = "./a.sh";
    Put("/srv/a.sh", 50);
    EXPECT_EQ("/srv/a.sh", ScriptPath(m_event, 1, Look()));

    m_event.bPathCut = true;
    EXPECT_EQ("", ScriptPath(m_event, 1, Look()));
    m_event.strName = "/srv/a.sh";
    EXPECT_EQ("/srv/a.sh", ScriptPath(m_event, 1, Look()));
}

TEST_F(LaunchPathTest, ANameThatMeansAFileOfWhoeverOpensItIsNeverReported) {
    for (const char* pszName :
         {"/dev/fd/3", "/proc/self/fd/3", "/proc/thread-self/exe", "/dev/stdin"}) {
        Put(pszName, 7);
        m_event.strName = pszName;
        m_event.strInterp = "";
        EXPECT_EQ("/usr/bin/tool", Chosen()) << pszName;
        m_event.strInterp = "/bin/tool";
        EXPECT_EQ("", ScriptPath(m_event, 1, Look())) << pszName;
    }
}

TEST_F(LaunchPathTest, InASandboxWithTheSameRootTheFirstProcessesNamespaceIsTheHosts) {
    Put("/", 2);
    Put("/proc/1/root/", 2);
    Put("/proc/self/ns/mnt", 111);
    Put("/proc/1/ns/mnt", 222);

    EXPECT_EQ(222u, HostMountNs(Look()));
}

TEST_F(LaunchPathTest, BelowAnotherRootOrWithoutALookAtTheFirstProcessTheHostsOwnCounts) {
    Put("/", 2);
    Put("/proc/self/ns/mnt", 111);
    Put("/proc/1/ns/mnt", 222);
    EXPECT_EQ(111u, HostMountNs(Look()));

    Put("/proc/1/root/", 3);
    EXPECT_EQ(111u, HostMountNs(Look()));
    m_files.clear();
    EXPECT_EQ(0u, HostMountNs(Look()));
}
