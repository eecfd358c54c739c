// The plug-in object and the singletons behind it live once per process; every test is a process
// of its own and works in a directory of its own.
#include "tevmon/core/CTevMonPlugin.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "framework/log/CLogDebug.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/Event.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/Threads.h"

namespace fs = std::filesystem;

namespace {

using Texts = std::vector<std::string>;

// As the kernel cuts them.
constexpr char TIMER[] = "tevmon_tasktime";
constexpr char CACHE[] = "CTevCloudCachoM";
constexpr char CHANNEL[] = "TevChennalMgr";

bool AllThreadsRun() {
    return Eventually([] {
        const auto names = ThreadNames();
        return names.count(TIMER) == 1 && names.count(CACHE) == 1 && names.count(CHANNEL) == 1;
    });
}

bool IsGone(const char* pszName) {
    return Eventually([=] { return ThreadNames().count(pszName) == 0; });
}

class CTevMonPluginTest : public testing::Test {
protected:
    ~CTevMonPluginTest() override { (void)m_plugin.zkp_stop(); }

    // Of the plug-in object's own records: text, function and line.
    Texts PluginLog() const {
        Texts texts;
        for (const CapturedLog& record : m_log.All()) {
            if (record.strSource == "tevmon/core/CTevMonPlugin") {
                EXPECT_EQ(2, record.nLevel);
                texts.push_back(record.strText + "|" + record.strFunction + "|" +
                                std::to_string(record.nLine));
            }
        }
        return texts;
    }

    const TestDir m_dir;
    FakeRouter m_router;
    LogCapture m_log;
    CTevMonPlugin m_plugin;
};

FakeRouter* s_pExitRouter = nullptr;
LogCapture* s_pExitLog = nullptr;

// Exit code 0 when a message that comes now is not let in any more.
void DeliverAtExit() {
    (void)s_pExitRouter->Deliver(20002, "late");
    _exit(s_pExitLog->Count("rvce <<< late\n") == 0 ? 0 : 1);
}

}  // namespace

TEST_F(CTevMonPluginTest, StatusIsZeroBeforeInitThenOneTwoThreeFour) {
    EXPECT_EQ(0, m_plugin.zkp_getstatus());
    (void)m_plugin.zkp_init(nullptr);
    EXPECT_EQ(1, m_plugin.zkp_getstatus());
    (void)m_plugin.zkp_start();
    EXPECT_EQ(2, m_plugin.zkp_getstatus());
    (void)m_plugin.zkp_stop();
    EXPECT_EQ(3, m_plugin.zkp_getstatus());
    m_plugin.zkp_uninit();
    EXPECT_EQ(4, m_plugin.zkp_getstatus());
}

TEST_F(CTevMonPluginTest, EveryOperationWritesItsOneLineWithItsFunctionAndLine) {
    (void)m_plugin.zkp_init(nullptr);
    m_plugin.zkp_setopt(&m_router);
    (void)m_plugin.zkp_start();
    (void)m_plugin.zkp_getstatus();
    (void)m_plugin.zkp_stop();
    m_plugin.zkp_uninit();

    EXPECT_EQ((Texts{"[CTevMonPlugin] zkp_init...|zkp_init|22",
                     "[CWorkerPlugin] zkp_setopt...|zkp_setopt|36",
                     "[CTevMonPlugin] zkp_getstatus...|zkp_start|55",
                     "[CTevMonPlugin] zkp_getstatus...|zkp_getstatus|50",
                     "[CTevMonPlugin] zkp_stop...|zkp_stop|64",
                     "[CTevMonPlugin] zkp_uninit...|zkp_uninit|28"}),
              PluginLog());
}

TEST_F(CTevMonPluginTest, TheLogLineOfStartReadsGetstatus) {
    (void)m_plugin.zkp_start();

    EXPECT_EQ(Texts{"[CTevMonPlugin] zkp_getstatus...|zkp_start|55"}, PluginLog());
}

TEST_F(CTevMonPluginTest, TheLogLineOfSetoptNamesAnotherClass) {
    m_plugin.zkp_setopt(&m_router);

    EXPECT_EQ(Texts{"[CWorkerPlugin] zkp_setopt...|zkp_setopt|36"}, PluginLog());
}

TEST_F(CTevMonPluginTest, SetoptWithNullRegistersNothingAndLogsOnlyItsOneLine) {
    m_plugin.zkp_setopt(nullptr);

    EXPECT_EQ(Texts{"[CWorkerPlugin] zkp_setopt..."}, m_log.Texts());
    EXPECT_EQ(nullptr, CMsgRouterHolder::Instance()->GetRouter());
    EXPECT_TRUE(m_router.Calls().empty());
}

