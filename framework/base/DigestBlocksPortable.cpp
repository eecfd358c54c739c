// Every x86-64 processor.
#include "framework/base/DigestBlocks.h"
#include "framework/base/DigestVectorSteps.h"

void utils::DigestBlocksPortable(DigestState& state, const uint8_t* pBlocks, size_t nBlocks) {
    BothBlocks(state, pBlocks, nBlocks);
}
