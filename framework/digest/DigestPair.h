// MD5 and SHA-1 of one stream of bytes, by the fastest path of this processor.
//
// Threads: any, one object on one thread. Errors: nothing throws. Only the library's path can fail,
// for want of memory or of an algorithm; the others cannot.
#ifndef FRAMEWORK_DIGEST_DIGESTPAIR_H
#define FRAMEWORK_DIGEST_DIGESTPAIR_H

#include <cstddef>
#include <cstdint>

#include "framework/abi/Export.h"
#include "framework/digest/DigestBlocks.h"

namespace utils {

enum DigestPath {
    DIGEST_PATH_LIBRARY,   // OpenSSL, one digest after the other
    DIGEST_PATH_PORTABLE,  // the others: both at once
    DIGEST_PATH_AVX2,
    DIGEST_PATH_SHA,
    DIGEST_PATHS
};

// For people: "library", "portable", "avx2", "sha".
HOSTFRAMEWORK_API const char* DigestPathName(DigestPath ePath);

// Whether this processor has what the path needs.
HOSTFRAMEWORK_API bool DigestPathRuns(DigestPath ePath);

// What getMD5AndSHA1 works with: the last in the list above that runs here, provided it gives a
// known answer; the library otherwise. Chosen at the first call.
HOSTFRAMEWORK_API DigestPath DigestPathInUse();

// [before other threads use digests] ePath from now on; DIGEST_PATHS chooses anew.
HOSTFRAMEWORK_API void SetDigestPath(DigestPath ePath);

// How that choice is made; paths has a function for each path but the library's, null for one that
// does not run here. A wrong answer means a broken processor or build: no path of ours is trusted
// then, and the fault handler is called.
HOSTFRAMEWORK_API DigestPath ChooseDigestPath(const DigestBlocksFn (&paths)[DIGEST_PATHS]);

// Who learns of a wrong answer, with the name of the path; the log sets it when it is loaded.
using DigestFaultFn = void (*)(const char* pszPath);
void SetDigestFaultHandler(DigestFaultFn fnOnFault);

class HOSTFRAMEWORK_API CDigestPair {
public:
    static constexpr size_t MD5_SIZE = 16;
    static constexpr size_t SHA1_SIZE = 20;

    CDigestPair() : CDigestPair(DigestPathInUse()) {}
    explicit CDigestPair(DigestPath ePath);         // one that runs here
    explicit CDigestPair(DigestBlocksFn fnBlocks);  // null for the library's path
    ~CDigestPair();

    CDigestPair(const CDigestPair&) = delete;
    CDigestPair& operator=(const CDigestPair&) = delete;

    // False when the library cannot work; End is then false as well.
    bool Add(const void* pBytes, size_t nBytes);
    // Once, at the end: fills md5 and sha1.
    bool End(unsigned char* pMd5, unsigned char* pSha1);

private:
    static constexpr size_t BLOCK_SIZE = 64;
    struct Library;

    DigestState Padded(bool bBigEndian) const;

    const DigestBlocksFn m_fnBlocks;
    Library* m_pLibrary = nullptr;
    bool m_bGood = true;
    DigestState m_state;
    uint64_t m_nBytes = 0;
    uint8_t m_rest[BLOCK_SIZE];  // m_nBytes % BLOCK_SIZE bytes that fill no block yet
};

}  // namespace utils

#endif
