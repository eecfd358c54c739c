#include "host/kernel/launch/FurtherLaunches.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/ElfBytes.h"
#include "tests/support/host/ExecNoticeBytes.h"
#include "tests/support/host/HeldFiles.h"
#include "tests/support/kernel/FakeKernel.h"

namespace {

constexpr uint32_t ENDED = 0x7ffffff0;  // no process has this number
constexpr int64_t SECOND = 1000000000;
const std::string NUL(1, '\0');

// Files of this file system are started, in a mount namespace that is the host's.
class FurtherLaunchesTest : public testing::Test {
protected:
    FurtherLaunchesTest() {
        FileStatus status;
        EXPECT_TRUE(file_look::AtTarget(m_dir.Path(), status));
        m_nMountId = status.nMountId;
        Mount("ext4");
        m_options.fnLook = file_look::AtTarget;
        m_options.pLinks = std::make_shared<PinDirectory>();
        m_options.fnHasLooseTimes = [](int, int64_t, int64_t) { return false; };
        std::string strError;
        EXPECT_TRUE(m_options.pLinks->Open(m_dir.Path() + "/run", strError)) << strError;
    }
    // What the directory lies on, as the table says.
    void Mount(const std::string& strType) {
        m_kernel.paths["/proc/self/mountinfo"] =
            m_dir.WriteFile("mountinfo", std::to_string(m_nMountId) + " 0 8:1 / " + m_dir.Path() +
                                             " rw - " + strType + " x rw\n");
    }
    void OpenNotices() {
        std::string strError;
        EXPECT_TRUE(m_opened.Open(strError)) << strError;
    }
    // A script that was there before; its path.
    std::string Script(const std::string& strName, const std::string& strText = ":") {
        return m_dir.WriteFile(strName, "#!" + m_strShell + "\n" + strText + "\n", 0755);
    }
    void OpenFor(uint32_t nPid, const std::string& strPath) {
        m_kernel.Tell({}, {{exec_open_bytes::Opened(static_cast<int32_t>(nPid),
                                                    open(strPath.c_str(), O_RDONLY | O_CLOEXEC))}});
        m_opened.Read(OpenedFiles::Clock::now());
    }
    // What the kernel reports when a process starts the script.
    void OpenAllFor(uint32_t nPid, const std::string& strScript) {
        OpenFor(nPid, strScript);
        OpenFor(nPid, m_strShell);
        OpenFor(nPid, m_strLoader);
    }
    static void Run(const std::string& strProgram, LaunchEvent& event) {
        FileStatus status;
        EXPECT_TRUE(file_look::AtTarget(strProgram, status)) << strProgram;
        event.nDevice = major(status.st_dev) << 20 | minor(status.st_dev);
        event.nInode = status.st_ino;
        event.nSize = static_cast<uint64_t>(status.st_size);
        event.nChanged = status.Changed();
        event.nStarted = status.Changed() + 100 * SECOND;
        event.strPath = strProgram;
    }
    LaunchEvent ScriptStart(const std::string& strName, uint32_t nPid = ENDED) {
        LaunchEvent event;
        event.nPid = nPid;
        Run(m_strShell, event);
        event.strName = strName;
        event.strInterp = m_strShell;
        event.strCommand = m_strShell + " " + strName;
        return event;
    }
    LaunchEvent LoaderStart(const std::string& strGiven, uint32_t nPid = ENDED) {
        LaunchEvent event;
        event.nPid = nPid;
        Run(m_strLoader, event);
        event.strName = m_strLoader;
        event.strCommand = m_strLoader + " " + strGiven;
        event.strArguments = m_strLoader + NUL + strGiven + NUL;
        return event;
    }
    std::vector<Launch> Of(const LaunchEvent& event, const std::string& strProgram = "") {
        if (m_pFurther == nullptr) {
            m_pFurther = std::make_unique<FurtherLaunches>(m_options, m_held);
        }
        Launch launch;
        launch.creation = {event.strPath, event.strCommand, event.nPid};
        launch.pFile = strProgram.empty() ? nullptr : HoldFile(strProgram);
        return m_pFurther->Of(event, launch, m_bNotices ? &m_opened : nullptr, m_counters);
    }
    // "path origin sure", or what it is not.
    std::string Told(const std::vector<Launch>& launches) {
        if (launches.size() != 1) {
            return std::to_string(launches.size()) + " launches";
        }
        const Launch& launch = launches[0];
        EXPECT_TRUE(launch.bScript);
        std::string strTold = launch.creation.strPath;
        if (strTold.compare(0, m_dir.Path().size(), m_dir.Path()) == 0) {
            strTold.erase(0, m_dir.Path().size());
        }
        strTold += launch.eOrigin == LAUNCH_PATH_HELD ? " held" : "";
        EXPECT_EQ(launch.eOrigin == LAUNCH_PATH_HELD, !launch.strLink.empty());
        return strTold + (launch.pFile == nullptr  ? " open"
                          : launch.pFile->IsSure() ? " sure"
                                                   : " unsure");
    }
    static std::string ContentOf(const std::vector<Launch>& launches) {
        return launches.size() == 1 && launches[0].pFile != nullptr
                   ? FileText("/proc/self/fd/" + std::to_string(launches[0].pFile->Descriptor()))
                   : "not held";
    }

