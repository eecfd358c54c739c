// MD5 and SHA-1 over whole blocks, both in one go. MD5 alone leaves half of a processor idle: each
// of its steps waits for the one before. The steps of SHA-1 fill the gaps.
//
// The functions take nBlocks blocks of 64 bytes at pBlocks, at any alignment, and bring both states
// forward. A path may be called only where DigestPathRuns says so.
//
// Threads: any; no state of their own. Errors: none.
#ifndef FRAMEWORK_DIGEST_DIGESTBLOCKS_H
#define FRAMEWORK_DIGEST_DIGESTBLOCKS_H

#include <cstddef>
#include <cstdint>

namespace utils {

struct DigestState {
    uint32_t md5[4];
    uint32_t sha1[5];
};

using DigestBlocksFn = void (*)(DigestState& state, const uint8_t* pBlocks, size_t nBlocks);

void DigestBlocksPortable(DigestState& state, const uint8_t* pBlocks, size_t nBlocks);
void DigestBlocksAvx2(DigestState& state, const uint8_t* pBlocks, size_t nBlocks);
void DigestBlocksSha(DigestState& state, const uint8_t* pBlocks, size_t nBlocks);

}  // namespace utils

#endif
