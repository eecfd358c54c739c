// Processors with AVX2 and BMI2, which spare many copies of registers.
#define DIGEST_TARGET __attribute__((target("avx2,bmi,bmi2")))
#define DIGEST_SHUFFLE

#include "framework/digest/DigestBlocks.h"
#include "framework/digest/DigestVectorSteps.h"

DIGEST_TARGET void utils::DigestBlocksAvx2(DigestState& state, const uint8_t* pBlocks,
                                           size_t nBlocks) {
    BothBlocks(state, pBlocks, nBlocks);
}
