// What a recording logs where numbers are too wide for the format or the look-up failed.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/trace/OtherConnection.h"
#include "tests/support/trace/SqlTrace.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

using Texts = std::vector<std::string>;

namespace {

constexpr char NEW_K[] =
    "[CTevCloudCachoMgr]: Record (new) key = K, nLevel = 40, tmCacho = 1200, eMid = 5, strDetail "
    "= ";

class LogCache : public CTevCloudCachoMgr {
public:
    LogCache() = default;
    ~LogCache() override { Exit(); }
};

// Records key K while other's lock fails every attempt to look it up; what was printed. The lock is
// given back before the insert.
Texts RecordWithoutLookup(LogCache& cache, OtherConnection& other) {
    EXPECT_TRUE(other.LockAll());
    const SqlTrace trace([&](const std::string& strStatement) {
        if (strStatement.compare(0, 7, "insert ") == 0) {
            (void)other.Release();
        }
    });
    return PrintedBy([&] { EXPECT_TRUE(cache.Record("K", 40, -1, 5, "")); });
}

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

TEST(CTevCloudCachoMgrLogTest, AKeyThatCouldNotBeLookedUpCountsAsNewAndIsInserted) {
    const TestDir dir;
    LogCache cache;
    OtherConnection other(dir.Database("tevcloudcacho.db"));
    const LogCapture log;

    const Texts lines = RecordWithoutLookup(cache, other);

    EXPECT_EQ(Texts(300, "database is locked"), lines);
    EXPECT_EQ(Texts{NEW_K}, log.Texts());
    EXPECT_EQ(Texts{"K|40"}, other.Rows("select vkey,level from cachotable"));
}

TEST(CTevCloudCachoMgrLogTest, AKnownKeyThatCouldNotBeLookedUpCountsAsNewAndKeepsItsRow) {
    const TestDir dir;
    LogCache cache;
    ASSERT_TRUE(cache.Record("K", 70, -1, 6, ""));
    OtherConnection other(dir.Database("tevcloudcacho.db"));
    const LogCapture log;

    const Texts lines = RecordWithoutLookup(cache, other);

    ASSERT_EQ(301u, lines.size());
    EXPECT_EQ("UNIQUE constraint failed: cachotable.vkey", lines.back());
    EXPECT_EQ(Texts{NEW_K}, log.Texts());
    EXPECT_EQ(Texts{"K|70"}, other.Rows("select vkey,level from cachotable"));
}
