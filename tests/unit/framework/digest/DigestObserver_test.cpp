#include "framework/digest/DigestObserver.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/digest/FileHash.h"
#include "tests/support/Event.h"
#include "tests/support/HeldCall.h"
#include "tests/support/TestDir.h"
#include "tests/support/WaitsForLock.h"

namespace {

class RecordingObserver : public IDigestObserver {
public:
    struct Record {
        std::string strPath;
        struct stat status;
        std::string strMd5;
        std::string strSha1;
        std::thread::id thread;
    };

    void OnDigest(const std::string& strPath, const struct stat& status, const std::string& strMd5,
                  const std::string& strSha1) noexcept override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_records.push_back({strPath, status, strMd5, strSha1, std::this_thread::get_id()});
        errno = EIO;
    }

    std::vector<Record> Records() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_records;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Record> m_records;
};

// Its first call lasts until held.GoOn(); the others return at once.
class SlowObserver : public IDigestObserver {
public:
    void OnDigest(const std::string&, const struct stat&, const std::string&,
                  const std::string&) noexcept override {
        if (!bCalled.exchange(true)) {
            held.Hold();
            bEnded = true;
        }
    }

    HeldCall held;
    std::atomic<bool> bCalled{false};
    std::atomic<bool> bEnded{false};
};

class DigestObserverTest : public testing::Test {
protected:
    ~DigestObserverTest() override { SetDigestObserver(nullptr); }

    bool Hash(const std::string& strPath) const {
        std::string strMd5, strSha1;
        return utils::getMD5AndSHA1(strPath, strMd5, strSha1);
    }

    TestDir m_dir;
    const std::string m_strFile = m_dir.WriteFile("program", "abc");
    RecordingObserver m_observer;
};

}  // namespace

TEST_F(DigestObserverTest, WhatWasHashedIsObservedOnItsThreadBeforeTheReturn) {
    SetDigestObserver(&m_observer);
    struct stat expected = {};
    ASSERT_EQ(0, stat(m_strFile.c_str(), &expected));

    ASSERT_TRUE(Hash(m_strFile));

    const auto records = m_observer.Records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(m_strFile, records[0].strPath);
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", records[0].strMd5);
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", records[0].strSha1);
    EXPECT_EQ(std::this_thread::get_id(), records[0].thread);
    EXPECT_EQ(expected.st_dev, records[0].status.st_dev);
    EXPECT_EQ(expected.st_ino, records[0].status.st_ino);
    EXPECT_EQ(3, records[0].status.st_size);
    EXPECT_EQ(expected.st_ctim.tv_sec, records[0].status.st_ctim.tv_sec);
    EXPECT_EQ(expected.st_ctim.tv_nsec, records[0].status.st_ctim.tv_nsec);
}

TEST_F(DigestObserverTest, ThePathIsTheOneAskedForAndTheStatusThatOfTheFile) {
    const std::string strLink = m_dir.Path() + "/link";
    ASSERT_EQ(0, symlink(m_strFile.c_str(), strLink.c_str()));
    SetDigestObserver(&m_observer);

    std::string strPathAndSha1 = strLink;
    std::string strMd5;
    ASSERT_TRUE(utils::getMD5AndSHA1(strPathAndSha1, strMd5, strPathAndSha1));

    const auto records = m_observer.Records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(strLink, records[0].strPath);
    EXPECT_TRUE(S_ISREG(records[0].status.st_mode));
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", strPathAndSha1);
}

TEST_F(DigestObserverTest, WhatCouldNotBeHashedIsNotObserved) {
    SetDigestObserver(&m_observer);

    EXPECT_FALSE(Hash(m_dir.Path() + "/none"));
    EXPECT_FALSE(Hash(m_dir.Path()));
    EXPECT_FALSE(Hash("/dev/null"));
    EXPECT_FALSE(Hash(""));

    EXPECT_TRUE(m_observer.Records().empty());
}

TEST_F(DigestObserverTest, WithoutAnObserverFilesAreHashedAllTheSame) {
    SetDigestObserver(&m_observer);
    EXPECT_TRUE(Hash(m_strFile));
    SetDigestObserver(nullptr);
    SetDigestObserver(nullptr);

    EXPECT_TRUE(Hash(m_strFile));

    EXPECT_EQ(1u, m_observer.Records().size());
}

TEST_F(DigestObserverTest, AnObserverLeavesErrnoAlone) {
    SetDigestObserver(&m_observer);
    errno = 0;

    EXPECT_TRUE(Hash(m_strFile));

    EXPECT_EQ(0, errno);
    EXPECT_EQ(1u, m_observer.Records().size());
}

TEST_F(DigestObserverTest, AnObserverGoesAfterItsCallsWhateverTheNextOneDoes) {
    SlowObserver slow, next;
    SetDigestObserver(&slow);
    std::thread hashing([this] { EXPECT_TRUE(Hash(m_strFile)); });
    ASSERT_TRUE(slow.held.HasBegun());
    std::atomic<pid_t> nSetting{0};
    std::atomic<bool> bReturned{false};

    std::thread setting([&] {
        nSetting = gettid();
        SetDigestObserver(&next);
        bReturned = true;
    });
    // The next one is called although the old one is still in its first call.
    std::thread hashingOn(
        [&] { EXPECT_TRUE(Eventually([&] { return Hash(m_strFile) && next.bCalled; })); });
    EXPECT_TRUE(next.held.HasBegun());
    EXPECT_TRUE(Eventually([&] { return bReturned || ThreadState(nSetting) == "S"; }));
    EXPECT_FALSE(bReturned);
    slow.held.GoOn();
    EXPECT_TRUE(Eventually([&] { return bReturned.load(); }));
    EXPECT_FALSE(next.bEnded);

    next.held.GoOn();
    setting.join();
    hashing.join();
    hashingOn.join();
}

TEST_F(DigestObserverTest, ObserversComeAndGoWhileThreadsHash) {
    std::atomic<bool> bStop{false};
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < 2; ++nThread) {
        threads.emplace_back([&] {
            while (!bStop) {
                EXPECT_TRUE(Hash(m_strFile));
            }
        });
    }

    for (int nRound = 0; nRound < 50; ++nRound) {
        RecordingObserver observer;
        SetDigestObserver(&observer);
        EXPECT_TRUE(Eventually([&observer] { return observer.Records().size() >= 2; }));
        SetDigestObserver(nullptr);
    }
    bStop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}
