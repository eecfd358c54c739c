#include "host/program/RecentDigests.h"

#include <gtest/gtest.h>

namespace {

FileVersion Version(uint64_t nInode) {
    return {1, nInode, 3, 4};
}

DigestBytes Bytes(uint8_t nByte) {
    DigestBytes bytes;
    bytes.sha1.fill(nByte);
    bytes.md5.fill(nByte);
    bytes.sha256.fill(nByte);
    return bytes;
}

int FirstByte(RecentDigests& recent, uint64_t nInode) {
    const DigestBytes* const pBytes = recent.Find(Version(nInode));
    return pBytes == nullptr ? -1 : pBytes->sha256[0];
}

TEST(RecentDigestsTest, AVersionIsFoundWithAllItsBytes) {
    RecentDigests recent(2);
    recent.Keep(Version(1), Bytes(7));

    const DigestBytes* const pBytes = recent.Find(Version(1));

    ASSERT_NE(nullptr, pBytes);
    EXPECT_EQ(Bytes(7).sha1, pBytes->sha1);
    EXPECT_EQ(Bytes(7).md5, pBytes->md5);
    EXPECT_EQ(Bytes(7).sha256, pBytes->sha256);
    EXPECT_EQ(nullptr, recent.Find(Version(2)));
    EXPECT_EQ(nullptr, recent.Find({1, 1, 3, 5}));
}

TEST(RecentDigestsTest, BeyondTheMostTheOneUsedLongestAgoGoes) {
    RecentDigests recent(3);
    for (const uint8_t nInode : {1, 2, 3}) {
        recent.Keep(Version(nInode), Bytes(nInode));
    }
    EXPECT_EQ(1, FirstByte(recent, 1));
    recent.Keep(Version(2), Bytes(20));

    recent.Keep(Version(4), Bytes(4));

    EXPECT_EQ(1, FirstByte(recent, 1));
    EXPECT_EQ(20, FirstByte(recent, 2));
    EXPECT_EQ(-1, FirstByte(recent, 3));
    EXPECT_EQ(4, FirstByte(recent, 4));
}

TEST(RecentDigestsTest, AVersionThatWentComesBack) {
    RecentDigests recent(1);
    for (int nRound = 0; nRound < 3; ++nRound) {
        for (const uint8_t nInode : {1, 2}) {
            recent.Keep(Version(nInode), Bytes(nInode));
            EXPECT_EQ(nInode, FirstByte(recent, nInode));
            EXPECT_EQ(-1, FirstByte(recent, 3 - nInode));
        }
    }
}

}  // namespace
