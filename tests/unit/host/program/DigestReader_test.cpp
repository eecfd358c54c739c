#include "host/program/DigestReader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "framework/digest/FileHash.h"
#include "tests/support/TestDir.h"
#include "tests/support/host/HeldFiles.h"

namespace {

constexpr const char* KEY_OF_ABC =
    "a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72";
constexpr const char* SHA256_OF_ABC =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class DigestReaderTest : public testing::Test {
protected:
    // Counted, and what the test puts in its way.
    ssize_t ReadCounted(int nFd, void* pBytes, size_t nBytes, off_t nOffset) {
        ++m_nReads;
        return m_fnRead ? m_fnRead(nFd, pBytes, nBytes, nOffset)
                        : pread(nFd, pBytes, nBytes, nOffset);
    }

    DigestEnd Read(const HeldFile& file) { return m_reader.Read(file, m_bytes); }

    TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("program", "abc");
    std::atomic<bool> m_bStop{false};
    std::atomic<uint64_t> m_nBytes{0};
    int m_nReads = 0;
    ReadAt m_fnRead;
    DigestReader m_reader{[this](int nFd, void* pBytes, size_t nBytes, off_t nOffset) {
                              return ReadCounted(nFd, pBytes, nBytes, nOffset);
                          },
                          m_bStop, m_nBytes};
    DigestBytes m_bytes;
};

// What changes a file that is held, and whether its content may be another one then.
struct Change {
    const char* pszName;
    void (*fnChange)(const std::string& strPath);
};

const Change TO_THE_NAME_OR_MODE[] = {
    {"removed", [](const std::string& strPath) { ASSERT_EQ(0, unlink(strPath.c_str())); }},
    {"renamed",
     [](const std::string& strPath) {
         ASSERT_EQ(0, rename(strPath.c_str(), (strPath + ".old").c_str()));
     }},
    {"linked",
     [](const std::string& strPath) {
         ASSERT_EQ(0, link(strPath.c_str(), (strPath + ".too").c_str()));
     }},
    {"mode", [](const std::string& strPath) { ASSERT_EQ(0, chmod(strPath.c_str(), 0500)); }},
    {"replaced",
     [](const std::string& strPath) {
         std::ofstream(strPath + ".new") << "xyz";
         ASSERT_EQ(0, rename((strPath + ".new").c_str(), strPath.c_str()));
     }},
};

const Change TO_THE_CONTENT[] = {
    {"written", [](const std::string& strPath) { std::ofstream(strPath) << "xyz"; }},
    {"longer", [](const std::string& strPath) { std::ofstream(strPath, std::ios::app) << "d"; }},
    {"shorter", [](const std::string& strPath) { ASSERT_EQ(0, truncate(strPath.c_str(), 2)); }},
    {"empty", [](const std::string& strPath) { ASSERT_EQ(0, truncate(strPath.c_str(), 0)); }},
    {"longer, with the old modification time",
     [](const std::string& strPath) {
         struct stat status = {};
         ASSERT_EQ(0, stat(strPath.c_str(), &status));
         std::ofstream(strPath, std::ios::app) << "d";
         const timespec times[] = {{0, UTIME_OMIT}, status.st_mtim};
         ASSERT_EQ(0, utimensat(AT_FDCWD, strPath.c_str(), times, 0));
     }},
    {"modification time",
     [](const std::string& strPath) {
         const timespec times[] = {{0, UTIME_OMIT}, {1000, 0}};
         ASSERT_EQ(0, utimensat(AT_FDCWD, strPath.c_str(), times, 0));
     }},
};

}  // namespace

TEST_F(DigestReaderTest, DigestsAreThoseOfTheContent) {
    const struct {
        std::string strContent;
        const char* pszKey;
        const char* pszSha256;
    } VECTORS[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709d41d8cd98f00b204e9800998ecf8427e",
         "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", KEY_OF_ABC, SHA256_OF_ABC},
        {std::string(1000000, 'a'),
         "34aa973cd4c4daa4f61eeb2bdbad27316534016f7707d6ae4e027c70eea2a935c2296f21",
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& vector : VECTORS) {
        const auto pFile = HoldFile(m_dir.WriteFile("vector", vector.strContent));

        ASSERT_EQ(DIGEST_DONE, Read(*pFile));

        EXPECT_EQ(vector.pszKey, m_bytes.Text().strKey);
        EXPECT_EQ(vector.pszSha256, m_bytes.Text().strSha256);
    }
    EXPECT_EQ(1000003u, m_nBytes);
}

TEST_F(DigestReaderTest, TheKeyIsTheOneByPath) {
    std::string strMd5, strSha1;
    ASSERT_TRUE(utils::getMD5AndSHA1("/proc/self/exe", strMd5, strSha1));

    ASSERT_EQ(DIGEST_DONE, Read(*HoldFile("/proc/self/exe")));

    EXPECT_EQ(strSha1 + strMd5, m_bytes.Text().strKey);
}

