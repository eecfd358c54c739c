// The table and the plug-in object behind it live once per process; every test is a process of its
// own and works in a directory of its own.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "framework/abi/PluginOperationTable.h"
#include "tests/support/Event.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/Threads.h"

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
