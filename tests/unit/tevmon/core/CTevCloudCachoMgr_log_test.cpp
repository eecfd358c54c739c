// What a recording prints of numbers that its format is too narrow for.
#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/trace/OtherConnection.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

namespace {

class LogCache : public CTevCloudCachoMgr {
public:
    LogCache() = default;
    ~LogCache() override { Exit(); }
};

}  // namespace

TEST(CTevCloudCachoMgrLogTest, ALifetimePast32BitsIsPrintedCutAndStoredWhole) {
    const TestDir dir;
    LogCache cache;
    const LogCapture log;

    EXPECT_TRUE(cache.Record("K", 40, 4294967297, 5, ""));  // 2^32 + 1

    EXPECT_EQ(1u, log.Count("[CTevCloudCachoMgr]: Record (new) key = K, nLevel = 40, tmCacho = 1, "
                            "eMid = 5, strDetail = "));
    EXPECT_EQ(std::vector<std::string>{"4294967297"},
              OtherConnection(dir.Database("tevcloudcacho.db"))
                  .Rows("select tminternal from cachotable"));
}
