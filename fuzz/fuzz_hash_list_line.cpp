// A line of a digest list gives a digest of its kind's length with a name, or a reason why not.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/Require.h"
#include "host/verdict/HashListLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const HashListLine line =
        ParseHashListLine(std::string_view(reinterpret_cast<const char*>(pData), nSize));
    switch (line.eKind) {
        case HashListLine::KIND_MD5:
            Require(line.strDigest.size() == 32 && !line.strName.empty());
            break;
        case HashListLine::KIND_SHA1:
            Require(line.strDigest.size() == 40 && !line.strName.empty());
            break;
        case HashListLine::KIND_BAD:
            Require(!line.strProblem.empty());
            break;
        default:
            break;
    }
    return 0;
}
