#include "framework/digest/DigestPair.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "framework/digest/FileHash.h"
#include "tests/support/TestDir.h"

namespace {

using utils::CDigestPair;
using utils::DigestPath;

std::string Hex(const unsigned char* pBytes, size_t nBytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string strText;
    for (size_t i = 0; i < nBytes; ++i) {
        strText += DIGITS[pBytes[i] >> 4];
        strText += DIGITS[pBytes[i] & 15];
    }
    return strText;
}

// MD5, a blank, SHA-1.
std::string EndOf(CDigestPair& pair) {
    unsigned char md5[CDigestPair::MD5_SIZE];
    unsigned char sha1[CDigestPair::SHA1_SIZE];
    return pair.End(md5, sha1) ? Hex(md5, sizeof(md5)) + " " + Hex(sha1, sizeof(sha1)) : "failed";
}

std::string DigestsOf(DigestPath ePath, const void* pBytes, size_t nBytes) {
    CDigestPair pair(ePath);
    return pair.Add(pBytes, nBytes) ? EndOf(pair) : "failed";
}

std::string Expected(const void* pBytes, size_t nBytes) {
    std::string strText;
    for (const EVP_MD* pAlgorithm : {EVP_md5(), EVP_sha1()}) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int nSize = 0;
        EXPECT_EQ(1, EVP_Digest(pBytes, nBytes, digest, &nSize, pAlgorithm, nullptr));
        strText += (strText.empty() ? "" : " ") + Hex(digest, nSize);
    }
    return strText;
}

std::vector<unsigned char> RandomBytes(size_t nBytes) {
    std::mt19937 random(20251121);
    std::vector<unsigned char> bytes(nBytes);
    std::generate(bytes.begin(), bytes.end(),
                  [&random] { return static_cast<unsigned char>(random()); });
    return bytes;
}

std::vector<DigestPath> AllPaths() {
    return {utils::DIGEST_PATH_LIBRARY, utils::DIGEST_PATH_PORTABLE, utils::DIGEST_PATH_AVX2,
            utils::DIGEST_PATH_SHA};
}

// Answers wrongly, as a broken processor would.
void BrokenBlocks(utils::DigestState& state, const uint8_t* /*pBlocks*/, size_t nBlocks) {
    state.md5[0] += static_cast<uint32_t>(nBlocks);
}

class DigestPairTest : public testing::TestWithParam<DigestPath> {
protected:
    void SetUp() override {
        if (!utils::DigestPathRuns(GetParam())) {
            GTEST_SKIP() << "this processor lacks what the path needs";
        }
    }
};

std::string PathName(const testing::TestParamInfo<DigestPath>& info) {
    return utils::DigestPathName(info.param);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Path, DigestPairTest, testing::ValuesIn(AllPaths()), PathName);

TEST_P(DigestPairTest, GivesThePublishedDigests) {
    const auto digests = [](const std::string& strText) {
        return DigestsOf(GetParam(), strText.data(), strText.size());
    };

    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e da39a3ee5e6b4b0d3255bfef95601890afd80709",
              digests(""));
    EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661 86f7e437faa5a7fce15d1ddcb9eaeaea377667b8",
              digests("a"));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72 a9993e364706816aba3e25717850c26c9cd0d89d",
              digests("abc"));
    EXPECT_EQ("8215ef0796a20bcaaae116d3876c664a 84983e441c3bd26ebaae4aa1f95129e5e54670f1",
              digests("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ("7707d6ae4e027c70eea2a935c2296f21 34aa973cd4c4daa4f61eeb2bdbad27316534016f",
              digests(std::string(1000000, 'a')));
}

TEST_P(DigestPairTest, EveryLengthUpTo1000GivesWhatTheLibraryGives) {
    const std::vector<unsigned char> bytes = RandomBytes(1000);

    for (size_t nBytes = 0; nBytes <= bytes.size(); ++nBytes) {
        ASSERT_EQ(Expected(bytes.data(), nBytes), DigestsOf(GetParam(), bytes.data(), nBytes))
            << nBytes;
    }
}

TEST_P(DigestPairTest, RandomPiecesAtAnyAlignmentGiveTheDigestsOfTheWhole) {
    const std::vector<unsigned char> bytes = RandomBytes(200000);
    std::mt19937 random(7);

    for (int i = 0; i < 200; ++i) {
        const size_t nBegin = random() % 64;
        const size_t nEnd = nBegin + random() % (i % 2 == 0 ? 1000 : bytes.size() - 64);
        CDigestPair pair(GetParam());
        for (size_t nAt = nBegin; nAt < nEnd;) {
            const size_t nPiece = std::min<size_t>(nEnd - nAt, random() % 300);
            ASSERT_TRUE(pair.Add(bytes.data() + nAt, nPiece));
            nAt += nPiece;
        }
        ASSERT_EQ(Expected(bytes.data() + nBegin, nEnd - nBegin), EndOf(pair))
            << nBegin << " " << nEnd;
    }
}

