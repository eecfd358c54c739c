// Both digests for processors without instructions for SHA-1: its message schedule in vectors, its
// steps and those of MD5 in turn, five and four. Included like DigestSteps.h.
#ifndef FRAMEWORK_DIGEST_DIGESTVECTORSTEPS_H
#define FRAMEWORK_DIGEST_DIGESTVECTORSTEPS_H

#include "framework/digest/DigestBlocks.h"
#include "framework/digest/DigestSteps.h"

namespace {

struct Sha1State {
    uint32_t a, b, c, d, e;
};

// The last 32 words of the schedule, and the 16 in use with the round's constant added.
struct Sha1Schedule {
    __m128i words[8];
    alignas(16) uint32_t sums[16];
};

constexpr uint32_t SHA1_CONSTANTS[4] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};

#ifdef DIGEST_SHUFFLE
DIGEST_STEP __m128i SwapBytes(__m128i words) {
    return _mm_shuffle_epi8(words,
                            _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3));
}
// The upper half of low, then the lower half of high.
DIGEST_STEP __m128i Middle(__m128i high, __m128i low) {
    return _mm_alignr_epi8(high, low, 8);
}
#else
DIGEST_STEP __m128i SwapBytes(__m128i words) {
    const __m128i swapped = _mm_or_si128(_mm_slli_epi16(words, 8), _mm_srli_epi16(words, 8));
    return _mm_shufflehi_epi16(_mm_shufflelo_epi16(swapped, 0xb1), 0xb1);
}
DIGEST_STEP __m128i Middle(__m128i high, __m128i low) {
    return _mm_castpd_si128(_mm_shuffle_pd(_mm_castsi128_pd(low), _mm_castsi128_pd(high), 1));
}
#endif

DIGEST_STEP __m128i RotateOne(__m128i words) {
    return _mm_or_si128(_mm_add_epi32(words, words), _mm_srli_epi32(words, 31));
}
DIGEST_STEP __m128i RotateTwo(__m128i words) {
    return _mm_or_si128(_mm_slli_epi32(words, 2), _mm_srli_epi32(words, 30));
}
DIGEST_STEP __m128i Xor(__m128i x, __m128i y, __m128i z) {
    return _mm_xor_si128(x, _mm_xor_si128(y, z));
}

// Words 4 * QUAD to 4 * QUAD + 3. From the 33rd on a word depends on none of its own four.
template <int QUAD>
DIGEST_STEP void Sha1Words(Sha1Schedule& s, const uint8_t* pBlock) {
    __m128i(&x)[8] = s.words;
    __m128i words;
    if constexpr (QUAD < 4) {
        words = SwapBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pBlock + 16 * QUAD)));
    } else if constexpr (QUAD < 8) {
        const __m128i sum =
            _mm_xor_si128(Xor(_mm_srli_si128(x[(QUAD - 1) & 7], 4),
                              Middle(x[(QUAD - 3) & 7], x[(QUAD - 4) & 7]), x[(QUAD - 2) & 7]),
                          x[(QUAD - 4) & 7]);
        // The fourth word needs the first of this quad, rotated once more.
        words = _mm_xor_si128(RotateOne(sum), RotateTwo(_mm_slli_si128(sum, 12)));
    } else {
        words = RotateTwo(_mm_xor_si128(
            Xor(Middle(x[(QUAD - 1) & 7], x[(QUAD - 2) & 7]), x[(QUAD - 4) & 7], x[(QUAD - 7) & 7]),
            x[QUAD & 7]));
    }
    x[QUAD & 7] = words;
    __m128i* const pSums = reinterpret_cast<__m128i*>(s.sums + 4 * (QUAD & 3));
    const __m128i constant = _mm_set1_epi32(static_cast<int>(SHA1_CONSTANTS[QUAD / 5]));
    _mm_store_si128(pSums, _mm_add_epi32(words, constant));
    asm("" : "+m"(*pSums));  // each sum is read from memory by the addition that uses it
}

template <int STEP>
DIGEST_STEP void Sha1Round(uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e,
                           const Sha1Schedule& s) {
    e += s.sums[STEP & 15];
    if constexpr (STEP < 20) {
        e += d ^ (b & (c ^ d));
    } else if constexpr (STEP < 40 || STEP >= 60) {
        e += b ^ c ^ d;
    } else {
        e += (b & c) + (d & (b ^ c));
    }
    e += RotateLeft(a, 5);
    b = RotateLeft(b, 30);
}