TEST_F(DigestReaderTest, AnotherNameOrModeIsAChangeAndTheContentIsReadAllTheSame) {
    for (const Change& change : TO_THE_NAME_OR_MODE) {
        const std::string strPath = m_dir.WriteFile(change.pszName, "abc");
        const auto pFile = HoldFile(strPath);
        change.fnChange(strPath);
        m_bytes = {};

        EXPECT_EQ(DIGEST_CHANGED, Read(*pFile)) << change.pszName;

        EXPECT_EQ(KEY_OF_ABC, m_bytes.Text().strKey) << change.pszName;
        EXPECT_EQ(SHA256_OF_ABC, m_bytes.Text().strSha256) << change.pszName;
    }
}

TEST_F(DigestReaderTest, WhatAFreshFileHeldIsNotKnown) {
    const auto pHeld = HoldFile(m_strFile);
    FileVersion version = pHeld->Version();
    version.nFresh = 1;
    const HeldFile fresh(UniqueFd(open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC)), version,
                         pHeld->Status(), m_strFile);

    EXPECT_EQ(DIGEST_CHANGED, Read(fresh));
    EXPECT_EQ(1, m_nReads);
}

TEST_F(DigestReaderTest, AFileThatLosesItsNameWhileItIsReadIsAChange) {
    const std::string strPath = m_dir.WriteFile("removed", "abc");
    const auto pFile = HoldFile(strPath);
    m_fnRead = [&strPath](int nFd, void* pBytes, size_t nBytes, off_t nOffset) {
        EXPECT_EQ(0, unlink(strPath.c_str()));
        return pread(nFd, pBytes, nBytes, nOffset);
    };

    EXPECT_EQ(DIGEST_CHANGED, Read(*pFile));
}

TEST_F(DigestReaderTest, AnotherContentIsAChange) {
    for (const Change& change : TO_THE_CONTENT) {
        const std::string strPath = m_dir.WriteFile(change.pszName, "abc");
        const auto pFile = HoldFile(strPath);
        change.fnChange(strPath);

        EXPECT_EQ(DIGEST_CHANGED, Read(*pFile)) << change.pszName;
    }
}

TEST_F(DigestReaderTest, AFileThatMayHaveChangedBeforeItWasHeldIsAChange) {
    const auto pHeld = HoldFile(m_strFile);
    const HeldFile unsure(UniqueFd(open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC)), pHeld->Version(),
                          pHeld->Status(), m_strFile, false);

    EXPECT_EQ(DIGEST_CHANGED, Read(unsure));
    EXPECT_EQ(1, m_nReads);
}

TEST_F(DigestReaderTest, AnotherContentWhileItIsReadIsAChange) {
    for (const Change& change : TO_THE_CONTENT) {
        const std::string strPath = m_dir.WriteFile(change.pszName, "abc");
        const auto pFile = HoldFile(strPath);
        m_fnRead = [&](int nFd, void* pBytes, size_t nBytes, off_t nOffset) {
            const ssize_t nRead = pread(nFd, pBytes, nBytes, nOffset);
            change.fnChange(strPath);
            return nRead;
        };

        EXPECT_EQ(DIGEST_CHANGED, Read(*pFile)) << change.pszName;
    }
}

TEST_F(DigestReaderTest, AFileThatIsCutWhileItIsReadIsAChange) {
    const std::string strPath = m_dir.WriteFile("cut", std::string(200000, 'a'));
    const auto pFile = HoldFile(strPath);
    m_fnRead = [&strPath](int nFd, void* pBytes, size_t nBytes, off_t nOffset) {
        const ssize_t nRead = pread(nFd, pBytes, nBytes, nOffset);
        EXPECT_EQ(0, truncate(strPath.c_str(), 1));
        return nRead;
    };

    EXPECT_EQ(DIGEST_CHANGED, Read(*pFile));

    EXPECT_EQ(2, m_nReads);  // the second one found the end
}

TEST_F(DigestReaderTest, AFileThatEndsBeforeItsSizeHasNoDigest) {
    m_fnRead = [](int nFd, void* pBytes, size_t, off_t nOffset) {
        return nOffset == 2 ? 0 : pread(nFd, pBytes, 1, nOffset);
    };

    EXPECT_EQ(DIGEST_CHANGED, Read(*HoldFile(m_strFile)));

    EXPECT_EQ(3, m_nReads);
}

TEST_F(DigestReaderTest, AFailingDiskEndsTheReading) {
    m_fnRead = [this](int nFd, void* pBytes, size_t nBytes, off_t nOffset) -> ssize_t {
        if (m_nReads == 2) {
            errno = EIO;
            return -1;
        }
        return pread(nFd, pBytes, nBytes, nOffset);
    };

    EXPECT_EQ(DIGEST_UNREADABLE,
              Read(*HoldFile(m_dir.WriteFile("large", std::string(200000, 'a')))));

    EXPECT_EQ(2, m_nReads);
}

