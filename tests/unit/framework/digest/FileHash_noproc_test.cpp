// The same where /proc is not mounted: in a mount namespace of the test's own.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <linux/mount.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "framework/digest/FileHash.h"
#include "tests/support/TestDir.h"

namespace {

std::function<void()> s_accessHook;    // runs before a call of access() while it is set
std::function<void()> s_resolvedHook;  // runs after a call of realpath() while it is set

}  // namespace

// This program's realpath(), under another name because a fortified header has one in line.
extern "C" __attribute__((visibility("default"))) char* HookedRealpath(
    const char* pszPath, char* pszResolved) __asm__("realpath");

char* HookedRealpath(const char* pszPath, char* pszResolved) {
    using Function = char* (*)(const char*, char*);
    static const auto pfnNext = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "realpath"));
    char* const pszResult = pfnNext(pszPath, pszResolved);
    if (s_resolvedHook) {
        s_resolvedHook();
    }
    return pszResult;
}

extern "C" __attribute__((visibility("default"))) int access(const char* pszPath,
                                                             int nMode) noexcept {
    if (s_accessHook) {
        s_accessHook();
    }
    return faccessat(AT_FDCWD, pszPath, nMode, 0);
}

namespace {

constexpr char ABC_MD5[] = "900150983cd24fb0d6963f7d28e17f72";
constexpr char ABC_SHA1[] = "a9993e364706816aba3e25717850c26c9cd0d89d";

class FileHashNoProcTest : public ::testing::Test {
protected:
    ~FileHashNoProcTest() override {
        s_accessHook = nullptr;
        s_resolvedHook = nullptr;
    }

    const TestDir m_dir;
};

// The C library's header has macros of the names of our constants.
bool Mount(const char* pszType, const char* pszPoint, unsigned long nFlags) {
    return syscall(SYS_mount, "none", pszPoint, pszType, nFlags, nullptr) == 0;
}

// Runs call where nothing of /proc is left, in a process and a mount namespace of its own; its
// result, or -1 when the system allows no such namespace.
int WithoutProc(const std::function<bool()>& call) {
    const pid_t nChild = fork();
    if (nChild == 0) {
        const bool bOwn = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
        // /proc alone: the root of a chroot is no mount that could be made private.
        if (!bOwn || !Mount(nullptr, "/proc", MS_PRIVATE) || !Mount("tmpfs", "/proc", 0) ||
            access("/proc/self", F_OK) == 0) {
            _exit(2);
        }
        _exit(call() ? 1 : 0);
    }
    int nStatus = 0;
    waitpid(nChild, &nStatus, 0);
    const int nResult = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -2;
    return nResult == 2 ? -1 : nResult;
}

constexpr char NO_NAMESPACE[] = "no mount namespace of one's own in which /proc can be covered";

TEST_F(FileHashNoProcTest, AFileIsHashedAllTheSame) {
    const std::string strFile = m_dir.WriteFile("abc", "abc", 0644);
    const std::string strLink = m_dir.Path() + "/link";
    ASSERT_EQ(0, symlink("abc", strLink.c_str()));

    const int nResult = WithoutProc([&] {
        std::string strMd5;
        std::string strSha1;
        std::string strLinkMd5;
        return utils::getMD5AndSHA1(strFile, strMd5, strSha1) && strMd5 == ABC_MD5 &&
               strSha1 == ABC_SHA1 && utils::getMD5AndSHA1(strLink, strLinkMd5, strSha1) &&
               strLinkMd5 == ABC_MD5;
    });

    if (nResult == -1) {
        GTEST_SKIP() << NO_NAMESPACE;
    }
    EXPECT_EQ(1, nResult);
}

TEST_F(FileHashNoProcTest, WhatIsNoRegularFileHasNoDigestEither) {
    const std::string strFifo = m_dir.Path() + "/fifo";
    ASSERT_EQ(0, mkfifo(strFifo.c_str(), 0600));

    const int nResult = WithoutProc([&] {
        std::string strMd5;
        std::string strSha1;
        for (const std::string& strPath : {strFifo, m_dir.Path(), std::string("/dev/null"),
                                           std::string("/sys/kernel/mm/ksm/run")}) {
            if (utils::getMD5AndSHA1(strPath, strMd5, strSha1) || !strMd5.empty()) {
                return false;
            }
        }
        return true;
    });

    if (nResult == -1) {
        GTEST_SKIP() << NO_NAMESPACE;
    }
    EXPECT_EQ(1, nResult);
}

// The look and the opening are two steps there.
TEST_F(FileHashNoProcTest, ALinkThatTookTheFilesPlaceAfterTheLookIsNotFollowed) {
    const std::string strFile = m_dir.WriteFile("abc", "abc", 0644);
    const std::string strOther = m_dir.WriteFile("other", "another file", 0644);
    const std::string strLink = m_dir.Path() + "/link";
    ASSERT_EQ(0, symlink(strOther.c_str(), strLink.c_str()));
    const int nOpened = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_LE(0, inotify_add_watch(nOpened, strOther.c_str(), IN_OPEN));

    const int nResult = WithoutProc([&] {
        std::string strMd5;
        std::string strSha1;
        s_resolvedHook = [&] { (void)rename(strLink.c_str(), strFile.c_str()); };
        const bool bHashed = utils::getMD5AndSHA1(strFile, strMd5, strSha1);
        return std::filesystem::is_symlink(strFile) && !bHashed;
    });

    if (nResult == -1) {
        GTEST_SKIP() << NO_NAMESPACE;
    }
    EXPECT_EQ(1, nResult);
    char event[sizeof(inotify_event) + NAME_MAX + 1];
    EXPECT_EQ(-1, read(nOpened, event, sizeof(event))) << "it was opened";
    (void)close(nOpened);
}

TEST_F(FileHashNoProcTest, AFileThatWasReplacedAfterTheLookHasNoDigest) {
    const std::string strFile = m_dir.WriteFile("abc", "abc", 0644);
    const std::string strOther = m_dir.WriteFile("other", "another program", 0644);

    const int nResult = WithoutProc([&] {
        std::string strMd5 = "old";
        std::string strSha1 = "old";
        s_accessHook = [&] { (void)rename(strOther.c_str(), strFile.c_str()); };
        const bool bHashed = utils::getMD5AndSHA1(strFile, strMd5, strSha1);
        const bool bReplaced = !std::filesystem::exists(strOther);
        return bReplaced && !bHashed && strMd5.empty() && strSha1.empty();
    });

    if (nResult == -1) {
        GTEST_SKIP() << NO_NAMESPACE;
    }
    EXPECT_EQ(1, nResult);
}

}  // namespace