    FakeKernel m_kernel;
    const TestDir m_dir;
    const std::string m_strShell = m_dir.WriteFile("bin/sh", "\177ELF shell", 0755);
    const std::string m_strLoader =
        m_dir.WriteFile("bin/ld.so", elf_bytes::Loader("ld-linux-x86-64.so.2"), 0755);
    uint32_t m_nMountId = 0;
    FurtherOptions m_options;
    bool m_bNotices = true;
    OpenedFiles m_opened;
    HeldFiles m_held;
    LaunchCounters m_counters;
    std::unique_ptr<FurtherLaunches> m_pFurther;
};

}  // namespace

TEST_F(FurtherLaunchesTest, AScriptIsHeldAsItsOwnVersion) {
    const std::string strScript = Script("a.sh");
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    const auto launches = Of(ScriptStart(strScript));
    OpenAllFor(ENDED, strScript);
    const auto again = Of(ScriptStart(strScript));

    ASSERT_EQ("/a.sh sure", Told(launches));
    ASSERT_EQ("/a.sh sure", Told(again));
    EXPECT_EQ(launches[0].pFile, again[0].pFile);
    FileStatus status;
    ASSERT_TRUE(file_look::AtTarget(strScript, status));
    EXPECT_EQ(status.st_ino, launches[0].pFile->Version().nInode);
    EXPECT_EQ(status.Changed(), launches[0].pFile->Version().nChanged);
    EXPECT_EQ(file_version::Text(launches[0].pFile->Version()), launches[0].creation.strVersion);
    EXPECT_EQ(2u, m_counters.nScripts);
    EXPECT_EQ(0u, m_counters.nScriptsUnreported + m_counters.nFresh + m_counters.nNotHeld);
}

TEST_F(FurtherLaunchesTest, AScriptChangedJustBeforeItsStartIsUnsure) {
    const std::string strScript = Script("a.sh");
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    LaunchEvent event = ScriptStart(strScript);
    event.nStarted -= 100 * SECOND;
    const auto launches = Of(event);
    EXPECT_EQ("/a.sh unsure", Told(launches));
    EXPECT_NE(0u, launches.at(0).pFile->Version().nFresh);
    EXPECT_EQ(1u, m_counters.nFresh);
}

TEST_F(FurtherLaunchesTest, AScriptOfAFileSystemThatStampsLooselyIsUnsure) {
    const std::string strScript = Script("a.sh");
    m_options.fnHasLooseTimes = [](int, int64_t, int64_t) { return true; };
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    EXPECT_EQ("/a.sh unsure", Told(Of(ScriptStart(strScript))));
}

TEST_F(FurtherLaunchesTest, AScriptWhoseStartHasNoTimeIsUnsure) {
    const std::string strScript = Script("a.sh");
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    LaunchEvent event = ScriptStart(strScript);
    event.nStarted = 0;
    EXPECT_EQ("/a.sh unsure", Told(Of(event)));
}

TEST_F(FurtherLaunchesTest, AScriptSwappedSinceItsStartIsTheOneThatWasStarted) {
    const std::string strScript = Script("a.sh", "evil");
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    ASSERT_EQ(0, rename(Script("b.sh", "good").c_str(), strScript.c_str()));
    const auto launches = Of(ScriptStart(strScript));

    // The name has gone from it, which has changed its time.
    ASSERT_EQ("/a.sh held unsure", Told(launches));
    EXPECT_EQ("#!" + m_strShell + "\nevil\n", ContentOf(launches));
    EXPECT_EQ("#!" + m_strShell + "\nevil\n", FileText(launches[0].strLink));
}

