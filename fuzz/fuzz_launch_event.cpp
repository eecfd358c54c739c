// A launch's record of any bytes is decoded whole or refused; what is written of it reads the same.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Require.h"
#include "host/kernel/launch/LaunchEvent.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    LaunchEvent event;
    if (!DecodeLaunch(pData, nSize, event)) {
        return 0;
    }
    Require(event.strPath.size() + event.strCommand.size() <= nSize + 2);
    const std::string strRecord = EncodeLaunch(event);
    LaunchEvent second;
    Require(DecodeLaunch(strRecord.data(), strRecord.size(), second));
    Require(second.nPid == event.nPid && second.eKind == event.eKind);
    return 0;
}
