// Base64 of any bytes comes back; any text decodes to no more than three bytes for four characters.
#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/base/Base64Util.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const std::string strData(reinterpret_cast<const char*>(pData), nSize);
    Require(Base64Util::Base64Decode(Base64Util::Base64Encode(strData)) == strData);
    Require(Base64Util::Base64Decode(strData).size() <= nSize / 4 * 3 + 2);
    return 0;
}