TEST_F(CTevMonPluginTest, SetoptWithNullKeepsTheRouterThatIsHeld) {
    m_plugin.zkp_setopt(&m_router);

    m_plugin.zkp_setopt(nullptr);

    EXPECT_EQ(&m_router, CMsgRouterHolder::Instance()->GetRouter());
    EXPECT_EQ(3U, m_router.Calls().size());
}

TEST_F(CTevMonPluginTest, SetoptNamesTheEndpointAndRegistersBothTypesAndKeepsTheStatus) {
    (void)m_plugin.zkp_init(nullptr);

    m_plugin.zkp_setopt(&m_router);

    EXPECT_EQ((Texts{"identity 4d7b5ded52cc594089c2148a0951bfff", "register 20002 0",
                     "register 20003 0"}),
              m_router.Calls());
    EXPECT_EQ(&m_router, CMsgRouterHolder::Instance()->GetRouter());
    EXPECT_EQ(1, m_plugin.zkp_getstatus());
}

TEST_F(CTevMonPluginTest, ARepeatedSetoptRegistersAgain) {
    m_plugin.zkp_setopt(&m_router);
    m_plugin.zkp_setopt(&m_router);

    EXPECT_EQ((Texts{"identity 4d7b5ded52cc594089c2148a0951bfff", "register 20002 0",
                     "register 20003 0", "identity 4d7b5ded52cc594089c2148a0951bfff",
                     "register 20002 0", "register 20003 0"}),
              m_router.Calls());
}

TEST_F(CTevMonPluginTest, UninitUnregistersBothTypesThenClosesAndTheRouterStaysHeld) {
    m_plugin.zkp_setopt(&m_router);

    m_plugin.zkp_uninit();

    const Texts calls = m_router.Calls();
    ASSERT_EQ(6U, calls.size());
    EXPECT_EQ((Texts{"unregister 20002", "unregister 20003", "close"}),
              Texts(calls.begin() + 3, calls.end()));
    EXPECT_EQ(&m_router, CMsgRouterHolder::Instance()->GetRouter());
}

TEST_F(CTevMonPluginTest, UninitWithoutARouterOnlyChangesTheStatus) {
    m_plugin.zkp_uninit();

    EXPECT_EQ(4, m_plugin.zkp_getstatus());
    EXPECT_TRUE(m_router.Calls().empty());
}

TEST_F(CTevMonPluginTest, TheExtensionsReturnZeroAndChangeNothing) {
    (void)m_plugin.zkp_init(nullptr);
    m_log.Clear();

    EXPECT_EQ(0, m_plugin.zkp_ext6(&m_router));
    EXPECT_EQ(0, m_plugin.zkp_ext7(nullptr));

    EXPECT_TRUE(m_log.All().empty());
    EXPECT_EQ(1, m_plugin.zkp_getstatus());
}

TEST_F(CTevMonPluginTest, InitDoesNotLookAtItsArgument) {
    EXPECT_EQ(0, m_plugin.zkp_init(reinterpret_cast<void*>(1)));
}

TEST_F(CTevMonPluginTest, StartMakesTimerThenCacheThenChannel) {
    // The kernel hands out ids upwards, counted here from a thread made just before.
    int nLimit = 0;
    std::ifstream("/proc/sys/kernel/pid_max") >> nLimit;
    int nFirst = 0;
    std::thread([&] { nFirst = gettid(); }).join();

    EXPECT_EQ(0, m_plugin.zkp_start());

    ASSERT_TRUE(AllThreadsRun());
    std::map<int, std::string> byAge;
    for (const auto& [nId, strName] : ThreadsById()) {
        if (strName == TIMER || strName == CACHE || strName == CHANNEL) {
            byAge[(nId - nFirst + nLimit) % nLimit] = strName;
        }
    }
    Texts names;
    for (const auto& [nAge, strName] : byAge) {
        names.push_back(strName);
    }
    EXPECT_EQ((Texts{TIMER, CACHE, CHANNEL}), names);
}

TEST_F(CTevMonPluginTest, StopEndsTimerThenChannelThenCache) {
    // Looks at the threads where a manager says that it has ended.
    class Sink : public ILogSink {
    public:
        int OnLog(const LogRecord& record, va_list) override {
            const std::string strFormat = record.pszFormat;
            if (strFormat == "[CTevChennalMgr]: CTevChennalMgr exit.\n") {
                bTimerGone = IsGone(TIMER);
                bChannelGone = IsGone(CHANNEL);
                nCacheRuns = ThreadNames().count(CACHE);
            } else if (strFormat == "[CTevCloudCachoMgr]: CTevCloudCachoMgr exit.\n") {
                bCacheGone = IsGone(CACHE);
            }
            return 1;
        }
        bool bTimerGone = false;
        bool bChannelGone = false;
        size_t nCacheRuns = 0;
        bool bCacheGone = false;
    };
    ASSERT_EQ(0, m_plugin.zkp_start());
    ASSERT_TRUE(AllThreadsRun());
    Sink sink;
    CLogDebug::Instance()->SetSink(&sink);

    EXPECT_EQ(0, m_plugin.zkp_stop());

    CLogDebug::Instance()->SetSink(&m_log);
    EXPECT_TRUE(sink.bTimerGone);
    EXPECT_TRUE(sink.bChannelGone);
    EXPECT_EQ(1U, sink.nCacheRuns);
    EXPECT_TRUE(sink.bCacheGone);
}

