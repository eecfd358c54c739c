// Any bytes as the cache's database: opened, asked, recorded into and scanned without harm.
#include <cstddef>
#include <cstdint>

#include "fuzz/Place.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

namespace {

class Cache : public CTevCloudCachoMgr {
public:
    Cache() { SetRunning(true); }
    ~Cache() override = default;
    using CTevCloudCachoMgr::CheckRecords;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    Place::WriteDatabase("tevcloudcacho.db", pData, nSize);
    Cache cache;
    CachoRecord record;
    (void)cache.GetRecord("known", record);
    (void)cache.Record("new", 70, -1, 5, "detail");
    cache.CheckRecords();
    return 0;
}
