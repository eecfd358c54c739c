// A recording of any bytes is read to its end; every line is a batch or counted as unusable.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Place.h"
#include "host/event/ReplaySource.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    std::ofstream("recording", std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(pData), static_cast<std::streamsize>(nSize));
    ReplaySource source("recording", [](uint64_t, const std::string&) {});
    std::string strError;
    Require(source.Start(strError));
    EventBatch batch;
    uint64_t nBatches = 0;
    while (source.Next(batch, std::chrono::milliseconds(1000)) == SOURCE_BATCH) {
        ++nBatches;
    }
    Require(nBatches == source.Counters().nBatches);
    Require(nBatches + source.Counters().nUnusable <= nSize + 1);
    return 0;
}
