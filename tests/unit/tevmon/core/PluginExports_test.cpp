// The table and the plug-in object behind it live once per process; every test is a process of its
// own and works in a directory of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "framework/abi/PluginOperationTable.h"
#include "framework/log/CLogDebug.h"
#include "public/pluginhelper/LogPrint.h"
#include "tests/support/Event.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/Threads.h"
#include "tests/support/memory/MemoryLimit.h"

extern "C" {
int InitializePlugin(void* pArg);
void UninitializePlugin();
void* CreateObject(void* pArg);
void DestroyObject(void* pFirst, void* pSecond);
}

namespace {

using Texts = std::vector<std::string>;

PluginOperationTable* Table() {
    return static_cast<PluginOperationTable*>(CreateObject(nullptr));
}

bool ModuleThreadsRun() {
    const auto names = ThreadNames();
    return names.count("tevmon_tasktime") == 1 && names.count("CTevCloudCachoM") == 1 &&
           names.count("TevChennalMgr") == 1;
}

// Counts records, and takes no memory for it.
class CountingSink : public ILogSink {
public:
    int OnLog(const LogRecord&, va_list) override {
        ++nRecords;
        return 1;
    }
    int nRecords = 0;
};

// Calls all eight entries; false unless every one that has a result answers 0.
bool EveryEntryAnswersZero(const PluginOperationTable& table, FakeRouter& router) {
    const int32_t results[] = {table.pfnInit(nullptr), table.pfnStart(),
                               table.pfnStop(),        table.pfnGetStatus(),
                               table.pfnExt6(nullptr), table.pfnExt7(nullptr)};
    table.pfnSetOpt(&router);
    table.pfnUninit();
    bool bZero = true;
    for (const int32_t nResult : results) {
        bZero = bZero && nResult == 0;
    }
    return bZero;
}

FakeRouter* s_pExitRouter = nullptr;
LogCapture* s_pExitLog = nullptr;

// Exit code 0 when the table neither answers, says nor does anything, while the log still works.
void CallTableAtExit() {
    s_pExitLog->Clear();
    const size_t nCalls = s_pExitRouter->Calls().size();
    const bool bZero = EveryEntryAnswersZero(*Table(), *s_pExitRouter);
    const bool bSilent = s_pExitLog->All().empty() && s_pExitRouter->Calls().size() == nCalls;
    LogPrint(LOG_TRACE, "here", "CallTableAtExit", 1, "a line");
    _exit(bZero && bSilent && s_pExitLog->Count("a line") == 1 ? 0 : 1);
}

class PluginExportsTest : public testing::Test {
protected:
    ~PluginExportsTest() override { (void)Table()->pfnStop(); }

    const TestDir m_dir;
    FakeRouter m_router;
    LogCapture m_log;
};

}  // namespace

TEST_F(PluginExportsTest, CreateObjectTwiceReturnsTheSameAddressWithTheSameEightEntries) {
    void* pFirst = CreateObject(nullptr);
    void* entriesBefore[8];
    memcpy(entriesBefore, pFirst, sizeof(entriesBefore));

    void* pSecond = CreateObject(this);

    EXPECT_EQ(pFirst, pSecond);
    EXPECT_EQ(0, memcmp(entriesBefore, pSecond, sizeof(entriesBefore)));
    EXPECT_EQ(8U, std::set<void*>(entriesBefore, entriesBefore + 8).size());
    EXPECT_EQ(0U, std::set<void*>(entriesBefore, entriesBefore + 8).count(nullptr));
}

TEST_F(PluginExportsTest, EveryCreateObjectWritesTheEntriesAgain) {
    PluginOperationTable* pTable = Table();
    const PluginOperationTable before = *pTable;
    memset(static_cast<void*>(pTable), 0, sizeof(*pTable));

    (void)CreateObject(nullptr);

    EXPECT_EQ(0, memcmp(&before, pTable, sizeof(before)));
}

TEST_F(PluginExportsTest, InitializePluginReturnsZeroAndDoesNothingElse) {
    EXPECT_EQ(0, InitializePlugin(nullptr));
    EXPECT_EQ(0, InitializePlugin(this));

    EXPECT_TRUE(m_log.All().empty());
}

