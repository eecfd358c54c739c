#include "host/program/DigestLanes.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Event.h"
#include "tests/support/HeldCall.h"
#include "tests/support/TestDir.h"
#include "tests/support/Threads.h"
#include "tests/support/host/HeldFiles.h"

namespace {

constexpr const char* KEY_OF_ABC =
    "a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72";
constexpr const char* SHA256_OF_ABC =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr int64_t LIMIT = 4294967296;

using File = std::shared_ptr<const HeldFile>;

// What was called back, by inode.
class Inbox {
public:
    void Put(const FileVersion& version, const ProgramDigest& digest) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_digests.emplace(version.nInode, digest);
    }
    std::vector<ProgramDigest> Of(const File& pFile) const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<ProgramDigest> digests;
        const auto range = m_digests.equal_range(pFile->Version().nInode);
        for (auto it = range.first; it != range.second; ++it) {
            digests.push_back(it->second);
        }
        return digests;
    }
    // The end that was called back, once; waits for it. -1: none, or several.
    int End(const File& pFile) const {
        const bool bCalled = Eventually([&] { return !Of(pFile).empty(); });
        const std::vector<ProgramDigest> digests = Of(pFile);
        return bCalled && digests.size() == 1 ? digests.front().eEnd : -1;
    }
    size_t Count(DigestEnd eEnd) const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return static_cast<size_t>(
            std::count_if(m_digests.begin(), m_digests.end(),
                          [eEnd](const auto& digest) { return digest.second.eEnd == eEnd; }));
    }
    size_t Size() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_digests.size();
    }

private:
    mutable std::mutex m_mutex;
    std::multimap<uint64_t, ProgramDigest> m_digests;
};

class DigestLanesTest : public testing::Test {
protected:
    DigestLanesTest() {
        m_options.nSmallSize = 1000;
        m_options.nMostSmall = 4;
        m_options.nMostLarge = 4;
        m_options.fnRead = [this](int nFd, void* pBytes, size_t nBytes, off_t nOffset) {
            Held(nFd);
            return pread(nFd, pBytes, nBytes, nOffset);
        };
    }
    ~DigestLanesTest() override {
        m_held.GoOn();  // also after a failed assertion
        m_pLanes.reset();
    }

    DigestLanes& Begin(DigestLanes::Done fnDone = {}) {
        m_pLanes = std::make_unique<DigestLanes>(m_options);
        m_pLanes->Begin(fnDone ? std::move(fnDone)
                               : [this](const FileVersion& version, const ProgramDigest& digest) {
                                     m_inbox.Put(version, digest);
                                 });
        return *m_pLanes;
    }

    // The reading of this file stays in hand from its nAt-th block on, until m_held.GoOn().
    void HoldReadOf(const File& pFile, int nAt = 1) {
        m_nHeldFd = pFile->Descriptor();
        m_nHeldAt = nAt;
    }

    void Held(int nFd) {
        if (nFd == m_nHeldFd && ++m_nReads >= m_nHeldAt) {
            m_held.Hold();
        }
    }

    File Small(const std::string& strName) const {
        return HoldFile(m_dir.WriteFile(strName, "abc"));
    }
    File Sparse(const std::string& strName, int64_t nSize) const {
        const std::string strPath = m_dir.WriteFile(strName, "");
        EXPECT_EQ(0, truncate(strPath.c_str(), nSize));
        return HoldFile(strPath);
    }

    TestDir m_dir;
    DigestLanesOptions m_options;
    Inbox m_inbox;
    HeldCall m_held;
    std::atomic<int> m_nHeldFd{-1};
    std::atomic<int> m_nHeldAt{1};
    std::atomic<int> m_nReads{0};
    std::unique_ptr<DigestLanes> m_pLanes;
};

}  // namespace

TEST_F(DigestLanesTest, ADigestIsComputedOnceAndRemembered) {
    DigestLanes& lanes = Begin();
    const File pFile = Small("program");
    EXPECT_FALSE(lanes.Known(pFile->Version()));

    EXPECT_FALSE(lanes.Ask(pFile));
    ASSERT_EQ(DIGEST_DONE, m_inbox.End(pFile));
    const auto again = lanes.Ask(HoldFile(pFile->Name()));
    const auto known = lanes.Known(pFile->Version());

    for (const auto& digest :
         {std::optional<ProgramDigest>(m_inbox.Of(pFile).front()), again, known}) {
        ASSERT_TRUE(digest);
        EXPECT_EQ(DIGEST_DONE, digest->eEnd);
        EXPECT_EQ(KEY_OF_ABC, digest->strKey);
        EXPECT_EQ(SHA256_OF_ABC, digest->strSha256);
    }
    EXPECT_EQ(1u, m_inbox.Size());
    EXPECT_EQ(1u, lanes.Counts().nFiles);
    EXPECT_EQ(3u, lanes.Counts().nBytes);
    EXPECT_EQ(0u, lanes.Counts().nLeftOut);
}