TEST_F(FurtherLaunchesTest, AScriptWhoseLinkLeadsElsewhereIsNotTheOtherOne) {
    const std::string strLink = m_dir.Path() + "/link";
    const std::string strEvil = Script("evil.sh", "evil");
    OpenNotices();
    OpenAllFor(ENDED, strEvil);
    ASSERT_EQ(0, symlink(Script("good.sh").c_str(), strLink.c_str()));
    const auto launches = Of(ScriptStart(strLink));
    ASSERT_EQ("/link held unsure", Told(launches));
    EXPECT_EQ("#!" + m_strShell + "\nevil\n", ContentOf(launches));
}

TEST_F(FurtherLaunchesTest, ANameThatLeadsToALaterScriptOfTheProcessIsNotTaken) {
    const std::string strLink = m_dir.Path() + "/link";
    const std::string strEvil = Script("evil.sh", "evil");
    const std::string strGood = Script("good.sh");
    OpenNotices();
    OpenAllFor(ENDED, strEvil);
    OpenFor(ENDED, strGood);  // with the same interpreter, reported once
    ASSERT_EQ(0, symlink(strGood.c_str(), strLink.c_str()));
    EXPECT_EQ("/link held unsure", Told(Of(ScriptStart(strLink))));
    EXPECT_EQ("/link sure", Told(Of(ScriptStart(strLink))));
}

TEST_F(FurtherLaunchesTest, AScriptThatIsGoneIsReportedByALink) {
    const std::string strScript = Script("a.sh", "evil");
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    ASSERT_EQ(0, unlink(strScript.c_str()));
    const auto launches = Of(ScriptStart(strScript));
    EXPECT_EQ("/a.sh held unsure", Told(launches));
    EXPECT_EQ("a.sh", launches.at(0).strLink.substr(launches.at(0).strLink.rfind('/') + 1));
}

TEST_F(FurtherLaunchesTest, AFailedStartBeforeIsNotTheScript) {
    const std::string strFailed = m_dir.WriteFile("failed.sh", "#!/no/such/interpreter\n", 0755);
    const std::string strScript = Script("a.sh");
    OpenNotices();
    OpenFor(ENDED, strFailed);
    OpenAllFor(ENDED, strScript);
    EXPECT_EQ("/a.sh sure", Told(Of(ScriptStart(strScript))));

    OpenFor(ENDED, strFailed);
    OpenAllFor(ENDED, strScript);
    EXPECT_EQ("0 launches", Told(Of(ScriptStart("/dev/fd/3"))));
    EXPECT_EQ(1u, m_counters.nScriptsUnreported);
}

TEST_F(FurtherLaunchesTest, AScriptThatWasNotReportedIsNotTheFailedOneBefore) {
    const std::string strFailed = Script("failed.sh");
    const std::string strScript = Script("a.sh", "evil");
    m_kernel.paths["/proc/self/mountinfo"] = m_dir.WriteFile("mountinfo", "");
    OpenNotices();  // of no file system
    Mount("ext4");
    OpenAllFor(ENDED, strFailed);
    const auto launches = Of(ScriptStart(strScript));
    ASSERT_EQ("/a.sh unsure", Told(launches));
    EXPECT_EQ("#!" + m_strShell + "\nevil\n", ContentOf(launches));
}

TEST_F(FurtherLaunchesTest, WhatWouldHaveBeenReportedIsNotTakenByItsPath) {
    const std::string strScript = Script("a.sh");
    OpenNotices();
    OpenFor(ENDED, m_dir.WriteFile("data", "data"));
    OpenFor(ENDED, m_strShell);
    EXPECT_EQ("0 launches", Told(Of(ScriptStart(strScript))));
    EXPECT_EQ(1u, m_counters.nScriptsUnreported);
}