TEST_F(CTevMonPluginTest, AStopWithoutAPushOpensNoQueue) {
    ASSERT_EQ(0, m_plugin.zkp_start());
    ASSERT_TRUE(AllThreadsRun());

    EXPECT_EQ(0, m_plugin.zkp_stop());

    EXPECT_TRUE(fs::exists(m_dir.Database("tevcloudcacho.db")));
    EXPECT_FALSE(fs::exists(m_dir.Database("tevchennaldb.db")));
}

TEST_F(CTevMonPluginTest, StopWithoutStartStopsThreadsThatNeverRan) {
    EXPECT_EQ(0, m_plugin.zkp_stop());
    EXPECT_EQ(0, m_plugin.zkp_stop());

    EXPECT_EQ(3, m_plugin.zkp_getstatus());
}

TEST_F(CTevMonPluginTest, ASecondStartMakesNoFurtherThread) {
    (void)m_plugin.zkp_start();
    ASSERT_TRUE(AllThreadsRun());
    const size_t nThreads = ThreadsById().size();

    EXPECT_EQ(0, m_plugin.zkp_start());

    EXPECT_EQ(nThreads, ThreadsById().size());
    EXPECT_TRUE(AllThreadsRun());
}

TEST_F(CTevMonPluginTest, StartDirectlyFollowedByStopEndsEveryTime) {
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(0, m_plugin.zkp_start());
        ASSERT_EQ(0, m_plugin.zkp_stop());
    }

    EXPECT_TRUE(IsGone(TIMER));
    EXPECT_TRUE(IsGone(CACHE));
    EXPECT_TRUE(IsGone(CHANNEL));
}

TEST_F(CTevMonPluginTest, StartAfterStopRunsAgain) {
    (void)m_plugin.zkp_start();
    ASSERT_TRUE(AllThreadsRun());
    (void)m_plugin.zkp_stop();
    ASSERT_TRUE(IsGone(CHANNEL));

    (void)m_plugin.zkp_start();

    EXPECT_TRUE(AllThreadsRun());
}

TEST_F(CTevMonPluginTest, MessagesReachTheReceiverUntilUninitAndNotAfter) {
    m_plugin.zkp_setopt(&m_router);

    EXPECT_TRUE(m_router.Deliver(20002, "first"));
    EXPECT_TRUE(m_router.Deliver(20003, "second"));
    m_plugin.zkp_uninit();

    EXPECT_FALSE(m_router.Deliver(20002, "third"));
    EXPECT_EQ(1U, m_log.Count("rvce <<< first\n"));
    EXPECT_EQ(1U, m_log.Count("rvce <<< second\n"));
    EXPECT_EQ(0U, m_log.Count("rvce <<< third\n"));
}

TEST_F(CTevMonPluginTest, OnceTheProcessExitsNoMessageIsLetInAlsoWithoutAStart) {
    // In a process of its own: what is registered at exit first runs last.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    s_pExitRouter = &m_router;
    s_pExitLog = &m_log;
    const auto work = [this] {
        (void)std::atexit(&DeliverAtExit);
        m_plugin.zkp_setopt(&m_router);
        std::exit(2);
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}

TEST(CTevMonPluginWithoutDirectoryTest, StartAndStopReturnZeroWhereNoDatabaseCanBe) {
    const TestDir dir(false);
    CTevMonPlugin plugin;

    const Texts lines = PrintedBy([&] {
        EXPECT_EQ(0, plugin.zkp_start());
        EXPECT_TRUE(AllThreadsRun());
        EXPECT_EQ(2, plugin.zkp_getstatus());
        EXPECT_EQ(0, plugin.zkp_stop());
    });

    // The cache's, which opens with its manager; nothing was pushed, so no queue was opened.
    EXPECT_EQ(Texts{"unable to open database file"}, lines);
}

TEST(GetPluginInstanceTest, ReturnsTheSameObjectEveryTime) {
    IPluginProxy* pPlugin = GetPluginInstance();

    ASSERT_NE(nullptr, pPlugin);
    EXPECT_EQ(pPlugin, GetPluginInstance());
    EXPECT_EQ(0, pPlugin->zkp_getstatus());
}
