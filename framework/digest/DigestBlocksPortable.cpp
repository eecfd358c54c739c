// Every x86-64 processor.
#include "framework/digest/DigestBlocks.h"
#include "framework/digest/DigestVectorSteps.h"

void utils::DigestBlocksPortable(DigestState& state, const uint8_t* pBlocks, size_t nBlocks) {
    BothBlocks(state, pBlocks, nBlocks);
}