// The number of bits, which ends the padding, needs more than 32 bits.
TEST_P(DigestPairTest, TheLengthIsCountedBeyond32BitsOfBits) {
    const std::vector<unsigned char> zeros(1024 * 1024);
    CDigestPair pair(GetParam());
    for (int i = 0; i < 512; ++i) {
        ASSERT_TRUE(pair.Add(zeros.data(), zeros.size()));
    }
    ASSERT_TRUE(pair.Add(zeros.data(), 1));

    EXPECT_EQ("ea3b62c6b93cb3625a1fd76777985f5a 3e1bb536d18494c32e66ef9f479d65bbe0d863de",
              EndOf(pair));
}

TEST_P(DigestPairTest, FilesAreHashedOnThePathThatWasSet) {
    TestDir dir;
    const std::vector<unsigned char> bytes = RandomBytes(150001);
    const std::string strFile = dir.WriteFile("file", std::string(bytes.begin(), bytes.end()));
    std::string strMd5, strSha1;

    utils::SetDigestPath(GetParam());
    const bool bHashed = utils::getMD5AndSHA1(strFile, strMd5, strSha1);
    const DigestPath eUsed = utils::DigestPathInUse();
    utils::SetDigestPath(utils::DIGEST_PATHS);

    EXPECT_TRUE(bHashed);
    EXPECT_EQ(GetParam(), eUsed);
    EXPECT_EQ(Expected(bytes.data(), bytes.size()), strMd5 + " " + strSha1);
}

TEST(DigestChoiceTest, TheLastPathThatRunsHereIsChosen) {
    utils::SetDigestPath(utils::DIGEST_PATHS);

    const DigestPath eChosen = utils::DigestPathInUse();

    EXPECT_TRUE(utils::DigestPathRuns(eChosen));
    for (int i = eChosen + 1; i < utils::DIGEST_PATHS; ++i) {
        EXPECT_FALSE(utils::DigestPathRuns(static_cast<DigestPath>(i))) << i;
    }
}

TEST(DigestChoiceTest, AfterAWrongAnswerNoPathOfOursIsTrusted) {
    EXPECT_EQ(utils::DIGEST_PATH_LIBRARY,
              utils::ChooseDigestPath({nullptr, BrokenBlocks, nullptr, nullptr}));
    EXPECT_EQ(utils::DIGEST_PATH_LIBRARY,
              utils::ChooseDigestPath({nullptr, nullptr, nullptr, BrokenBlocks}));
}

TEST(DigestChoiceTest, WithoutAPathOfOursTheLibraryIsChosen) {
    EXPECT_EQ(utils::DIGEST_PATH_LIBRARY,
              utils::ChooseDigestPath({nullptr, nullptr, nullptr, nullptr}));
}

// Every path counts in the same lines; the one in use shows it.
TEST(DigestChoiceTest, TheLengthIsCountedBeyond32BitsOfBytes) {
#if (!defined(__OPTIMIZE__) && !defined(NDEBUG)) || defined(__SANITIZE_ADDRESS__) || \
    defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "4 GiB take minutes in a build that is not optimised";
#else
    const std::vector<unsigned char> zeros(1024 * 1024);
    CDigestPair pair;
    for (int i = 0; i < 4096; ++i) {
        ASSERT_TRUE(pair.Add(zeros.data(), zeros.size()));
    }
    ASSERT_TRUE(pair.Add(zeros.data(), 1));

    EXPECT_EQ("f18c798ff5d450dfe4d3acdc12b621ff e7d747b75f76e0e41e83b75bce4642816136304f",
              EndOf(pair));
#endif
}

TEST(DigestChoiceTest, EveryPathHasAName) {
    EXPECT_STREQ("library", utils::DigestPathName(utils::DIGEST_PATH_LIBRARY));
    EXPECT_STREQ("portable", utils::DigestPathName(utils::DIGEST_PATH_PORTABLE));
    EXPECT_STREQ("avx2", utils::DigestPathName(utils::DIGEST_PATH_AVX2));
    EXPECT_STREQ("sha", utils::DigestPathName(utils::DIGEST_PATH_SHA));
    EXPECT_STREQ("", utils::DigestPathName(utils::DIGEST_PATHS));
}
