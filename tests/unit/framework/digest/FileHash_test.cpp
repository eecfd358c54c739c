#include "framework/digest/FileHash.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "framework/digest/DigestObserver.h"
#include "framework/digest/DigestPair.h"
#include "tests/support/TestDir.h"

namespace {

using ReadFunction = std::function<ssize_t(int, void*, size_t)>;

ReadFunction s_readHook;  // answers read() while it is set

ssize_t RealRead(int nFd, void* pBuffer, size_t nBytes) {
    using Read = ssize_t (*)(int, void*, size_t);
    static const Read s_pRead = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "read"));
    return s_pRead(nFd, pBuffer, nBytes);
}

}  // namespace

// This program's read(), under another name because a fortified header has one in line; and what
// fortified code calls instead.
extern "C" {
__attribute__((visibility("default"))) ssize_t HookedRead(int nFd, void* pBuffer,
                                                          size_t nBytes) __asm__("read");
__attribute__((visibility("default"))) ssize_t HookedReadChk(int nFd, void* pBuffer, size_t nBytes,
                                                             size_t nRoom) __asm__("__read_chk");

ssize_t HookedRead(int nFd, void* pBuffer, size_t nBytes) {
    return s_readHook ? s_readHook(nFd, pBuffer, nBytes) : RealRead(nFd, pBuffer, nBytes);
}

ssize_t HookedReadChk(int nFd, void* pBuffer, size_t nBytes, size_t) {
    return HookedRead(nFd, pBuffer, nBytes);
}
}

namespace {

constexpr char ABC_MD5[] = "900150983cd24fb0d6963f7d28e17f72";
constexpr char ABC_SHA1[] = "a9993e364706816aba3e25717850c26c9cd0d89d";
constexpr char EMPTY_MD5[] = "d41d8cd98f00b204e9800998ecf8427e";
constexpr char EMPTY_SHA1[] = "da39a3ee5e6b4b0d3255bfef95601890afd80709";

size_t OpenDescriptors() {
    size_t nCount = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        nCount += entry.path().empty() ? 0 : 1;
    }
    return nCount;
}

class FileHashTest : public ::testing::Test {
protected:
    ~FileHashTest() override { s_readHook = nullptr; }

    void ExpectHash(const std::string& strPath, const char* pszMd5, const char* pszSha1) {
        std::string strMd5;
        std::string strSha1;
        EXPECT_TRUE(utils::getMD5AndSHA1(strPath, strMd5, strSha1)) << strPath;
        s_readHook = nullptr;
        EXPECT_EQ(pszMd5, strMd5) << strPath;
        EXPECT_EQ(pszSha1, strSha1) << strPath;
    }

    void ExpectNoHash(const std::string& strPath) {
        std::string strMd5 = "old";
        std::string strSha1 = "old";
        EXPECT_FALSE(utils::getMD5AndSHA1(strPath, strMd5, strSha1)) << strPath;
        s_readHook = nullptr;
        EXPECT_EQ("", strMd5) << strPath;
        EXPECT_EQ("", strSha1) << strPath;
    }

    std::string MakeFifo(const char* pszName) {
        const std::string strFifo = m_dir.Path() + "/" + pszName;
        EXPECT_EQ(0, mkfifo(strFifo.c_str(), 0600));
        return strFifo;
    }

    std::string MakeLink(const std::string& strTarget, const char* pszName) {
        const std::string strLink = m_dir.Path() + "/" + pszName;
        EXPECT_EQ(0, symlink(strTarget.c_str(), strLink.c_str()));
        return strLink;
    }

    const TestDir m_dir;
};