TEST_F(DigestLanesTest, HoweverManyAskAtOnceAVersionIsComputedOnce) {
    const File pFile = Small("program");
    HoldReadOf(pFile);
    DigestLanes& lanes = Begin();
    EXPECT_FALSE(lanes.Ask(pFile));
    ASSERT_TRUE(m_held.HasBegun());

    std::atomic<int> nMerged{0};
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < 8; ++nThread) {
        threads.emplace_back([&] {
            for (int nRound = 0; nRound < 50; ++nRound) {
                nMerged += lanes.Ask(pFile) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    m_held.GoOn();
    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pFile));
    lanes.End();

    EXPECT_EQ(400, nMerged);
    EXPECT_EQ(1u, m_inbox.Size());
    EXPECT_EQ(1u, lanes.Counts().nFiles);
    EXPECT_EQ(3u, lanes.Counts().nBytes);
}

TEST_F(DigestLanesTest, ManyVersionsOfManyThreadsAreComputedOnceEach) {
    m_options.nMostSmall = 64;
    std::vector<File> files;
    for (int nFile = 0; nFile < 32; ++nFile) {
        files.push_back(Small("program" + std::to_string(nFile)));
    }
    DigestLanes& lanes = Begin();

    std::vector<std::thread> threads;
    for (size_t nThread = 0; nThread < 4; ++nThread) {
        threads.emplace_back([&, nThread] {
            for (size_t nFile = 0; nFile < files.size(); ++nFile) {
                (void)lanes.Ask(files[(nFile + nThread * 8) % files.size()]);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    for (const File& pFile : files) {
        EXPECT_EQ(DIGEST_DONE, m_inbox.End(pFile)) << pFile->Name();
        EXPECT_TRUE(lanes.Known(pFile->Version()));
    }
    EXPECT_EQ(32u, lanes.Counts().nFiles);
    EXPECT_EQ(96u, lanes.Counts().nBytes);
}

TEST_F(DigestLanesTest, AVersionThatIsNotKnownIsNeitherRememberedNorMerged) {
    const std::string strPath = m_dir.WriteFile("program", "abc");
    const File pFirst = HoldUnknown(strPath);
    const File pSecond = HoldUnknown(strPath);
    HoldReadOf(pFirst);
    DigestLanes& lanes = Begin();

    EXPECT_FALSE(lanes.Ask(pFirst));
    ASSERT_TRUE(m_held.HasBegun());
    EXPECT_FALSE(lanes.Ask(pSecond));
    m_held.GoOn();
    ASSERT_TRUE(Eventually([this] { return m_inbox.Size() == 2; }));

    EXPECT_EQ(2u, lanes.Counts().nFiles);
    EXPECT_FALSE(lanes.Known(pFirst->Version()));
    EXPECT_FALSE(lanes.Ask(pFirst));
    EXPECT_TRUE(Eventually([this] { return m_inbox.Size() == 3; }));
    for (const ProgramDigest& digest : m_inbox.Of(pFirst)) {
        EXPECT_EQ(KEY_OF_ABC, digest.strKey);
    }
}

TEST_F(DigestLanesTest, SmallFilesOvertakeALargeOne) {
    const File pLarge = Sparse("large", 1001);
    const File pJustSmall = Sparse("small", 1000);
    const File pTooLarge = Sparse("too large", LIMIT + 1);
    HoldReadOf(pLarge);
    DigestLanes& lanes = Begin();
    EXPECT_FALSE(lanes.Ask(pLarge));
    ASSERT_TRUE(m_held.HasBegun());

    EXPECT_FALSE(lanes.Ask(pJustSmall));
    EXPECT_FALSE(lanes.Ask(pTooLarge));

    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pJustSmall));
    EXPECT_EQ(DIGEST_TOO_LARGE, m_inbox.End(pTooLarge));
    EXPECT_TRUE(m_inbox.Of(pLarge).empty());
    m_held.GoOn();
    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pLarge));
}

TEST_F(DigestLanesTest, ALargeFileOvertakesASmallOneThatStandsStill) {
    const File pSmall = Small("small");
    const File pLarge = Sparse("large", 1001);
    HoldReadOf(pSmall);
    DigestLanes& lanes = Begin();
    EXPECT_FALSE(lanes.Ask(pSmall));
    ASSERT_TRUE(m_held.HasBegun());

    EXPECT_FALSE(lanes.Ask(pLarge));

    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pLarge));
    EXPECT_TRUE(m_inbox.Of(pSmall).empty());
}

