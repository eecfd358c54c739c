#include "framework/digest/DigestPair.h"

#include <cpuid.h>
#include <openssl/evp.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>

namespace utils {

namespace {

constexpr DigestState BEGIN = {{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476},
                               {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0}};

constexpr DigestBlocksFn PATHS[DIGEST_PATHS] = {nullptr, DigestBlocksPortable, DigestBlocksAvx2,
                                                DigestBlocksSha};

// The two algorithms, fetched once and kept until the process ends: fetching costs more than
// hashing a small file. In a library context of their own neither the host's OpenSSL
// configuration (one that allows no MD5, say) nor OpenSSL's clean-up at exit touches them.
struct Algorithms {
    OSSL_LIB_CTX* pLibrary = nullptr;
    EVP_MD* pMd5 = nullptr;
    EVP_MD* pSha1 = nullptr;
};

// Both, or neither when memory is short; then the next call tries again.
Algorithms FetchedAlgorithms() {
    static std::mutex s_mutex;  // constant-initialised, trivially destroyed
    static Algorithms s_algorithms;
    const std::lock_guard<std::mutex> lock(s_mutex);
    Algorithms& a = s_algorithms;
    if (a.pLibrary != nullptr) {
        return a;
    }
    a.pLibrary = OSSL_LIB_CTX_new();
    if (a.pLibrary != nullptr) {
        a.pMd5 = EVP_MD_fetch(a.pLibrary, "MD5", nullptr);
        a.pSha1 = EVP_MD_fetch(a.pLibrary, "SHA1", nullptr);
    }
    if (a.pMd5 == nullptr || a.pSha1 == nullptr) {
        EVP_MD_free(a.pMd5);
        EVP_MD_free(a.pSha1);
        OSSL_LIB_CTX_free(a.pLibrary);
        a = Algorithms();
    }
    return a;
}

void PutNumber(uint8_t* pBytes, size_t nSize, uint64_t nValue, bool bBigEndian) {
    for (size_t i = 0; i < nSize; ++i) {
        const size_t nShift = 8 * (bBigEndian ? nSize - 1 - i : i);
        pBytes[i] = static_cast<uint8_t>(nValue >> nShift);
    }
}

// A text with published digests, long enough for its padding to need a second block.
constexpr char CHECK_TEXT[] = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
constexpr unsigned char CHECK_MD5[] = {0x82, 0x15, 0xef, 0x07, 0x96, 0xa2, 0x0b, 0xca,
                                       0xaa, 0xe1, 0x16, 0xd3, 0x87, 0x6c, 0x66, 0x4a};
constexpr unsigned char CHECK_SHA1[] = {0x84, 0x98, 0x3e, 0x44, 0x1c, 0x3b, 0xd2, 0x6e, 0xba, 0xae,
                                        0x4a, 0xa1, 0xf9, 0x51, 0x29, 0xe5, 0xe5, 0x46, 0x70, 0xf1};

bool GivesKnownAnswer(DigestBlocksFn fnBlocks) {
    unsigned char md5[CDigestPair::MD5_SIZE];
    unsigned char sha1[CDigestPair::SHA1_SIZE];
    CDigestPair pair(fnBlocks);
    return pair.Add(CHECK_TEXT, sizeof(CHECK_TEXT) - 1) && pair.End(md5, sha1) &&
           std::memcmp(md5, CHECK_MD5, sizeof(md5)) == 0 &&
           std::memcmp(sha1, CHECK_SHA1, sizeof(sha1)) == 0;
}

bool HasShaInstructions() {
    constexpr unsigned SHA_BIT = 1U << 29;
    unsigned nA = 0, nB = 0, nC = 0, nD = 0;
    return __get_cpuid_count(7, 0, &nA, &nB, &nC, &nD) != 0 && (nB & SHA_BIT) != 0;
}

// Constant-initialised: a first use from an initialiser of another library finds it ready. Two
// first calls at once come to the same answer.
std::atomic<int> g_nPath{DIGEST_PATHS};  // DIGEST_PATHS: not chosen yet
std::atomic<DigestFaultFn> g_fnOnFault{nullptr};

}  // namespace

const char* DigestPathName(DigestPath ePath) {
    constexpr const char* NAMES[] = {"library", "portable", "avx2", "sha", ""};
    return NAMES[ePath < DIGEST_PATHS ? ePath : DIGEST_PATHS];
}

bool DigestPathRuns(DigestPath ePath) {
    switch (ePath) {
        case DIGEST_PATH_LIBRARY:
        case DIGEST_PATH_PORTABLE:
            return true;
        case DIGEST_PATH_AVX2:
            return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                   __builtin_cpu_supports("bmi2");
        case DIGEST_PATH_SHA:
            return HasShaInstructions() && __builtin_cpu_supports("ssse3") &&
                   __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("bmi") &&
                   __builtin_cpu_supports("bmi2");
        default:
            return false;
    }
}

DigestPath ChooseDigestPath(const DigestBlocksFn (&paths)[DIGEST_PATHS]) {
    for (int i = DIGEST_PATHS - 1; i > DIGEST_PATH_LIBRARY; --i) {
        const auto ePath = static_cast<DigestPath>(i);
        if (paths[i] != nullptr && GivesKnownAnswer(paths[i])) {
            return ePath;
        }
        if (paths[i] != nullptr) {
            const DigestFaultFn fnOnFault = g_fnOnFault;
            if (fnOnFault != nullptr) {
                fnOnFault(DigestPathName(ePath));
            }
            break;
        }
    }
    return DIGEST_PATH_LIBRARY;
}

void SetDigestFaultHandler(DigestFaultFn fnOnFault) {
    g_fnOnFault = fnOnFault;
}

DigestPath DigestPathInUse() {
    if (g_nPath == DIGEST_PATHS) {
        DigestBlocksFn paths[DIGEST_PATHS];
        for (int i = 0; i < DIGEST_PATHS; ++i) {
            paths[i] = DigestPathRuns(static_cast<DigestPath>(i)) ? PATHS[i] : nullptr;
        }
        g_nPath = ChooseDigestPath(paths);
    }
    return static_cast<DigestPath>(g_nPath.load());
}

void SetDigestPath(DigestPath ePath) {
    g_nPath = ePath;
}

struct CDigestPair::Library {
    EVP_MD_CTX* pMd5;
    EVP_MD_CTX* pSha1;
};

CDigestPair::CDigestPair(DigestPath ePath) : CDigestPair(PATHS[ePath]) {}

CDigestPair::CDigestPair(DigestBlocksFn fnBlocks) : m_fnBlocks(fnBlocks), m_state(BEGIN) {
    if (m_fnBlocks != nullptr) {
        return;
    }
    const Algorithms algorithms = FetchedAlgorithms();
    m_pLibrary = new (std::nothrow) Library{EVP_MD_CTX_new(), EVP_MD_CTX_new()};
    m_bGood = algorithms.pMd5 != nullptr && m_pLibrary != nullptr && m_pLibrary->pMd5 != nullptr &&
              m_pLibrary->pSha1 != nullptr &&
              EVP_DigestInit_ex2(m_pLibrary->pMd5, algorithms.pMd5, nullptr) == 1 &&
              EVP_DigestInit_ex2(m_pLibrary->pSha1, algorithms.pSha1, nullptr) == 1;
}

CDigestPair::~CDigestPair() {
    if (m_pLibrary != nullptr) {
        EVP_MD_CTX_free(m_pLibrary->pMd5);
        EVP_MD_CTX_free(m_pLibrary->pSha1);
        delete m_pLibrary;
    }
}

bool CDigestPair::Add(const void* pBytes, size_t nBytes) {
    if (m_fnBlocks == nullptr) {
        m_bGood = m_bGood && EVP_DigestUpdate(m_pLibrary->pMd5, pBytes, nBytes) == 1 &&
                  EVP_DigestUpdate(m_pLibrary->pSha1, pBytes, nBytes) == 1;
        return m_bGood;
    }
    const auto* pNext = static_cast<const uint8_t*>(pBytes);
    const size_t nHeld = m_nBytes % BLOCK_SIZE;
    m_nBytes += nBytes;
    if (nHeld > 0) {
        const size_t nTaken = std::min(nBytes, BLOCK_SIZE - nHeld);
        std::copy_n(pNext, nTaken, m_rest + nHeld);
        pNext += nTaken;
        nBytes -= nTaken;
        if (nHeld + nTaken < BLOCK_SIZE) {
            return true;
        }
        m_fnBlocks(m_state, m_rest, 1);
    }
    m_fnBlocks(m_state, pNext, nBytes / BLOCK_SIZE);
    std::copy_n(pNext + nBytes / BLOCK_SIZE * BLOCK_SIZE, nBytes % BLOCK_SIZE, m_rest);
    return true;
}

// The state after the padding, which ends in the number of bits: the two digests write it in
// opposite orders, so each needs a padding of its own.
DigestState CDigestPair::Padded(bool bBigEndian) const {
    constexpr size_t NUMBER_SIZE = 8;
    uint8_t tail[2 * BLOCK_SIZE] = {};
    const size_t nHeld = m_nBytes % BLOCK_SIZE;
    std::copy_n(m_rest, nHeld, tail);
    tail[nHeld] = 0x80;
    const size_t nBlocks = nHeld + 1 + NUMBER_SIZE <= BLOCK_SIZE ? 1 : 2;
    PutNumber(tail + nBlocks * BLOCK_SIZE - NUMBER_SIZE, NUMBER_SIZE, m_nBytes * 8, bBigEndian);
    DigestState state = m_state;
    m_fnBlocks(state, tail, nBlocks);
    return state;
}

bool CDigestPair::End(unsigned char* pMd5, unsigned char* pSha1) {
    if (m_fnBlocks == nullptr) {
        m_bGood = m_bGood && EVP_DigestFinal_ex(m_pLibrary->pMd5, pMd5, nullptr) == 1 &&
                  EVP_DigestFinal_ex(m_pLibrary->pSha1, pSha1, nullptr) == 1;
        return m_bGood;
    }
    const DigestState md5 = Padded(false);
    const DigestState sha1 = Padded(true);
    for (size_t i = 0; i < MD5_SIZE / 4; ++i) {
        PutNumber(pMd5 + 4 * i, 4, md5.md5[i], false);
    }
    for (size_t i = 0; i < SHA1_SIZE / 4; ++i) {
        PutNumber(pSha1 + 4 * i, 4, sha1.sha1[i], true);
    }
    return true;
}

}  // namespace utils