TEST_F(FileHashTest, GivesThePublishedDigests) {
    ExpectHash(m_dir.WriteFile("abc", "abc"), ABC_MD5, ABC_SHA1);
    ExpectHash(m_dir.WriteFile("million", std::string(1000000, 'a')),
               "7707d6ae4e027c70eea2a935c2296f21", "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST_F(FileHashTest, TheEmptyFileHasItsDigestsToo) {
    ExpectHash(m_dir.WriteFile("empty", ""), EMPTY_MD5, EMPTY_SHA1);
}

TEST_F(FileHashTest, SizesAroundTheBlockAreReadWhole) {
    ExpectHash(m_dir.WriteFile("block", std::string(65536, 'x')),
               "598bf98d5c865461aef3eaa8d95a0fd9", "fbadff70297af63cddef846e9006c774da8b7fb0");
    ExpectHash(m_dir.WriteFile("block+1", std::string(65537, 'x')),
               "558715a61caa9d0cd83b83b0e7f7db34", "73e6b534aafc0df0abf8bed462d387cf503cd776");
}

TEST_F(FileHashTest, LinksAreFollowedAndRelativePathsWork) {
    m_dir.WriteFile("abc", "abc");

    ExpectHash("../abc", ABC_MD5, ABC_SHA1);
    ExpectHash(MakeLink("abc", "link"), ABC_MD5, ABC_SHA1);
    ExpectHash(MakeLink("link", "link2"), ABC_MD5, ABC_SHA1);
}

TEST_F(FileHashTest, WhatIsNoRegularFileHasNoDigest) {
    const std::string strSocket = m_dir.Path() + "/s";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int nSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, bind(nSocket, reinterpret_cast<sockaddr*>(&address), sizeof(address)));

    ExpectNoHash("");
    ExpectNoHash(m_dir.Path() + "/missing");
    ExpectNoHash(m_dir.Path());
    ExpectNoHash("/");
    ExpectNoHash("/dev/null");
    ExpectNoHash("/dev/zero");
    ExpectNoHash(strSocket);
    ExpectNoHash(MakeLink("loop", "loop"));
    ExpectNoHash(MakeLink("missing", "dangling"));
    ExpectNoHash(m_dir.WriteFile("file", "abc") + "/");
    ExpectNoHash(std::string(10000, 'a'));
    close(nSocket);
}

TEST_F(FileHashTest, APathWithANulByteNamesNoFile) {
    const std::string strFile = m_dir.WriteFile("abc", "abc");

    ExpectNoHash(strFile + std::string("\0", 1));
    ExpectNoHash(strFile + std::string("\0.txt", 5));
    ExpectNoHash(std::string("\0", 1));
}

TEST_F(FileHashTest, AFifoIsNeitherWaitedForNorOpened) {
    const std::string strFifo = MakeFifo("fifo");
    const std::string strLink = MakeLink("fifo", "link");
    const int nWatch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_LE(0, inotify_add_watch(nWatch, strFifo.c_str(), IN_OPEN));
    char buffer[4096];
    close(open(strFifo.c_str(), O_PATH | O_CLOEXEC));
    const bool bLookIsOpening = RealRead(nWatch, buffer, sizeof(buffer)) > 0;

    ExpectNoHash(strFifo);
    ExpectNoHash(strLink);

    if (bLookIsOpening) {
        close(nWatch);
        GTEST_SKIP() << "not waited for; this kernel reports a mere look as an opening";
    }
    EXPECT_EQ(-1, RealRead(nWatch, buffer, sizeof(buffer)));
    EXPECT_EQ(EAGAIN, errno);
    // The watch sees an opening that does happen.
    const int nFifo = open(strFifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    EXPECT_LT(0, RealRead(nWatch, buffer, sizeof(buffer)));
    close(nFifo);
    close(nWatch);
}

TEST_F(FileHashTest, TheFileIsReadNonBlockingAndClosedInPrograms) {
    const std::string strFile = m_dir.WriteFile("abc", "abc");
    int nStatus = 0;
    int nDescriptor = 0;
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) {
        nStatus = fcntl(nFd, F_GETFL);
        nDescriptor = fcntl(nFd, F_GETFD);
        return RealRead(nFd, pBuffer, nBytes);
    };

    ExpectHash(strFile, ABC_MD5, ABC_SHA1);

    EXPECT_EQ(O_RDONLY, nStatus & O_ACCMODE);
    EXPECT_NE(0, nStatus & O_NONBLOCK);
    EXPECT_NE(0, nDescriptor & FD_CLOEXEC);
}

TEST_F(FileHashTest, AFileWithoutASizeIsReadToItsEnd) {
    const std::string strFile = m_dir.WriteFile("sizeless", "");
    int nReads = 0;
    s_readHook = [&](int, void* pBuffer, size_t) -> ssize_t {
        if (nReads == 3) {
            return 0;
        }
        *static_cast<char*>(pBuffer) = "abc"[nReads++];
        return 1;
    };

    ExpectHash(strFile, ABC_MD5, ABC_SHA1);
}

// They look regular, and reading one of them takes lines out of the kernel's log.
TEST_F(FileHashTest, TheKernelsOwnFilesAreNotRead) {
    int nReads = 0;
    for (const char* pszFile :
         {"/proc/kmsg", "/proc/sys/kernel/ostype", "/proc/self/status", "/sys/kernel/mm/ksm/run"}) {
        s_readHook = [&](int, void*, size_t) -> ssize_t {
            ++nReads;
            return 0;
        };
        ExpectNoHash(pszFile);
    }

    EXPECT_EQ(0, nReads);
}