TEST_F(DigestLanesTest, WhatHasNoDigestIsCalledBackAndComputedAgainWhenAsked) {
    const File pChanged = Small("changed");
    ASSERT_EQ(0, unlink(pChanged->Name().c_str()));
    const File pUnreadable = HoldFile(m_dir.WriteFile("unreadable", "abc"), O_WRONLY);
    const File pTooLarge = Sparse("too large", LIMIT + 1);
    const std::pair<File, DigestEnd> ENDS[] = {{pChanged, DIGEST_CHANGED},
                                               {pUnreadable, DIGEST_UNREADABLE},
                                               {pTooLarge, DIGEST_TOO_LARGE}};
    DigestLanes& lanes = Begin();

    for (const auto& [pFile, eEnd] : ENDS) {
        EXPECT_FALSE(lanes.Ask(pFile));
        EXPECT_EQ(eEnd, m_inbox.End(pFile)) << pFile->Name();
        const bool bRead = eEnd == DIGEST_CHANGED;  // what it holds now
        EXPECT_EQ(bRead, !m_inbox.Of(pFile).front().strKey.empty());
        EXPECT_EQ(bRead, !m_inbox.Of(pFile).front().strSha256.empty());
        EXPECT_FALSE(lanes.Known(pFile->Version()));
        EXPECT_FALSE(lanes.Ask(pFile));
        EXPECT_TRUE(Eventually([&, &pAsked = pFile] { return m_inbox.Of(pAsked).size() == 2; }));
    }
    EXPECT_EQ(6u, lanes.Counts().nFiles);
    EXPECT_EQ(0u, lanes.Counts().nLeftOut);
}

TEST_F(DigestLanesTest, WhatFindsNoRoomIsLeftOutAndCounted) {
    const File pInHand = Small("in hand");
    std::vector<File> waiting;
    for (const char* const pszName : {"1", "2", "3", "4"}) {
        waiting.push_back(Small(pszName));
    }
    const File pBeyond = Small("beyond");
    const File pLarge = Sparse("large", 1001);
    HoldReadOf(pInHand);
    DigestLanes& lanes = Begin();
    EXPECT_FALSE(lanes.Ask(pInHand));
    ASSERT_TRUE(m_held.HasBegun());
    for (const File& pFile : waiting) {
        EXPECT_FALSE(lanes.Ask(pFile));
    }

    const auto leftOut = lanes.Ask(pBeyond);

    ASSERT_TRUE(leftOut);
    EXPECT_EQ(DIGEST_LEFT_OUT, leftOut->eEnd);
    EXPECT_EQ(1u, lanes.Counts().nLeftOut);
    EXPECT_FALSE(lanes.Ask(waiting.front()));  // merged, it takes no room
    EXPECT_FALSE(lanes.Ask(pLarge));           // the other lane has its own
    m_held.GoOn();
    for (const File& pFile : waiting) {
        EXPECT_EQ(DIGEST_DONE, m_inbox.End(pFile));
    }
    EXPECT_TRUE(m_inbox.Of(pBeyond).empty());
    EXPECT_FALSE(lanes.Ask(pBeyond));
    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pBeyond));
}

TEST_F(DigestLanesTest, BeyondTheMostRememberedTheOldestUsedGoes) {
    m_options.nMostRemembered = 2;
    const File files[] = {Small("1"), Small("2"), Small("3")};
    DigestLanes& lanes = Begin();
    for (const File& pFile : files) {
        EXPECT_FALSE(lanes.Ask(pFile));
        EXPECT_EQ(DIGEST_DONE, m_inbox.End(pFile));
        EXPECT_TRUE(lanes.Ask(files[0]));  // a use
    }

    EXPECT_TRUE(lanes.Known(files[0]->Version()));
    EXPECT_FALSE(lanes.Known(files[1]->Version()));
    EXPECT_TRUE(lanes.Known(files[2]->Version()));
}

TEST_F(DigestLanesTest, AnEndComesInTheMiddleOfALargeFile) {
    const File pLarge = Sparse("large", LIMIT);
    const File pWaiting = Sparse("waiting", LIMIT);
    const File pUnknown = HoldUnknown(m_dir.WriteFile("unknown", "abc"));
    HoldReadOf(pLarge, 3);
    m_options.nMostSmall = 1000000;  // only the end refuses
    DigestLanes& lanes = Begin();
    EXPECT_FALSE(lanes.Ask(pLarge));
    EXPECT_FALSE(lanes.Ask(pWaiting));
    ASSERT_TRUE(m_held.HasBegun());

    std::thread ending([&lanes] { lanes.End(); });
    // Nothing is taken any more: the end has begun.
    EXPECT_TRUE(Eventually([&] { return lanes.Ask(pUnknown).has_value(); }));
    m_held.GoOn();
    ending.join();

    EXPECT_EQ(DIGEST_LEFT_OUT, m_inbox.End(pLarge));
    EXPECT_EQ(DIGEST_LEFT_OUT, m_inbox.End(pWaiting));
    const DigestCounts counts = lanes.Counts();
    EXPECT_EQ(3u * 65536 + 3 * m_inbox.Count(DIGEST_DONE), counts.nBytes);
    EXPECT_EQ(m_inbox.Count(DIGEST_DONE), counts.nFiles);
    EXPECT_EQ(m_inbox.Count(DIGEST_LEFT_OUT) + 1, counts.nLeftOut);  // and the one not taken
}

