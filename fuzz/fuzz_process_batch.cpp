// A batch is analysed to its end; it is refused only when it does not parse or has no "param".
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Place.h"
#include "public/pluginhelper/JsonReaders.h"
#include "tevmon/core/CTevPsMonitor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    const std::string strBody(reinterpret_cast<const char*>(pData), nSize);
    Json::Value jsonRoot;
    const bool bTaken = ParseJsonText(strBody, jsonRoot) && JsonHasMember(jsonRoot, "param");
    Require(CTevPsMonitor::Instance()->Run("", strBody) == bTaken);
    return 0;
}