TEST_F(FileHashTest, ALinkOfTheKernelsThatLeadsToAProgramIsFollowed) {
    std::string strMd5;
    std::string strSha1;

    EXPECT_TRUE(utils::getMD5AndSHA1("/proc/self/exe", strMd5, strSha1));

    ExpectHash(std::filesystem::read_symlink("/proc/self/exe"), strMd5.c_str(), strSha1.c_str());
}

TEST_F(FileHashTest, AFileWithoutASizeMayGive64MiBAndNotOneByteMore) {
    const std::string strFile = m_dir.WriteFile("sizeless", "");
    int64_t nLeft = 0;
    const ReadFunction zeros = [&](int, void* pBuffer, size_t nBytes) {
        const size_t nGiven = static_cast<size_t>(std::min(nLeft, static_cast<int64_t>(nBytes)));
        memset(pBuffer, 0, nGiven);
        nLeft -= static_cast<int64_t>(nGiven);
        return static_cast<ssize_t>(nGiven);
    };

    nLeft = 67108864;
    s_readHook = zeros;
    ExpectHash(strFile, "7f614da9329cd3aebf59b91aadc30bf0",
               "44fac4bedde4df04b9572ac665d3ac2c5cd00c7d");
    nLeft = 67108865;
    s_readHook = zeros;
    ExpectNoHash(strFile);
}

TEST_F(FileHashTest, ASparseFileAboveTheLimitIsNotRead) {
    const std::string strFile = m_dir.WriteFile("sparse", "");
    ASSERT_EQ(0, truncate(strFile.c_str(), 4294967297));
    int nReads = 0;
    s_readHook = [&](int, void*, size_t) -> ssize_t {
        ++nReads;
        return -1;
    };

    ExpectNoHash(strFile);

    EXPECT_EQ(0, nReads);
    // One of exactly the limit is read.
    ASSERT_EQ(0, truncate(strFile.c_str(), 4294967296));
    s_readHook = [&](int, void*, size_t) -> ssize_t {
        ++nReads;
        errno = EIO;
        return -1;
    };
    ExpectNoHash(strFile);
    EXPECT_EQ(1, nReads);
}

TEST_F(FileHashTest, AFileThatShrinksWhileItIsReadHasNoDigest) {
    const std::string strFile = m_dir.WriteFile("shrinks", std::string(200000, 'x'));
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) {
        const ssize_t nRead = RealRead(nFd, pBuffer, nBytes);
        EXPECT_EQ(0, truncate(strFile.c_str(), 100000));
        return nRead;
    };

    ExpectNoHash(strFile);
}

TEST_F(FileHashTest, AFileThatGrowsWhileItIsReadIsHashedToTheSizeSeenAtOpen) {
    const std::string strFile = m_dir.WriteFile("grows", "abc");
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) {
        EXPECT_EQ(0, truncate(strFile.c_str(), 200000));
        return RealRead(nFd, pBuffer, nBytes);
    };

    ExpectHash(strFile, ABC_MD5, ABC_SHA1);
}

TEST_F(FileHashTest, InterruptedAndShortReadsAreGoneOnWith) {
    const std::string strFile = m_dir.WriteFile("abc", "abc");
    int nCalls = 0;
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) -> ssize_t {
        if (++nCalls % 2 == 1) {
            errno = EINTR;
            return -1;
        }
        return RealRead(nFd, pBuffer, nBytes == 0 ? 0 : 1);
    };

    ExpectHash(strFile, ABC_MD5, ABC_SHA1);

    EXPECT_EQ(6, nCalls);
}

TEST_F(FileHashTest, AReadErrorHalfWayGivesNeitherDigest) {
    const std::string strFile = m_dir.WriteFile("broken", std::string(200000, 'x'));
    int nCalls = 0;
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) -> ssize_t {
        if (++nCalls == 2) {
            errno = EIO;
            return -1;
        }
        return RealRead(nFd, pBuffer, nBytes);
    };

    ExpectNoHash(strFile);

    EXPECT_EQ(2, nCalls);
}

