// The steps that the paths of DigestBlocks.h are made of. Included by one source per path, which
// may define DIGEST_TARGET, the processor features of all its functions, and, where bytes of a
// vector can be shuffled, DIGEST_SHUFFLE.
//
// State stands in single variables and every loop is written out: in arrays and loops the compiler
// keeps it in memory.
#ifndef FRAMEWORK_DIGEST_DIGESTSTEPS_H
#define FRAMEWORK_DIGEST_DIGESTSTEPS_H

#include <immintrin.h>

#include <cstdint>
#include <cstring>

#ifndef DIGEST_TARGET
#define DIGEST_TARGET  // what every x86-64 processor has
#endif
#define DIGEST_STEP inline __attribute__((always_inline)) DIGEST_TARGET

namespace {

struct Md5State {
    uint32_t a, b, c, d;
};

// floor(2^32 * |sin(i + 1)|)
constexpr uint32_t MD5_CONSTANTS[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};
constexpr int MD5_ROTATIONS[16] = {7, 12, 17, 22, 5, 9, 14, 20, 4, 11, 16, 23, 6, 10, 15, 21};

DIGEST_STEP uint32_t RotateLeft(uint32_t nValue, int nBits) {
    return (nValue << nBits) | (nValue >> (32 - nBits));
}

template <int STEP>
DIGEST_STEP void Md5Round(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, const uint8_t* pBlock) {
    constexpr int ROUND = STEP / 16;
    constexpr int FACTORS[4] = {1, 5, 3, 7};
    constexpr int OFFSETS[4] = {0, 1, 5, 0};
    constexpr int WORD = (FACTORS[ROUND] * STEP + OFFSETS[ROUND]) & 15;
    uint32_t nWord;
    std::memcpy(&nWord, pBlock + 4 * WORD, sizeof(nWord));
    uint32_t nSum = a + nWord + MD5_CONSTANTS[STEP];
    // The empty statements keep the compiler from joining what is split here so that only one
    // operation waits for b, which the step before has just made.
    if constexpr (ROUND == 0) {
        nSum += d ^ (b & (c ^ d));
    } else if constexpr (ROUND == 1) {
        nSum += c & ~d;
        asm("" : "+r"(nSum));
        nSum += b & d;
    } else if constexpr (ROUND == 2) {
        uint32_t nOthers = c ^ d;
        asm("" : "+r"(nOthers));
        nSum += b ^ nOthers;
    } else {
        nSum += c ^ (b | ~d);
    }
    a = RotateLeft(nSum, MD5_ROTATIONS[ROUND * 4 + STEP % 4]) + b;
}

template <int STEP>
DIGEST_STEP void Md5Step(Md5State& s, const uint8_t* pBlock) {
    if constexpr (STEP % 4 == 0) {
        Md5Round<STEP>(s.a, s.b, s.c, s.d, pBlock);
    } else if constexpr (STEP % 4 == 1) {
        Md5Round<STEP>(s.d, s.a, s.b, s.c, pBlock);
    } else if constexpr (STEP % 4 == 2) {
        Md5Round<STEP>(s.c, s.d, s.a, s.b, pBlock);
    } else {
        Md5Round<STEP>(s.b, s.c, s.d, s.a, pBlock);
    }
}

}  // namespace

#endif
