#include "host/kernel/script/FilesByProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using std::chrono::seconds;

class FilesByProcessTest : public testing::Test {
protected:
    // What process nPid opens now; its descriptor.
    int Add(uint32_t nPid) {
        UniqueFd fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const int nFd = fd.Get();
        m_files.Add(nPid, std::move(fd), m_now);
        return nFd;
    }
    std::vector<int> Of(uint32_t nPid) {
        std::vector<int> fds;
        for (const FilesByProcess::File* const pFile : m_files.Of(nPid)) {
            EXPECT_EQ(nPid, pFile->nPid);
            fds.push_back(pFile->fd.Get());
        }
        return fds;
    }
    using Fds = std::vector<int>;

    FilesByProcess m_files{4};
    FilesByProcess::Clock::time_point m_now;
};

}  // namespace

TEST_F(FilesByProcessTest, EachProcessHasItsFilesInTheirOrder) {
    const int nFirst = Add(7);
    const int nOther = Add(8);
    const int nSecond = Add(7);
    EXPECT_EQ((Fds{nFirst, nSecond}), Of(7));
    EXPECT_EQ(Fds{nOther}, Of(8));
    EXPECT_EQ(Fds{}, Of(9));
}

TEST_F(FilesByProcessTest, BeyondTheBoundTheOldestIsClosed) {
    const int nOldest = Add(7);
    const int nSecond = Add(7);
    for (const uint32_t nPid : {8u, 9u, 10u}) {
        (void)Add(nPid);
    }
    EXPECT_EQ(Fds{nSecond}, Of(7));
    EXPECT_EQ(-1, fcntl(nOldest, F_GETFD));
    (void)Add(8);
    EXPECT_EQ(Fds{}, Of(7));
    EXPECT_EQ(2u, Of(8).size());
}

TEST_F(FilesByProcessTest, WhatIsOldIsClosed) {
    const int nOld = Add(7);
    m_now += seconds(1);
    const int nNew = Add(7);
    m_files.DropBefore(m_now);
    EXPECT_EQ(Fds{nNew}, Of(7));
    EXPECT_EQ(-1, fcntl(nOld, F_GETFD));
    EXPECT_EQ(1u, m_files.Processes());
    m_files.DropBefore(m_now + seconds(1));
    EXPECT_EQ(Fds{}, Of(7));
    EXPECT_EQ(0u, m_files.Processes());
}

TEST_F(FilesByProcessTest, AGapIsBetweenWhatStandsBeforeAndBehindIt) {
    (void)Add(7);
    EXPECT_TRUE(m_files.IsComplete(*m_files.Of(7)[0]));
    m_files.AddGap();
    (void)Add(7);
    EXPECT_FALSE(m_files.IsComplete(*m_files.Of(7)[0]));
    EXPECT_TRUE(m_files.IsComplete(*m_files.Of(7)[1]));
}

TEST_F(FilesByProcessTest, WhatTheOwnerNotesOfAFileStays) {
    (void)Add(7);
    m_files.Of(7)[0]->bStarted = true;
    (void)Add(8);
    EXPECT_TRUE(m_files.Of(7)[0]->bStarted);
    EXPECT_FALSE(m_files.Of(8)[0]->bStarted);
}
