#include <immintrin.h>

#include "framework/base/Base64Blocks.h"

#define BASE64_TARGET __attribute__((target("avx2")))

namespace {

// The same 16 bytes in both halves.
BASE64_TARGET __m256i Both(__m128i bytes) {
    return _mm256_broadcastsi128_si256(bytes);
}

// Each 32 bits: four sextets, one a byte, of three bytes that stand as 1 0 2 1.
BASE64_TARGET __m256i Sextets(__m256i bytes) {
    const __m256i outer = _mm256_mulhi_epu16(_mm256_and_si256(bytes, _mm256_set1_epi32(0x0fc0fc00)),
                                             _mm256_set1_epi32(0x04000040));
    const __m256i inner = _mm256_mullo_epi16(_mm256_and_si256(bytes, _mm256_set1_epi32(0x003f03f0)),
                                             _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(outer, inner);
}

// The distance from a sextet to its character, by the range that the sextet is in: 13 for capitals,
// 0 for small letters, 1 to 10 for digits, 11 and 12 for the two signs.
BASE64_TARGET __m256i Characters(__m256i sextets) {
    const __m256i distances =
        Both(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                           '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    const __m256i capitals = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), sextets);
    const __m256i ranges = _mm256_or_si256(_mm256_subs_epu8(sextets, _mm256_set1_epi8(51)),
                                           _mm256_and_si256(capitals, _mm256_set1_epi8(13)));
    return _mm256_add_epi8(sextets, _mm256_shuffle_epi8(distances, ranges));
}

// A character is foreign when the bits of its two halves meet.
BASE64_TARGET bool AllOfTheAlphabet(__m256i text, __m256i upper) {
    const __m256i lowerBits = Both(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                 0x11, 0x11, 0x13, 0x1a, 0x1b, 0x1b, 0x1b, 0x1a));
    const __m256i upperBits = Both(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                                 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10));
    const __m256i lower = _mm256_and_si256(text, _mm256_set1_epi8(0x0f));
    return _mm256_testz_si256(_mm256_shuffle_epi8(lowerBits, lower),
                              _mm256_shuffle_epi8(upperBits, upper)) != 0;
}

BASE64_TARGET __m256i Values(__m256i text, __m256i upper) {
    const __m256i distances =
        Both(_mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0));
    const __m256i slashes = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('/'));
    return _mm256_add_epi8(text, _mm256_shuffle_epi8(distances, _mm256_add_epi8(slashes, upper)));
}

}  // namespace

bool utils::HasBase64Blocks() {
    return __builtin_cpu_supports("avx2") != 0;
}

BASE64_TARGET size_t utils::EncodeBase64Blocks(const unsigned char* pData, size_t nBytes,
                                               char* pText) {
    constexpr size_t BLOCK = 24;
    constexpr size_t LOOKED_AT = 28;
    const __m256i order = Both(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    size_t nDone = 0;
    for (; nBytes - nDone >= LOOKED_AT; nDone += BLOCK) {
        const auto* pLow = reinterpret_cast<const __m128i*>(pData + nDone);
        const auto* pHigh = reinterpret_cast<const __m128i*>(pData + nDone + BLOCK / 2);
        const __m256i bytes = _mm256_set_m128i(_mm_loadu_si128(pHigh), _mm_loadu_si128(pLow));
        const __m256i text = Characters(Sextets(_mm256_shuffle_epi8(bytes, order)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pText + nDone / 3 * 4), text);
    }
    return nDone;
}

BASE64_TARGET size_t utils::DecodeBase64Blocks(const char* pText, size_t nChars,
                                               unsigned char* pData) {
    constexpr size_t BLOCK = 32;
    constexpr size_t ROOM_NEEDED = 44;  // 33 bytes, of which a block writes 32 and fills 24
    const __m256i order =
        Both(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    const __m256i together = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7);
    size_t nDone = 0;
    for (; nChars - nDone >= ROOM_NEEDED; nDone += BLOCK) {
        const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pText + nDone));
        const __m256i upper = _mm256_and_si256(_mm256_srli_epi32(text, 4), _mm256_set1_epi8(0x0f));
        if (!AllOfTheAlphabet(text, upper)) {
            break;
        }
        const __m256i pairs =
            _mm256_maddubs_epi16(Values(text, upper), _mm256_set1_epi32(0x01400140));
        const __m256i triples = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
        const __m256i bytes =
            _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(triples, order), together);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pData + nDone / 4 * 3), bytes);
    }
    return nDone;
}