// A start may fail after its interpreter was opened, for want of that one's own.
TEST_F(FurtherLaunchesTest, OfTwoScriptsWithTheirInterpreterEachMayBeIt) {
    const std::string strFailed = Script("good.sh");
    const std::string strScript = Script("bad.sh", "evil");
    OpenNotices();
    OpenFor(ENDED, strFailed);
    OpenFor(ENDED, m_strShell);
    OpenAllFor(ENDED, strScript);
    const auto launches = Of(ScriptStart(strScript));
    ASSERT_EQ(2u, launches.size());
    EXPECT_EQ("/good.sh unsure", Told({launches[0]}));
    EXPECT_EQ("/bad.sh unsure", Told({launches[1]}));
    EXPECT_EQ(2u, m_counters.nScripts);
    EXPECT_EQ(0u, m_counters.nScriptsUnreported);
}

TEST_F(FurtherLaunchesTest, TheFirstOfAChainIsTheScript) {
    const std::string strSecond = Script("second.sh");
    const std::string strFirst = m_dir.WriteFile("first.sh", "#!" + strSecond + "\n", 0755);
    OpenNotices();
    OpenFor(ENDED, strFirst);
    OpenAllFor(ENDED, strSecond);
    EXPECT_EQ("/first.sh unsure", Told(Of(ScriptStart(strFirst))));  // a name leads on
}

TEST_F(FurtherLaunchesTest, WithoutAReportAScriptIsHeldByItsPathAndUnsure) {
    const std::string strScript = Script("a.sh");
    OpenNotices();
    EXPECT_EQ("/a.sh unsure", Told(Of(ScriptStart(strScript))));
    m_bNotices = false;
    EXPECT_EQ("/a.sh unsure", Told(Of(ScriptStart(strScript))));
    EXPECT_EQ("0 launches", Told(Of(ScriptStart(m_dir.Path() + "/none"))));
    EXPECT_EQ(2u, m_counters.nFresh);
}

TEST_F(FurtherLaunchesTest, AScriptThatSomebodyServesIsReportedAndNotOpened) {
    const std::string strScript = Script("a.sh");
    Mount("fuse");
    m_bNotices = false;
    EXPECT_EQ("/a.sh open", Told(Of(ScriptStart(strScript))));
    EXPECT_EQ(1u, m_counters.nNotHeld);
}

TEST_F(FurtherLaunchesTest, APipeUnderTheNameIsNeitherReportedNorWaitedFor) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0755));
    OpenNotices();
    EXPECT_EQ("0 launches", Told(Of(ScriptStart(strPipe))));
    const std::string strScript = Script("a.sh");
    OpenAllFor(ENDED, strScript);
    ASSERT_EQ(0, rename(strPipe.c_str(), strScript.c_str()));
    EXPECT_EQ("/a.sh held unsure", Told(Of(ScriptStart(strScript))));
}

TEST_F(FurtherLaunchesTest, AScriptOfAnotherMountNamespaceIsKnownByItsProcess) {
    const auto nPid = static_cast<uint32_t>(getpid());
    const std::string strScript = Script("a.sh");
    OpenNotices();
    OpenAllFor(nPid, strScript);
    LaunchEvent event = ScriptStart(strScript, nPid);
    event.nMountNs = 7;
    EXPECT_EQ("/a.sh sure", Told(Of(event)));  // the host finds the same file there

    const std::string strHere = Script("run/b.sh");
    OpenAllFor(nPid, strHere);
    event.strName = "./b.sh";
    event.bPathCut = true;  // where it was started is not said
    EXPECT_EQ("/run/b.sh sure", Told(Of(event)));
    OpenAllFor(nPid, strScript);
    event.strName = "../a.sh";  // only the kernel's report knows it
    EXPECT_EQ("/a.sh unsure", Told(Of(event)));
}

TEST_F(FurtherLaunchesTest, AScriptWhoseDirectoryWasMovedIsKnownByItsProcess) {
    const auto nPid = static_cast<uint32_t>(getpid());
    const std::string strScript = Script("sub/a.sh");
    const std::string strDirectory = m_dir.Path() + "/sub";
    ASSERT_EQ(0, chdir(strDirectory.c_str()));
    OpenNotices();
    OpenAllFor(nPid, strScript);
    ASSERT_EQ(0, rename(strDirectory.c_str(), (m_dir.Path() + "/moved").c_str()));
    ASSERT_NE("", Script("sub/a.sh", "another"));
    LaunchEvent event = ScriptStart("./a.sh", nPid);
    event.strDirectory = strDirectory;
    // The name leads the host to the other one.
    EXPECT_EQ("/sub/a.sh held unsure", Told(Of(event)));

    OpenAllFor(nPid, m_dir.Path() + "/moved/a.sh");
    ASSERT_EQ(0, unlink(strScript.c_str()));
    const auto launches = Of(event);
    ASSERT_EQ("/sub/a.sh held sure", Told(launches));
    EXPECT_EQ("#!" + m_strShell + "\n:\n", FileText(launches[0].strLink));
}

