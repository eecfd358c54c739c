// A list of digests of any bytes is read or refused with its reason.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Place.h"
#include "host/verdict/HashListSource.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    std::ofstream("list", std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(pData), static_cast<std::streamsize>(nSize));
    std::string strError;
    const auto pSource = HashListSource::Load("list", 70, strError);
    Require(pSource != nullptr ? pSource->Count() <= nSize : !strError.empty());
    return 0;
}