TEST_F(DigestReaderTest, WhatCannotBeReadIsUnreadable) {
    const std::string strPipe = m_dir.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(strPipe.c_str(), 0600));

    EXPECT_EQ(DIGEST_UNREADABLE, Read(*HoldFile(m_strFile, O_WRONLY)));
    EXPECT_EQ(DIGEST_UNREADABLE, Read(*HoldFile(m_strFile, O_PATH)));
    EXPECT_EQ(2, m_nReads);
    EXPECT_EQ(DIGEST_UNREADABLE, Read(*HoldFile(strPipe)));
    EXPECT_EQ(DIGEST_UNREADABLE, Read(*HoldFile(m_dir.Path())));
    EXPECT_EQ(DIGEST_UNREADABLE, Read(*HoldFile("/dev/zero")));
    EXPECT_EQ(2, m_nReads);
}

TEST_F(DigestReaderTest, WithoutADescriptorNothingIsRead) {
    const auto pFile = HoldFile(m_strFile);
    const HeldFile closed(UniqueFd(), pFile->Version(), pFile->Status(), m_strFile);

    EXPECT_EQ(DIGEST_UNREADABLE, Read(closed));

    EXPECT_EQ(0, m_nReads);
}

TEST_F(DigestReaderTest, AnInterruptedOrShortReadGoesOn) {
    m_fnRead = [this](int nFd, void* pBytes, size_t, off_t nOffset) -> ssize_t {
        if (m_nReads == 2) {
            errno = EINTR;
            return -1;
        }
        return pread(nFd, pBytes, 1, nOffset);
    };

    ASSERT_EQ(DIGEST_DONE, Read(*HoldFile(m_strFile)));

    EXPECT_EQ(KEY_OF_ABC, m_bytes.Text().strKey);
    EXPECT_EQ(SHA256_OF_ABC, m_bytes.Text().strSha256);
}

TEST_F(DigestReaderTest, AboveTheLimitNothingIsRead) {
    ASSERT_EQ(0, truncate(m_strFile.c_str(), 4294967297));
    EXPECT_EQ(DIGEST_TOO_LARGE, Read(*HoldFile(m_strFile)));
    EXPECT_EQ(0, m_nReads);

    ASSERT_EQ(0, truncate(m_strFile.c_str(), 4294967296));
    m_fnRead = [](int, void*, size_t, off_t) -> ssize_t {
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(DIGEST_UNREADABLE, Read(*HoldFile(m_strFile)));
    EXPECT_EQ(1, m_nReads);
}

TEST_F(DigestReaderTest, AFileWithoutASizeIsReadToItsEnd) {
    const auto pFile = HoldFile(m_dir.WriteFile("served", ""));
    m_fnRead = [](int, void* pBytes, size_t, off_t nOffset) -> ssize_t {
        if (nOffset == 3) {
            return 0;
        }
        *static_cast<char*>(pBytes) = "abc"[nOffset];
        return 1;
    };

    ASSERT_EQ(DIGEST_DONE, Read(*pFile));

    EXPECT_EQ(KEY_OF_ABC, m_bytes.Text().strKey);
    EXPECT_EQ(SHA256_OF_ABC, m_bytes.Text().strSha256);
}

TEST_F(DigestReaderTest, AFileWithoutASizeOrAnEndIsTooLarge) {
    const auto pFile = HoldFile(m_dir.WriteFile("served", ""));
    m_fnRead = [](int, void* pBytes, size_t nBytes, off_t) {
        std::fill_n(static_cast<char*>(pBytes), nBytes, 'a');
        return static_cast<ssize_t>(nBytes);
    };

    EXPECT_EQ(DIGEST_TOO_LARGE, Read(*pFile));

    EXPECT_EQ(67108865u, m_nBytes);
}

TEST_F(DigestReaderTest, AStopEndsTheReadingBeforeTheNextBlock) {
    ASSERT_EQ(0, truncate(m_strFile.c_str(), 4294967296));
    const auto pFile = HoldFile(m_strFile);
    m_fnRead = [this](int nFd, void* pBytes, size_t nBytes, off_t nOffset) {
        m_bStop = m_nReads == 3;
        return pread(nFd, pBytes, nBytes, nOffset);
    };

    EXPECT_EQ(DIGEST_LEFT_OUT, Read(*pFile));
    EXPECT_EQ(3, m_nReads);
    EXPECT_EQ(DIGEST_LEFT_OUT, Read(*pFile));
    EXPECT_EQ(3, m_nReads);
    m_bStop = false;
    EXPECT_EQ(DIGEST_DONE, Read(*HoldFile(m_dir.WriteFile("next", "abc"))));
    EXPECT_EQ(KEY_OF_ABC, m_bytes.Text().strKey);
}
