// A cloud's answer records at most one verdict, and changes none that is there.
#include <cstddef>
#include <cstdint>

#include "fuzz/Place.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevMonIpcRecever.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    static CTevMonIpcRecever recever;
    static CTevCloudCachoDB store;
    CTevCloudCachoMgr* pCache = CTevCloudCachoMgr::Instance();
    (void)store.Clear();
    (void)pCache->Record("known", 70, -1, 5, "detail");
    const Guid sender = {};
    (void)recever.ReceiveCallback(&sender, 20003, pData, static_cast<uint32_t>(nSize), nullptr, 0);
    CachoRecord record;
    Require(store.Select("known", record) == 1 && record.nLevel == 70);
    Require(store.Count() <= 2);
    return 0;
}
