#include "host/program/ProgramDigest.h"

#include <cstddef>

namespace {

template <size_t N>
void AppendHex(std::string& strText, const std::array<uint8_t, N>& bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    for (const uint8_t nByte : bytes) {
        strText += DIGITS[nByte >> 4];
        strText += DIGITS[nByte & 0x0f];
    }
}

}  // namespace

ProgramDigest DigestBytes::Text() const {
    ProgramDigest digest;
    digest.eEnd = DIGEST_DONE;
    digest.strKey.reserve(2 * (sha1.size() + md5.size()));
    AppendHex(digest.strKey, sha1);
    AppendHex(digest.strKey, md5);
    digest.strSha256.reserve(2 * sha256.size());
    AppendHex(digest.strSha256, sha256);
    return digest;
}
