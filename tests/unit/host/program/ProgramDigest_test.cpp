#include "host/program/ProgramDigest.h"

#include <gtest/gtest.h>

namespace {

TEST(ProgramDigestTest, BytesBecomeLowerCaseTextWithSha1BeforeMd5) {
    DigestBytes bytes;
    bytes.sha1.fill(0x0a);
    bytes.md5.fill(0xb0);
    bytes.sha256.fill(0xcd);

    const ProgramDigest digest = bytes.Text();

    EXPECT_EQ(DIGEST_DONE, digest.eEnd);
    EXPECT_EQ(
        "0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a"
        "b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0",
        digest.strKey);
    EXPECT_EQ("cdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd", digest.strSha256);
}

TEST(ProgramDigestTest, WithoutOneThereIsNoText) {
    const ProgramDigest digest;

    EXPECT_EQ(DIGEST_LEFT_OUT, digest.eEnd);
    EXPECT_EQ("", digest.strKey);
    EXPECT_EQ("", digest.strSha256);
}

}  // namespace