TEST_F(FurtherLaunchesTest, BeyondTheBoundAScriptIsReportedByItsName) {
    const std::string strScript = Script("a.sh");
    HeldFiles full(1);
    const auto fnAny = [](const std::string& strFile, FileStatus& status) {
        return file_look::AtTarget(strFile, status) ? HeldFiles::MATCH_SURE : HeldFiles::MATCH_NONE;
    };
    const HeldFileRef pOther = full.Hold({}, m_strShell, m_strShell, fnAny);
    m_pFurther = std::make_unique<FurtherLaunches>(m_options, full);
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    EXPECT_EQ("/a.sh open", Told(Of(ScriptStart(strScript))));
    EXPECT_EQ(1u, m_counters.nNotHeld);
    OpenAllFor(ENDED, strScript);
    EXPECT_EQ("0 launches", Told(Of(ScriptStart("/dev/fd/3"))));
    m_pFurther.reset();
}

TEST_F(FurtherLaunchesTest, AScriptByADescriptorIsKnownByItsProcess) {
    const auto nPid = static_cast<uint32_t>(getpid());
    const std::string strScript = Script("a.sh");
    const UniqueFd fd(open(strScript.c_str(), O_RDONLY | O_CLOEXEC));
    OpenNotices();
    OpenAllFor(nPid, strScript);
    EXPECT_EQ("/a.sh sure", Told(Of(ScriptStart("/dev/fd/" + std::to_string(fd.Get()), nPid))));
    // When it has ended.
    OpenAllFor(ENDED, strScript);
    EXPECT_EQ("/a.sh unsure", Told(Of(ScriptStart("/dev/fd/3"))));
}

TEST_F(FurtherLaunchesTest, ALoadersProgramIsReportedAndUnsure) {
    const std::string strProgram = m_dir.WriteFile("evil", "\177ELF evil", 0755);
    const auto launches = Of(LoaderStart(strProgram), m_strLoader);
    ASSERT_EQ("/evil unsure", Told(launches));
    EXPECT_EQ("\177ELF evil", ContentOf(launches));
    EXPECT_EQ(m_strLoader + " " + strProgram, launches[0].creation.strCommand);
    EXPECT_EQ(1u, m_counters.nScripts);
    EXPECT_EQ(1u, m_counters.nFresh);
    EXPECT_EQ("0 launches", Told(Of(LoaderStart(strProgram), strProgram)));  // no loader
    EXPECT_EQ("0 launches", Told(Of(LoaderStart(strProgram))));              // not held
    EXPECT_EQ(0u, m_counters.nScriptsUnreported);
}

TEST_F(FurtherLaunchesTest, ALoadersProgramInADirectoryIsFoundWhileItRuns) {
    ASSERT_NE("", m_dir.WriteFile("run/evil", "\177ELF evil", 0755));
    LaunchEvent event = LoaderStart("./evil", static_cast<uint32_t>(getpid()));
    EXPECT_EQ("0 launches", Told(Of(event, m_strLoader)));  // it runs something else by now
    EXPECT_EQ(1u, m_counters.nScriptsUnreported);
    Run("/proc/self/exe", event);
    EXPECT_EQ("/run/evil unsure", Told(Of(event, m_strLoader)));
    event.strDirectory = m_dir.Path() + "/bin";
    event.strArguments = m_strLoader + NUL + "./sh" + NUL;
    EXPECT_EQ("/bin/sh unsure", Told(Of(event, m_strLoader)));
}

TEST_F(FurtherLaunchesTest, ALoadersProgramBehindALinkKeepsItsName) {
    ASSERT_NE("", m_dir.WriteFile("sub/evil", "\177ELF evil", 0755));
    ASSERT_EQ(0, symlink("sub", (m_dir.Path() + "/link").c_str()));
    EXPECT_EQ("/link/evil unsure", Told(Of(LoaderStart(m_dir.Path() + "/link/evil"), m_strLoader)));
}