TEST_F(DigestLanesTest, BeforeTheBeginningAndAfterTheEndNothingIsTaken) {
    const File pKnown = Small("known");
    const File pOther = Small("other");
    m_pLanes = std::make_unique<DigestLanes>(m_options);
    const auto before = m_pLanes->Ask(pKnown);
    ASSERT_TRUE(before);
    EXPECT_EQ(DIGEST_LEFT_OUT, before->eEnd);
    DigestLanes& lanes = Begin();
    EXPECT_FALSE(lanes.Ask(pKnown));
    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pKnown));

    lanes.End();
    lanes.End();

    const auto after = lanes.Ask(pOther);
    ASSERT_TRUE(after);
    EXPECT_EQ(DIGEST_LEFT_OUT, after->eEnd);
    EXPECT_EQ(1u, lanes.Counts().nLeftOut);
    const auto known = lanes.Ask(pKnown);
    ASSERT_TRUE(known);
    EXPECT_EQ(KEY_OF_ABC, known->strKey);
}

TEST_F(DigestLanesTest, LanesThatNeverBeganEnd) {
    DigestLanes lanes(m_options);

    lanes.End();

    EXPECT_EQ(0u, lanes.Counts().nFiles);
}

TEST_F(DigestLanesTest, CallbacksThatThrowEndNothing) {
    const File pFirst = Small("first");
    const File pRemoved = Small("removed");
    ASSERT_EQ(0, unlink(pRemoved->Name().c_str()));
    const File pLast = Small("last");
    DigestLanes& lanes = Begin([this](const FileVersion& version, const ProgramDigest& digest) {
        m_inbox.Put(version, digest);
        throw std::runtime_error("of no use");
    });

    EXPECT_FALSE(lanes.Ask(pFirst));
    EXPECT_FALSE(lanes.Ask(pRemoved));
    EXPECT_FALSE(lanes.Ask(pLast));

    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pFirst));
    EXPECT_EQ(DIGEST_CHANGED, m_inbox.End(pRemoved));
    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pLast));
}

TEST_F(DigestLanesTest, ACallbackFindsItsDigestRememberedAndMayAsk) {
    const File pFirst = Small("first");
    const File pSecond = Small("second");
    std::atomic<bool> bKnown{false};
    DigestLanes& lanes = Begin([&](const FileVersion& version, const ProgramDigest& digest) {
        if (version == pFirst->Version()) {
            bKnown = m_pLanes->Ask(pFirst).has_value();
            EXPECT_FALSE(m_pLanes->Ask(pSecond));
        }
        m_inbox.Put(version, digest);
    });

    EXPECT_FALSE(lanes.Ask(pFirst));

    EXPECT_EQ(DIGEST_DONE, m_inbox.End(pSecond));
    EXPECT_TRUE(bKnown);
}

TEST_F(DigestLanesTest, AFileIsHeldNoLongerThanItIsNeeded) {
    File pFile = Small("program");
    const std::weak_ptr<const HeldFile> pSeen = pFile;
    DigestLanes& lanes = Begin();

    EXPECT_FALSE(lanes.Ask(std::move(pFile)));

    EXPECT_TRUE(Eventually([&pSeen] { return pSeen.expired(); }));
}

TEST_F(DigestLanesTest, TheThreadsHaveNamesAndGetNoSignals) {
    std::atomic<int> nBlocked{0};
    m_options.fnOnLane = [&nBlocked] {
        sigset_t blocked;
        (void)pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        nBlocked += sigismember(&blocked, SIGTERM) + sigismember(&blocked, SIGUSR1) +
                    sigismember(&blocked, SIGCHLD);
    };
    sigset_t mine, after;
    sigemptyset(&mine);
    sigaddset(&mine, SIGUSR2);
    (void)pthread_sigmask(SIG_SETMASK, &mine, nullptr);

    DigestLanes& lanes = Begin();

    (void)pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_EQ(1, sigismember(&after, SIGUSR2));
    EXPECT_EQ(0, sigismember(&after, SIGTERM));
    EXPECT_EQ(1u, ThreadNames().count("digest_small"));
    EXPECT_EQ(1u, ThreadNames().count("digest_large"));
    lanes.End();
    EXPECT_EQ(6, nBlocked);
}