TEST_F(FileHashTest, AFileReplacedByAFifoAfterTheLookIsStillTheOneHashed) {
    const std::string strFile = m_dir.WriteFile("abc", "abc");
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) {
        EXPECT_EQ(0, unlink(strFile.c_str()));
        EXPECT_EQ(0, mkfifo(strFile.c_str(), 0600));
        return RealRead(nFd, pBuffer, nBytes);
    };

    ExpectHash(strFile, ABC_MD5, ABC_SHA1);
}

TEST_F(FileHashTest, TheAccessTimeStaysAsItWas) {
    const std::string strFile = m_dir.WriteFile("abc", "abc");
    const timespec times[2] = {{1000, 0}, {2000, 0}};  // an older access: relatime would renew it
    ASSERT_EQ(0, utimensat(AT_FDCWD, strFile.c_str(), times, 0));

    ExpectHash(strFile, ABC_MD5, ABC_SHA1);

    struct stat status = {};
    ASSERT_EQ(0, stat(strFile.c_str(), &status));
    EXPECT_EQ(1000, status.st_atim.tv_sec);
}

TEST_F(FileHashTest, NoDescriptorIsLeftOpen) {
    const std::string strFile = m_dir.WriteFile("abc", "abc");
    const std::string strFifo = MakeFifo("fifo");
    const size_t nBefore = OpenDescriptors();

    ExpectHash(strFile, ABC_MD5, ABC_SHA1);
    ExpectNoHash(strFifo);
    ExpectNoHash(m_dir.Path());
    s_readHook = [](int, void*, size_t) -> ssize_t { return 0; };
    ExpectNoHash(strFile);

    EXPECT_EQ(nBefore, OpenDescriptors());
}

TEST_F(FileHashTest, WithoutAFreeDescriptorThereIsNoDigest) {
    const std::string strFile = m_dir.WriteFile("abc", "abc");
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const rlimit few = {std::min<rlim_t>(limit.rlim_cur, 256), limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    const auto take = [] { return open("/dev/null", O_RDONLY | O_CLOEXEC); };
    std::vector<int> taken;
    for (int nFd = take(); nFd >= 0; nFd = take()) {
        taken.push_back(nFd);
    }
    ASSERT_FALSE(taken.empty());

    std::string strMd5 = "old";
    std::string strSha1 = "old";
    const bool bNone = utils::getMD5AndSHA1(strFile, strMd5, strSha1);
    close(taken.back());  // one is enough to look at the file, not to read it
    taken.pop_back();
    const bool bOne = utils::getMD5AndSHA1(strFile, strMd5, strSha1);
    for (const int nFd : taken) {
        close(nFd);
    }
    setrlimit(RLIMIT_NOFILE, &limit);

    EXPECT_FALSE(bNone);
    EXPECT_FALSE(bOne);
    EXPECT_EQ("", strMd5 + strSha1);
    ExpectHash(strFile, ABC_MD5, ABC_SHA1);
}

// Runs call as a user who owns nothing here; its result, or -1 when the system has no such user.
int AsNobody(const std::function<bool()>& call) {
    const pid_t nChild = fork();
    if (nChild == 0) {
        if (geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setegid(65534) != 0 || seteuid(65534) != 0)) {
            _exit(2);
        }
        _exit(call() ? 1 : 0);
    }
    int nStatus = 0;
    waitpid(nChild, &nStatus, 0);
    const int nResult = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    return nResult == 2 ? -1 : nResult;
}

TEST_F(FileHashTest, AFileThatMayNotBeReadHasNoDigest) {
    ASSERT_EQ(0, chmod(m_dir.Path().c_str(), 0711));
    const std::string strFile = m_dir.WriteFile("secret", "abc", 0);
    std::string strMd5 = "old";
    std::string strSha1 = "old";

    const int nResult = AsNobody([&] {
        return !utils::getMD5AndSHA1(strFile, strMd5, strSha1) && strMd5.empty() && strSha1.empty();
    });

    if (nResult == -1) {
        GTEST_SKIP() << "this root may read everything and may not become another user";
    }
    EXPECT_EQ(1, nResult);
}

TEST_F(FileHashTest, AnotherUsersReadableFileIsHashed) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become a user who does not own the file";
    }
    ASSERT_EQ(0, chmod(m_dir.Path().c_str(), 0711));
    const std::string strFile = m_dir.WriteFile("abc", "abc", 0644);

    const int nResult = AsNobody([&] {
        std::string strMd5;
        std::string strSha1;
        return utils::getMD5AndSHA1(strFile, strMd5, strSha1) && strMd5 == ABC_MD5 &&
               strSha1 == ABC_SHA1;
    });

    if (nResult == -1) {
        GTEST_SKIP() << "this root may not become another user";
    }
    EXPECT_EQ(1, nResult);
}