TEST_F(FurtherLaunchesTest, ALoadersProgramOfAnotherMountNamespaceIsFoundByItsProcess) {
    const std::string strProgram = m_dir.WriteFile("evil", "\177ELF evil", 0755);
    LaunchEvent event = LoaderStart(strProgram, static_cast<uint32_t>(getpid()));
    event.nMountNs = 7;
    EXPECT_EQ("0 launches", Told(Of(event, m_strLoader)));
    Run("/proc/self/exe", event);
    m_kernel.paths["/proc/" + std::to_string(getpid()) + "/mountinfo"] =
        m_dir.Path() + "/mountinfo";
    EXPECT_EQ("/evil unsure", Told(Of(event, m_strLoader)));
}

TEST_F(FurtherLaunchesTest, WhatALoaderCannotStartIsNotItsProgram) {
    EXPECT_EQ("0 launches", Told(Of(LoaderStart(Script("a.sh")), m_strLoader)));
    EXPECT_EQ(1u, m_counters.nScriptsUnreported);  // a program may have been there before
    EXPECT_EQ("0 launches", Told(Of(LoaderStart(m_dir.Path() + "/none"), m_strLoader)));
    EXPECT_EQ("0 launches", Told(Of(LoaderStart(m_dir.Path()), m_strLoader)));
    EXPECT_EQ(3u, m_counters.nScriptsUnreported);
    EXPECT_EQ("0 launches", Told(Of(LoaderStart("--list"), m_strLoader)));
    EXPECT_EQ(3u, m_counters.nScriptsUnreported);
}

TEST_F(FurtherLaunchesTest, WhatNobodyKnowsOfALoaderIsCounted) {
    EXPECT_EQ("0 launches", Told(Of(LoaderStart("name"), m_strLoader)));
    EXPECT_EQ(1u, m_counters.nScriptsUnreported);
    LaunchEvent cut = LoaderStart("--argv0");
    EXPECT_EQ("0 launches", Told(Of(cut, m_strLoader)));
    EXPECT_EQ(1u, m_counters.nScriptsUnreported);
    cut.bArgsCut = true;
    EXPECT_EQ("0 launches", Told(Of(cut, m_strLoader)));
    cut.bArgsCut = false;
    cut.bArgsUnreadable = true;
    EXPECT_EQ("0 launches", Told(Of(cut, m_strLoader)));
    EXPECT_EQ(3u, m_counters.nScriptsUnreported);
}

TEST_F(FurtherLaunchesTest, ALoadersProgramThatSomebodyServesIsNotOpened) {
    const std::string strProgram = m_dir.WriteFile("evil", "\177ELF evil", 0755);
    Mount("fuse");
    EXPECT_EQ("0 launches", Told(Of(LoaderStart(strProgram), m_strLoader)));
    EXPECT_EQ(1u, m_counters.nScriptsUnreported);
}

TEST_F(FurtherLaunchesTest, AScriptOfALoaderHasItsProgramToo) {
    const std::string strProgram = m_dir.WriteFile("evil", "\177ELF evil", 0755);
    const std::string strScript = m_dir.WriteFile("a", "#!" + m_strLoader + " x\n", 0755);
    OpenNotices();
    OpenFor(ENDED, strScript);
    OpenFor(ENDED, m_strLoader);
    LaunchEvent event = LoaderStart(strProgram);
    event.strName = strScript;
    event.strInterp = m_strLoader;
    const auto launches = Of(event, m_strLoader);
    ASSERT_EQ(2u, launches.size());
    EXPECT_EQ(strScript, launches[0].creation.strPath);
    EXPECT_EQ(strProgram, launches[1].creation.strPath);
    EXPECT_EQ(2u, m_counters.nScripts);
}

TEST_F(FurtherLaunchesTest, WithoutLinksAScriptIsReportedByItsPath) {
    const std::string strScript = Script("a.sh");
    m_options.pLinks = nullptr;
    OpenNotices();
    OpenAllFor(ENDED, strScript);
    EXPECT_EQ("/a.sh open", Told(Of(ScriptStart(strScript))));
}
