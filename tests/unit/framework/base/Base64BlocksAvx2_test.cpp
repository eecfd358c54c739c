#include "framework/base/Base64Blocks.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> Random(size_t nBytes) {
    static std::mt19937 s_random(64);
    std::vector<unsigned char> bytes(nBytes);
    for (unsigned char& nByte : bytes) {
        nByte = static_cast<unsigned char>(s_random());
    }
    return bytes;
}

std::string ByLibrary(const std::vector<unsigned char>& bytes) {
    std::string strText((bytes.size() + 2) / 3 * 4 + 1, '\0');
    strText.resize(
        static_cast<size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(strText.data()),
                                            bytes.data(), static_cast<int>(bytes.size()))));
    return strText;
}

// What the blocks of strText decode to; room beyond what a text needs would hide a write past it.
std::vector<unsigned char> Decoded(const std::string& strText, size_t& nChars) {
    std::vector<unsigned char> bytes(strText.size() / 4 * 3);
    nChars = utils::DecodeBase64Blocks(strText.data(), strText.size(), bytes.data());
    bytes.resize(nChars / 4 * 3);
    return bytes;
}

}  // namespace

class Base64BlocksTest : public testing::Test {
protected:
    void SetUp() override {
        if (!utils::HasBase64Blocks()) {
            GTEST_SKIP() << "this processor has no AVX2";
        }
    }
};

TEST_F(Base64BlocksTest, EveryLengthIsEncodedAsTheLibraryDoesUpToTheRest) {
    for (size_t nBytes = 0; nBytes <= 1000; ++nBytes) {
        const std::vector<unsigned char> bytes = Random(nBytes);
        std::string strText((nBytes + 2) / 3 * 4, '\0');

        const size_t nDone = utils::EncodeBase64Blocks(bytes.data(), nBytes, strText.data());

        ASSERT_EQ(0u, nDone % 24);
        ASSERT_LT(nBytes - nDone, 28u);
        ASSERT_EQ(ByLibrary(bytes).substr(0, nDone / 3 * 4), strText.substr(0, nDone / 3 * 4));
    }
}

TEST_F(Base64BlocksTest, EveryLengthIsDecodedUpToTheRest) {
    for (size_t nBytes = 0; nBytes <= 1000; ++nBytes) {
        std::vector<unsigned char> bytes = Random(nBytes);
        const std::string strText = ByLibrary(bytes);
        size_t nChars = 0;

        const std::vector<unsigned char> decoded = Decoded(strText, nChars);

        ASSERT_EQ(0u, nChars % 32);
        ASSERT_LT(strText.size() - nChars, 44u);
        bytes.resize(decoded.size());
        ASSERT_EQ(bytes, decoded);
    }
}

TEST_F(Base64BlocksTest, AForeignByteAnywhereStopsInFrontOfItsBlock) {
    const std::string ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int nByte = 0; nByte < 256; ++nByte) {
        const bool bForeign = ALPHABET.find(static_cast<char>(nByte)) == std::string::npos;
        for (size_t nPlace = 0; nPlace < 64; ++nPlace) {
            std::string strText(128, 'Q');
            strText[nPlace] = static_cast<char>(nByte);
            size_t nChars = 0;

            (void)Decoded(strText, nChars);

            ASSERT_EQ(bForeign ? nPlace / 32 * 32 : 96u, nChars) << nByte << " " << nPlace;
        }
    }
}