TEST_F(FileHashTest, AThreadHashesAlsoAfterTheProcessesFirstThreadHasEnded) {
    const std::string strAbc = m_dir.WriteFile("abc", "abc");
    const auto work = [&] {
        (void)alarm(100);
        std::thread([&] {
            std::string strStat;
            while (strStat.find(") Z ") == std::string::npos) {
                std::ifstream stat("/proc/self/stat");
                std::getline(stat, strStat);
            }
            std::string strMd5;
            std::string strSha1;
            const bool bHashed = utils::getMD5AndSHA1(strAbc, strMd5, strSha1);
            _exit(bHashed && strMd5 == ABC_MD5 && strSha1 == ABC_SHA1 ? 0 : 1);
        }).detach();
        // As pthread_exit ends it, without the unwinding that a test framework would catch.
        (void)syscall(SYS_exit, 0);
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

TEST_F(FileHashTest, SeveralThreadsHashAtOnce) {
    const std::string strAbc = m_dir.WriteFile("abc", "abc");
    std::atomic<int> nRight{0};
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 100; ++n) {
                std::string strMd5;
                std::string strSha1;
                utils::getMD5AndSHA1(strAbc, strMd5, strSha1);
                nRight += strMd5 == ABC_MD5 && strSha1 == ABC_SHA1 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(400, nRight);
}

// OpenSSL's memory, which a test can take away.
bool s_bNoMemory = false;

void* Allocate(size_t nBytes, const char*, int) {
    return s_bNoMemory ? nullptr : malloc(nBytes);
}
void* Reallocate(void* pOld, size_t nBytes, const char*, int) {
    return s_bNoMemory ? nullptr : realloc(pOld, nBytes);
}
void Free(void* pMemory, const char*, int) {
    free(pMemory);
}

class StatusObserver : public IDigestObserver {
public:
    void OnDigest(const std::string&, const struct stat& status, const std::string&,
                  const std::string&) noexcept override {
        nInode = status.st_ino;
        nLinks = status.st_nlink;
    }

    ino_t nInode = 0;
    nlink_t nLinks = 77;
};

TEST_F(FileHashTest, TheObservedStatusIsThatOfTheFileThatWasReadAfterReading) {
    const std::string strAbc = m_dir.WriteFile("abc", "abc");
    const std::string strOther = m_dir.WriteFile("other", "xyz");
    struct stat before = {};
    ASSERT_EQ(0, stat(strAbc.c_str(), &before));
    StatusObserver observer;
    SetDigestObserver(&observer);
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) {
        (void)rename(strOther.c_str(), strAbc.c_str());
        return RealRead(nFd, pBuffer, nBytes);
    };

    ExpectHash(strAbc, ABC_MD5, ABC_SHA1);
    SetDigestObserver(nullptr);

    EXPECT_EQ(before.st_ino, observer.nInode);
    EXPECT_EQ(0u, observer.nLinks);
}

TEST_F(FileHashTest, AnObserverThatGoesWhileAFileIsReadIsNotCalled) {
    const std::string strAbc = m_dir.WriteFile("abc", "abc");
    StatusObserver observer;
    SetDigestObserver(&observer);
    s_readHook = [&](int nFd, void* pBuffer, size_t nBytes) {
        SetDigestObserver(nullptr);
        return RealRead(nFd, pBuffer, nBytes);
    };

    ExpectHash(strAbc, ABC_MD5, ABC_SHA1);

    EXPECT_EQ(77u, observer.nLinks);
}

TEST_F(FileHashTest, AFirstCallWithoutMemoryDoesNotKeepLaterOnesFromHashing) {
    const std::string strAbc = m_dir.WriteFile("abc", "abc");
    const auto work = [&] {
        // Only a process in which OpenSSL has not worked yet lets its memory be replaced.
        EXPECT_EQ(1, CRYPTO_set_mem_functions(Allocate, Reallocate, Free));
        EXPECT_EQ(1, OPENSSL_init_crypto(0, nullptr));
        utils::SetDigestPath(utils::DIGEST_PATH_LIBRARY);  // the one that needs memory
        s_bNoMemory = true;
        ExpectNoHash(strAbc);
        s_bNoMemory = false;
        ExpectHash(strAbc, ABC_MD5, ABC_SHA1);
        _exit(HasFailure() ? 1 : 0);
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // in a fresh process

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

}  // namespace
