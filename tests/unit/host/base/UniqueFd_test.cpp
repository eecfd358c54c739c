#include "host/base/UniqueFd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace {

int OpenSomething() {
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

bool IsOpen(int nFd) {
    return fcntl(nFd, F_GETFD) >= 0;
}

}  // namespace

TEST(UniqueFdTest, ClosesItsDescriptorAtItsEnd) {
    const int nFd = OpenSomething();
    {
        const UniqueFd fd(nFd);
        EXPECT_TRUE(fd);
        EXPECT_EQ(nFd, fd.Get());
        EXPECT_TRUE(IsOpen(nFd));
    }

    EXPECT_FALSE(IsOpen(nFd));
}

TEST(UniqueFdTest, WhatOpenedNothingIsFalse) {
    const UniqueFd none;
    const UniqueFd failed(open("/dev/null/not-there", O_RDONLY | O_CLOEXEC));

    EXPECT_FALSE(none);
    EXPECT_FALSE(failed);
    EXPECT_EQ(-1, failed.Get());
}

TEST(UniqueFdTest, AMovedDescriptorHasOneOwner) {
    const int nFd = OpenSomething();
    UniqueFd first(nFd);
    {
        const UniqueFd second(std::move(first));
        EXPECT_EQ(nFd, second.Get());
        EXPECT_EQ(-1, first.Get());  // NOLINT(bugprone-use-after-move)
        EXPECT_TRUE(IsOpen(nFd));
    }

    EXPECT_FALSE(IsOpen(nFd));
}

TEST(UniqueFdTest, AnAssignmentClosesWhatWasThereBefore) {
    const int nOld = OpenSomething();
    const int nNew = OpenSomething();
    UniqueFd target(nOld);
    UniqueFd source(nNew);

    target = std::move(source);

    EXPECT_FALSE(IsOpen(nOld));
    EXPECT_TRUE(IsOpen(nNew));
    EXPECT_EQ(nNew, target.Get());
}

TEST(UniqueFdTest, AnAssignmentToItselfChangesNothing) {
    const int nFd = OpenSomething();
    UniqueFd fd(nFd);
    UniqueFd& same = fd;

    fd = std::move(same);

    EXPECT_EQ(nFd, fd.Get());
    EXPECT_TRUE(IsOpen(nFd));
}

TEST(UniqueFdTest, ResetClosesTheOldAndOwnsTheNew) {
    const int nOld = OpenSomething();
    const int nNew = OpenSomething();
    UniqueFd fd(nOld);

    fd.Reset(nNew);
    EXPECT_FALSE(IsOpen(nOld));
    EXPECT_EQ(nNew, fd.Get());
    fd.Reset();

    EXPECT_FALSE(IsOpen(nNew));
    EXPECT_FALSE(fd);
}

TEST(UniqueFdTest, ResetKeepsTheReasonOfAFailedOpening) {
    UniqueFd fd(1 << 30);  // closing this fails, with another reason

    fd.Reset(open("/dev/null/not-there", O_RDONLY | O_CLOEXEC));

    EXPECT_EQ(ENOTDIR, errno);
    EXPECT_FALSE(fd);
}

TEST(UniqueFdTest, ReleaseLeavesTheDescriptorOpen) {
    const int nFd = OpenSomething();
    int nReleased = -1;
    {
        UniqueFd fd(nFd);
        nReleased = fd.Release();
        EXPECT_FALSE(fd);
    }

    EXPECT_EQ(nFd, nReleased);
    EXPECT_TRUE(IsOpen(nFd));
    EXPECT_EQ(0, close(nFd));
}

TEST(UniqueFdTest, CloseReportsItsErrorOnce) {
    UniqueFd good(OpenSomething());
    UniqueFd bad(1 << 30);

    EXPECT_EQ(0, good.Close());
    EXPECT_FALSE(good);
    EXPECT_EQ(EBADF, bad.Close());
    EXPECT_EQ(0, bad.Close());
}
