// A launch for which memory runs out, piece by piece.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "framework/log/CLogDebug.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/FakeUsers.h"
#include "tests/support/SilentRouter.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/memory/MemoryLimit.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevPsMonitor.h"

namespace {

// Neither takes memory: it is the module's that is counted.
class CountingRouter : public SilentRouter {
public:
    uint32_t Post(const Guid*, int64_t, const void*, uint32_t nLength) override {
        ++(nLength == 0 ? nEmpty : nWhole);
        return 0;
    }
    int nEmpty = 0;
    int nWhole = 0;
    int All() const { return nEmpty + nWhole; }
};

class CountingSink : public ILogSink {
public:
    CountingSink() { CLogDebug::Instance()->SetSink(this); }
    ~CountingSink() override { CLogDebug::Instance()->SetSink(nullptr); }
    int OnLog(const LogRecord& record, va_list) override {
        nNoDigest += strstr(record.pszFormat, "calc md5 faid!") != nullptr ? 1 : 0;
        nSkipped += strstr(record.pszFormat, "in cacho, skip") != nullptr ? 1 : 0;
        return 1;
    }
    int nNoDigest = 0;
    int nSkipped = 0;
};

}  // namespace

TEST(CTevPsMonitorMemoryTest, ALaunchThatWasReadIsSentEmptyOrSaidToHaveNoDigest) {
    const TestDir dir;
    const StdoutCapture output;  // where the store says that it had no memory
    const FakeUsers users({{"alice", "/home/alice"}});
    const std::string strMessage = R"({"param":[{"path":")" +
                                   dir.WriteFile("a-program-with-a-long-name/bash", "abc", 0755) +
                                   R"(","cmd":"bash a-script-with-a-long-name.sh","pid":1}]})";
    CountingRouter router;
    CMsgRouterHolder::Instance()->SetRouter(&router);
    CountingSink sink;
    ASSERT_TRUE(CTevPsMonitor::Instance()->Run("", strMessage));  // makes what lives on
    ASSERT_EQ(1, router.nWhole);

    long nSilent = 0, nRefused = 1;
    for (long nPiece = 0; nRefused > 0; ++nPiece) {
        const int nBefore = router.nEmpty + router.nWhole + sink.nNoDigest;
        {
            const MemoryLimit limit(PieceNumber{nPiece});
            (void)CTevPsMonitor::Instance()->Run("", strMessage);
            nRefused = limit.Refused();
        }
        const bool bSeen = router.nEmpty + router.nWhole + sink.nNoDigest == nBefore + 1;
        nSilent += bSeen ? 0 : 1;
        // The message, its element and its path: until then nobody knows of a launch.
        EXPECT_EQ(nSilent == nPiece + 1, !bSeen) << "piece " << nPiece;
    }
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    EXPECT_LT(0, nSilent);
    EXPECT_LT(10, router.nEmpty);
    EXPECT_LT(0, sink.nNoDigest);
}

// What its event would be made of found no memory; it is hashed and looked up all the same.
TEST(CTevPsMonitorMemoryTest, ALaunchWithALivingVerdictIsNeverSent) {
    const TestDir dir;
    const StdoutCapture output;
    const std::string strMessage = R"({"param":[{"path":")" +
                                   dir.WriteFile("a-program-with-a-long-name/bash", "abc", 0755) +
                                   R"(","cmd":"bash a-script-with-a-long-name.sh","pid":1}]})";
    CountingRouter router;
    CMsgRouterHolder::Instance()->SetRouter(&router);
    CountingSink sink;
    ASSERT_TRUE(CTevCloudCachoMgr::Instance()->Record(
        "a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72", 10, -1, 5, ""));
    CLogDebug::Instance()->SetLevel(0);
    ASSERT_TRUE(CTevPsMonitor::Instance()->Run("", strMessage));
    ASSERT_EQ(1, sink.nSkipped);

    long nRefused = 1;
    for (long nPiece = 0; nRefused > 0; ++nPiece) {
        const MemoryLimit limit(PieceNumber{nPiece});
        (void)CTevPsMonitor::Instance()->Run("", strMessage);
        nRefused = limit.Refused();
    }
    CMsgRouterHolder::Instance()->SetRouter(nullptr);

    EXPECT_EQ(0, router.All());
    EXPECT_LT(10, sink.nSkipped);
    EXPECT_LT(0, sink.nNoDigest);
}