TEST_F(PluginExportsTest, EachEntryForwardsToItsOperation) {
    PluginOperationTable* pTable = Table();

    EXPECT_EQ(0, pTable->pfnInit(this));
    pTable->pfnSetOpt(&m_router);
    EXPECT_EQ(0, pTable->pfnStart());
    EXPECT_EQ(2, pTable->pfnGetStatus());
    EXPECT_EQ(0, pTable->pfnStop());
    pTable->pfnUninit();

    Texts functions;
    for (const CapturedLog& record : m_log.All()) {
        if (record.strSource == "tevmon/core/CTevMonPlugin") {
            functions.push_back(record.strFunction);
        }
    }
    EXPECT_EQ(
        (Texts{"zkp_init", "zkp_setopt", "zkp_start", "zkp_getstatus", "zkp_stop", "zkp_uninit"}),
        functions);
    EXPECT_EQ(6U, m_router.Calls().size());
}

TEST_F(PluginExportsTest, GetStatusIsZeroBeforeInitThenOneTwoThreeFour) {
    PluginOperationTable* pTable = Table();

    EXPECT_EQ(0, pTable->pfnGetStatus());
    (void)pTable->pfnInit(nullptr);
    EXPECT_EQ(1, pTable->pfnGetStatus());
    (void)pTable->pfnStart();
    EXPECT_EQ(2, pTable->pfnGetStatus());
    (void)pTable->pfnStop();
    EXPECT_EQ(3, pTable->pfnGetStatus());
    pTable->pfnUninit();
    EXPECT_EQ(4, pTable->pfnGetStatus());
}

TEST_F(PluginExportsTest, TheExtensionEntriesReturnZeroAndChangeNothing) {
    PluginOperationTable* pTable = Table();
    (void)pTable->pfnInit(nullptr);
    m_log.Clear();

    EXPECT_EQ(0, pTable->pfnExt6(this));
    EXPECT_EQ(0, pTable->pfnExt7(nullptr));

    EXPECT_TRUE(m_log.All().empty());
    EXPECT_EQ(1, pTable->pfnGetStatus());
}

TEST_F(PluginExportsTest, SetOptWithNullLogsItsLineAndNothingElse) {
    Table()->pfnSetOpt(nullptr);

    EXPECT_EQ(Texts{"[CWorkerPlugin] zkp_setopt..."}, m_log.Texts());
}

TEST_F(PluginExportsTest, DestroyObjectAndUninitializePluginLeaveTheObjectAndItsThreadsUntouched) {
    PluginOperationTable* pTable = Table();
    pTable->pfnSetOpt(&m_router);
    (void)pTable->pfnStart();
    ASSERT_TRUE(Eventually(&ModuleThreadsRun));

    DestroyObject(pTable, nullptr);
    DestroyObject(nullptr, nullptr);
    UninitializePlugin();

    EXPECT_TRUE(ModuleThreadsRun());
    EXPECT_EQ(2, pTable->pfnGetStatus());
    EXPECT_TRUE(m_router.Deliver(20002, "still heard"));
    EXPECT_EQ(1U, m_log.Count("rvce <<< still heard\n"));
}

TEST_F(PluginExportsTest, WithoutMemoryForTheObjectEveryEntryAnswersZeroAndSaysNothing) {
    PluginOperationTable* pTable = Table();
    CountingSink sink;
    CLogDebug::Instance()->SetSink(&sink);
    bool bZero = false;
    long nRefused = 0;

    {
        const MemoryLimit none(0);
        bZero = EveryEntryAnswersZero(*pTable, m_router);
        nRefused = none.Refused();
    }

    CLogDebug::Instance()->SetSink(&m_log);
    EXPECT_TRUE(bZero);
    EXPECT_EQ(8, nRefused);  // each tried to make it
    EXPECT_EQ(0, sink.nRecords);
    EXPECT_TRUE(m_router.Calls().empty());
    EXPECT_EQ(0, pTable->pfnInit(nullptr));
    EXPECT_EQ(1, pTable->pfnGetStatus());  // with memory the next call makes it
}

TEST_F(PluginExportsTest, AfterTheExitRoutinesEveryEntryAnswersZeroAndSaysNothing) {
    // In a process of its own: what is registered at exit first runs last.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    s_pExitRouter = &m_router;
    s_pExitLog = &m_log;
    const auto work = [this] {
        (void)std::atexit(&CallTableAtExit);
        (void)Table()->pfnInit(nullptr);
        Table()->pfnSetOpt(&m_router);
        (void)Table()->pfnStart();
        std::exit(Table()->pfnGetStatus());  // 2, were there no routine
    };

    EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}
