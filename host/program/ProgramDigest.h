// What the digests of a program are, as bytes to keep and as text to show and to look up.
//
// Threads: any. Errors: none but std::bad_alloc.
#ifndef HOST_PROGRAM_PROGRAMDIGEST_H
#define HOST_PROGRAM_PROGRAMDIGEST_H

#include <array>
#include <cstdint>
#include <string>

enum DigestEnd {
    DIGEST_DONE,        // of the version that was started
    DIGEST_CHANGED,     // the file may have been written to after its start
    DIGEST_UNREADABLE,  // it cannot be read
    DIGEST_TOO_LARGE,   // above utils::HASH_SIZE_LIMIT, or without a size and above its limit
    DIGEST_LEFT_OUT,    // too many waited, or the run has ended
};

struct ProgramDigest {
    DigestEnd eEnd = DIGEST_LEFT_OUT;
    // Lower case; "" unless done, or changed: then of what the file holds now.
    std::string strKey;  // SHA-1 and MD5 one after the other
    std::string strSha256;
};

struct DigestBytes {
    std::array<uint8_t, 20> sha1 = {};
    std::array<uint8_t, 16> md5 = {};
    std::array<uint8_t, 32> sha256 = {};

    ProgramDigest Text() const;  // DIGEST_DONE
};

#endif