template <int STEP>
DIGEST_STEP void Sha1Step(Sha1State& v, const Sha1Schedule& s) {
    if constexpr (STEP % 5 == 0) {
        Sha1Round<STEP>(v.a, v.b, v.c, v.d, v.e, s);
    } else if constexpr (STEP % 5 == 1) {
        Sha1Round<STEP>(v.e, v.a, v.b, v.c, v.d, s);
    } else if constexpr (STEP % 5 == 2) {
        Sha1Round<STEP>(v.d, v.e, v.a, v.b, v.c, s);
    } else if constexpr (STEP % 5 == 3) {
        Sha1Round<STEP>(v.c, v.d, v.e, v.a, v.b, s);
    } else {
        Sha1Round<STEP>(v.b, v.c, v.d, v.e, v.a, s);
    }
}

// One step of SHA-1, four words of its schedule ahead where they are due, one step of MD5.
template <int STEP>
DIGEST_STEP void BothStep(Sha1State& sha1, Md5State& md5, Sha1Schedule& s, const uint8_t* pBlock) {
    Sha1Step<STEP>(sha1, s);
    if constexpr (STEP % 4 == 3 && STEP / 4 + 4 < 20) {
        Sha1Words<STEP / 4 + 4>(s, pBlock);
    }
    if constexpr (STEP % 5 != 4) {
        Md5Step<STEP / 5 * 4 + STEP % 5>(md5, pBlock);
    }
}

template <int FIRST>
DIGEST_STEP void TenSteps(Sha1State& sha1, Md5State& md5, Sha1Schedule& s, const uint8_t* pBlock) {
    BothStep<FIRST>(sha1, md5, s, pBlock);
    BothStep<FIRST + 1>(sha1, md5, s, pBlock);
    BothStep<FIRST + 2>(sha1, md5, s, pBlock);
    BothStep<FIRST + 3>(sha1, md5, s, pBlock);
    BothStep<FIRST + 4>(sha1, md5, s, pBlock);
    BothStep<FIRST + 5>(sha1, md5, s, pBlock);
    BothStep<FIRST + 6>(sha1, md5, s, pBlock);
    BothStep<FIRST + 7>(sha1, md5, s, pBlock);
    BothStep<FIRST + 8>(sha1, md5, s, pBlock);
    BothStep<FIRST + 9>(sha1, md5, s, pBlock);
}

DIGEST_STEP void BothBlocks(utils::DigestState& state, const uint8_t* pBlock, size_t nBlocks) {
    Md5State md5 = {state.md5[0], state.md5[1], state.md5[2], state.md5[3]};
    Sha1State sha1 = {state.sha1[0], state.sha1[1], state.sha1[2], state.sha1[3], state.sha1[4]};
    Sha1Schedule s;
    for (; nBlocks > 0; --nBlocks, pBlock += 64) {
        const Md5State oldMd5 = md5;
        const Sha1State oldSha1 = sha1;
        Sha1Words<0>(s, pBlock);
        Sha1Words<1>(s, pBlock);
        Sha1Words<2>(s, pBlock);
        Sha1Words<3>(s, pBlock);
        TenSteps<0>(sha1, md5, s, pBlock);
        TenSteps<10>(sha1, md5, s, pBlock);
        TenSteps<20>(sha1, md5, s, pBlock);
        TenSteps<30>(sha1, md5, s, pBlock);
        TenSteps<40>(sha1, md5, s, pBlock);
        TenSteps<50>(sha1, md5, s, pBlock);
        TenSteps<60>(sha1, md5, s, pBlock);
        TenSteps<70>(sha1, md5, s, pBlock);
        md5 = {md5.a + oldMd5.a, md5.b + oldMd5.b, md5.c + oldMd5.c, md5.d + oldMd5.d};
        sha1 = {sha1.a + oldSha1.a, sha1.b + oldSha1.b, sha1.c + oldSha1.c, sha1.d + oldSha1.d,
                sha1.e + oldSha1.e};
    }
    state = {{md5.a, md5.b, md5.c, md5.d}, {sha1.a, sha1.b, sha1.c, sha1.d, sha1.e}};
}

}  // namespace

#endif
