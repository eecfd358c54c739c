// Processors with instructions for SHA-1: it then vanishes in the gaps of MD5.
#define DIGEST_TARGET __attribute__((target("sha,sse4.1,ssse3,bmi,bmi2")))

#include "framework/digest/DigestBlocks.h"
#include "framework/digest/DigestSteps.h"

namespace {

struct Sha1Vectors {
    __m128i abcd;      // highest word first
    __m128i e;         // in the highest word
    __m128i words[4];  // the last 16 words of the schedule
};

// Steps 4 * QUAD to 4 * QUAD + 3 of SHA-1.
template <int QUAD>
DIGEST_STEP void Sha1Quad(Sha1Vectors& v, const uint8_t* pBlock) {
    __m128i& words = v.words[QUAD & 3];
    if constexpr (QUAD < 4) {
        const __m128i order = _mm_set_epi64x(0x0001020304050607LL, 0x08090a0b0c0d0e0fLL);
        words = _mm_shuffle_epi8(
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(pBlock + 16 * QUAD)), order);
    } else {
        const __m128i sum = _mm_xor_si128(_mm_sha1msg1_epu32(words, v.words[(QUAD + 1) & 3]),
                                          v.words[(QUAD + 2) & 3]);
        words = _mm_sha1msg2_epu32(sum, v.words[(QUAD + 3) & 3]);
    }
    const __m128i input = QUAD == 0 ? _mm_add_epi32(v.e, words) : _mm_sha1nexte_epu32(v.e, words);
    v.e = v.abcd;
    v.abcd = _mm_sha1rnds4_epu32(v.abcd, input, QUAD / 5);
}

// Of the 64 steps of MD5 three or four stand behind each of the 20 quads.
template <int QUAD>
DIGEST_STEP void BothQuad(Sha1Vectors& v, Md5State& md5, const uint8_t* pBlock) {
    constexpr int FIRST = QUAD * 64 / 20;
    constexpr int END = (QUAD + 1) * 64 / 20;
    Sha1Quad<QUAD>(v, pBlock);
    Md5Step<FIRST>(md5, pBlock);
    Md5Step<FIRST + 1>(md5, pBlock);
    Md5Step<FIRST + 2>(md5, pBlock);
    if constexpr (END - FIRST > 3) {
        Md5Step<FIRST + 3>(md5, pBlock);
    }
}

template <int FIRST>
DIGEST_STEP void FiveQuads(Sha1Vectors& v, Md5State& md5, const uint8_t* pBlock) {
    BothQuad<FIRST>(v, md5, pBlock);
    BothQuad<FIRST + 1>(v, md5, pBlock);
    BothQuad<FIRST + 2>(v, md5, pBlock);
    BothQuad<FIRST + 3>(v, md5, pBlock);
    BothQuad<FIRST + 4>(v, md5, pBlock);
}

}  // namespace

DIGEST_TARGET void utils::DigestBlocksSha(DigestState& state, const uint8_t* pBlocks,
                                          size_t nBlocks) {
    Md5State md5 = {state.md5[0], state.md5[1], state.md5[2], state.md5[3]};
    __m128i* const pSha1 = reinterpret_cast<__m128i*>(state.sha1);
    Sha1Vectors v;
    v.abcd = _mm_shuffle_epi32(_mm_loadu_si128(pSha1), 0x1b);
    v.e = _mm_set_epi32(static_cast<int>(state.sha1[4]), 0, 0, 0);
    for (; nBlocks > 0; --nBlocks, pBlocks += 64) {
        const Md5State oldMd5 = md5;
        const __m128i oldAbcd = v.abcd;
        const __m128i oldE = v.e;
        FiveQuads<0>(v, md5, pBlocks);
        FiveQuads<5>(v, md5, pBlocks);
        FiveQuads<10>(v, md5, pBlocks);
        FiveQuads<15>(v, md5, pBlocks);
        md5 = {md5.a + oldMd5.a, md5.b + oldMd5.b, md5.c + oldMd5.c, md5.d + oldMd5.d};
        v.abcd = _mm_add_epi32(v.abcd, oldAbcd);
        v.e = _mm_sha1nexte_epu32(v.e, oldE);
    }
    _mm_storeu_si128(pSha1, _mm_shuffle_epi32(v.abcd, 0x1b));
    state.sha1[4] = static_cast<uint32_t>(_mm_extract_epi32(v.e, 3));
    state.md5[0] = md5.a;
    state.md5[1] = md5.b;
    state.md5[2] = md5.c;
    state.md5[3] = md5.d;
}
