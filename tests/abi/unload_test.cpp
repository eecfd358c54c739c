// Loading and unloading the built library. Every test is a process of its own.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>

#include "tests/support/Event.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/TestDir.h"
#include "tests/support/Threads.h"

namespace {

// The operation table, by its order.
struct Table {
    int32_t (*pfnInit)(void*);
    void (*pfnUninit)();
    int32_t (*pfnStart)();
    int32_t (*pfnStop)();
    int32_t (*pfnGetStatus)();
    int32_t (*pfnExt6)(void*);
    void (*pfnSetOpt)(void*);
    int32_t (*pfnExt7)(void*);
};

class Library {
public:
    Library() : m_pHandle(dlopen(TEVMON_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(nullptr, m_pHandle) << dlerror();
        const auto pfnCreate =
            reinterpret_cast<Table* (*)(void*)>(dlsym(m_pHandle, "CreateObject"));
        m_pTable = pfnCreate(nullptr);
    }
    const Table* operator->() const { return m_pTable; }
    // The race detector keeps what a library registers with atexit until the process ends; there
    // the library stays.
    void Unload() {
#ifndef __SANITIZE_THREAD__
        EXPECT_EQ(0, dlclose(m_pHandle));
#endif
    }
    static constexpr bool CanUnload() {
#ifdef __SANITIZE_THREAD__
        return false;
#else
        return true;
#endif
    }

    static bool IsMapped() {
        std::ifstream maps("/proc/self/maps");
        for (std::string strLine; std::getline(maps, strLine);) {
            if (strLine.find("/libtevmon.so") != std::string::npos) {
                return true;
            }
        }
        return false;
    }

private:
    void* m_pHandle;
    Table* m_pTable = nullptr;
};

size_t ResidentKilobytes() {
    size_t nSize = 0;
    size_t nResident = 0;
    std::ifstream("/proc/self/statm") >> nSize >> nResident;
    return nResident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

// What a quick series of cycles may add to it: the allocator's own, not something per cycle.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t GROWTH_KILOBYTES = 256 * 1024;  // sanitizers keep freed memory on purpose
#else
constexpr size_t GROWTH_KILOBYTES = 4096;
#endif
#ifdef __SANITIZE_THREAD__
constexpr size_t DETECTORS_THREADS = 1;  // begins with the first thread that another makes
#else
constexpr size_t DETECTORS_THREADS = 0;
#endif

void OneLife(FakeRouter& router) {
    Library library;
    ASSERT_EQ(0, library->pfnInit(nullptr));
    library->pfnSetOpt(static_cast<IMsgRouter*>(&router));
    ASSERT_EQ(0, library->pfnStart());
    ASSERT_TRUE(router.Deliver(20002, "not json"));
    ASSERT_EQ(0, library->pfnStop());
    library->pfnUninit();
    library.Unload();
}

class UnloadTest : public testing::Test {
protected:
    UnloadTest() : m_nThreads(ThreadsById().size() + DETECTORS_THREADS) {
        (void)setenv("HOSTFRAMEWORK_LOG_LEVEL", "2", 1);  // read at the first line
    }

    const TestDir m_dir;
    FakeRouter m_router;
    const size_t m_nThreads;
};

// Without the rest of the test's process: what the parent sees is the exit code alone.
[[noreturn]] void ExitNormally() {
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

constexpr char CHANNEL_EXIT[] = "[CTevChennalMgr]: CTevChennalMgr exit.";
constexpr char CACHE_EXIT[] = "[CTevCloudCachoMgr]: CTevCloudCachoMgr exit.";

// How often each manager wrote its exit line in a process that does work and exits normally, up to
// the very end.
template <class Work>
std::map<std::string, int> ExitLinesOf(Work work) {
    int pipes[2] = {-1, -1};
    EXPECT_EQ(0, pipe2(pipes, O_CLOEXEC));
    const pid_t nChild = fork();
    if (nChild == 0) {
        (void)alarm(100);
        (void)dup2(pipes[1], STDERR_FILENO);
        work();
        ExitNormally();
    }
    (void)close(pipes[1]);
    std::map<std::string, int> lines;
    FILE* pLines = fdopen(pipes[0], "r");
    char szLine[500];
    while (fgets(szLine, sizeof(szLine), pLines) != nullptr) {
        for (const char* pszText : {CHANNEL_EXIT, CACHE_EXIT}) {
            lines[pszText] += strstr(szLine, pszText) != nullptr ? 1 : 0;
        }
    }
    (void)fclose(pLines);
    int nStatus = -1;
    EXPECT_EQ(nChild, waitpid(nChild, &nStatus, 0));
    EXPECT_EQ(0, nStatus);
    return lines;
}

}  // namespace

TEST_F(UnloadTest, AfterStopAndUnloadEachManagerHasWrittenItsExitLineTwice) {
    const std::map<std::string, int> lines = ExitLinesOf([this] {
        Library library;
        library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
        (void)library->pfnStart();
        (void)library->pfnStop();
        library->pfnUninit();
        library.Unload();
        EXPECT_NE(Library::CanUnload(), Library::IsMapped());
    });

    EXPECT_EQ((std::map<std::string, int>{{CHANNEL_EXIT, 2}, {CACHE_EXIT, 2}}), lines);
}

TEST_F(UnloadTest, WithoutAStopEachManagerWritesItsExitLineOnce) {
    const std::map<std::string, int> lines = ExitLinesOf([this] {
        Library library;
        library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
        (void)library->pfnStart();
        library.Unload();
    });

    EXPECT_EQ((std::map<std::string, int>{{CHANNEL_EXIT, 1}, {CACHE_EXIT, 1}}), lines);
}

TEST_F(UnloadTest, AfterStopAndUninitTheLibraryLeavesMemory) {
    Library library;
    ASSERT_TRUE(Library::IsMapped());
    (void)library->pfnInit(nullptr);
    library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
    (void)library->pfnStart();
    ASSERT_TRUE(
        m_router.Deliver(20002, R"({"param":[{"grup":"cloudquery","context":"cloudad"}]})"));
    ASSERT_TRUE(m_router.Deliver(20003, R"({"msg_type":"cloudqr","param":{"context":"k"}})"));
    (void)library->pfnStop();
    library->pfnUninit();

    library.Unload();

    EXPECT_NE(Library::CanUnload(), Library::IsMapped());
}

TEST_F(UnloadTest, AfterStopWithoutUninitTheLibraryLeavesMemoryToo) {
    Library library;
    (void)library->pfnStart();
    (void)library->pfnStop();

    library.Unload();

    EXPECT_NE(Library::CanUnload(), Library::IsMapped());
}

TEST_F(UnloadTest, ALibraryThatWasOnlyLoadedLeavesMemory) {
    Library library;
    EXPECT_EQ(0, library->pfnGetStatus());

    library.Unload();

    EXPECT_NE(Library::CanUnload(), Library::IsMapped());
}

TEST_F(UnloadTest, UnloadWithoutStopKeepsTheLibraryAndTheProcessEndsNormally) {
    const auto work = [this] {
        Library library;
        (void)library->pfnInit(nullptr);
        library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
        (void)library->pfnStart();
        library.Unload();
        EXPECT_TRUE(Library::IsMapped());
        EXPECT_TRUE(m_router.Deliver(20002, "still there"));
        EXPECT_EQ(2, library->pfnGetStatus());
        ExitNormally();
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

TEST_F(UnloadTest, AProcessThatExitsWithoutStopEndsNormally) {
    const auto work = [this] {
        Library library;
        library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
        (void)library->pfnStart();
        ExitNormally();
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

TEST_F(UnloadTest, AProcessThatExitsDirectlyAfterADeliveryEndsNormally) {
    const auto work = [this] {
        Library library;
        library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
        (void)library->pfnStart();
        for (int i = 0; i < 20; ++i) {
            (void)m_router.Deliver(20002,
                                   R"({"param":[{"grup":"cloudquery","context":"cloudad"}]})");
        }
        ExitNormally();
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

TEST_F(UnloadTest, AChildOfForkThatExitsEndsNormallyAndLeavesItsParentRunning) {
    const auto work = [this] {
        Library library;
        library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
        (void)library->pfnStart();
        const pid_t nChild = fork();
        if (nChild == 0) {
            (void)alarm(100);  // one that hangs ends too
            std::exit(0);
        }
        int nStatus = -1;
        EXPECT_EQ(nChild, waitpid(nChild, &nStatus, 0));
        EXPECT_EQ(0, nStatus);
        EXPECT_TRUE(m_router.Deliver(20002, "still there"));
        EXPECT_EQ(0, library->pfnStop());
        ExitNormally();
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

TEST_F(UnloadTest, TwoHundredStartsAndStopsNeitherHangNorGrow) {
    Library library;
    library->pfnSetOpt(static_cast<IMsgRouter*>(&m_router));
    for (int i = 0; i < 20; ++i) {  // what is made once is made now
        (void)library->pfnStart();
        (void)library->pfnStop();
    }
    const size_t nDescriptors = DescriptorCount();
    const size_t nResident = ResidentKilobytes();

    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(0, library->pfnStart());
        ASSERT_EQ(0, library->pfnStop());
    }

    EXPECT_TRUE(Eventually([this] { return ThreadsById().size() == m_nThreads; }));
    EXPECT_EQ(nDescriptors, DescriptorCount());
    EXPECT_LT(ResidentKilobytes(), nResident + GROWTH_KILOBYTES);
    library->pfnUninit();
    library.Unload();
    EXPECT_NE(Library::CanUnload(), Library::IsMapped());
}

TEST_F(UnloadTest, FiftyWholeLivesInOneProcessLeaveNothingBehind) {
    if (!Library::CanUnload()) {
        GTEST_SKIP() << "the race detector runs a library's atexit routines too late to unload it";
    }
    for (int i = 0; i < 5; ++i) {
        ASSERT_NO_FATAL_FAILURE(OneLife(m_router));
    }
    const size_t nDescriptors = DescriptorCount();
    const size_t nResident = ResidentKilobytes();

    for (int i = 0; i < 50; ++i) {
        ASSERT_NO_FATAL_FAILURE(OneLife(m_router));
        ASSERT_FALSE(Library::IsMapped()) << i;
    }

    EXPECT_TRUE(Eventually([this] { return ThreadsById().size() == m_nThreads; }));
    EXPECT_EQ(nDescriptors, DescriptorCount());
    EXPECT_LT(ResidentKilobytes(), nResident + GROWTH_KILOBYTES);
}
