// A program cannot hold a reference on itself; what the reference does for the library is tested
// through the library's own start and stop.
#include "tevmon/core/CTevModuleReference.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <fstream>
#include <string>

#include "framework/abi/PluginOperationTable.h"
#include "tests/support/TestDir.h"

namespace {

bool IsMapped(const std::string& strLibrary) {
    std::ifstream maps("/proc/self/maps");
    for (std::string strLine; std::getline(maps, strLine);) {
        if (strLine.find(strLibrary) != std::string::npos) {
            return true;
        }
    }
    return false;
}

class CTevModuleReferenceTest : public testing::Test {
protected:
    void SetUp() override {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "the race detector runs a library's atexit routines too late to unload it";
#endif
        m_pLibrary = dlopen(TEVMON_LIBRARY, RTLD_NOW);
        ASSERT_NE(nullptr, m_pLibrary) << dlerror();
        const auto pfnCreate = reinterpret_cast<CreateObjectFn>(dlsym(m_pLibrary, "CreateObject"));
        m_pTable = static_cast<PluginOperationTable*>(pfnCreate(nullptr));
    }

#ifdef __SANITIZE_ADDRESS__
    // The plug-in object is never freed; once the library is gone it counts as leaked.
    const __lsan::ScopedDisabler m_noLeakCheck;
#endif
    const TestDir m_dir;
    void* m_pLibrary = nullptr;
    PluginOperationTable* m_pTable = nullptr;
};

}  // namespace

TEST(CTevModuleReferenceInAProgramTest, TakeAndDropInAnyOrderDoNothing) {
    CTevModuleReference::Drop();
    CTevModuleReference::Take();
    CTevModuleReference::Take();
    CTevModuleReference::Drop();
    CTevModuleReference::Drop();
}

TEST_F(CTevModuleReferenceTest, ALibraryThatWasNeverStartedHoldsNothing) {
    ASSERT_TRUE(IsMapped("/libtevmon.so"));

    EXPECT_EQ(0, dlclose(m_pLibrary));

    EXPECT_FALSE(IsMapped("/libtevmon.so"));
}

TEST_F(CTevModuleReferenceTest, TwoStartsAndOneStopHoldNothing) {
    (void)m_pTable->pfnStart();
    (void)m_pTable->pfnStart();
    (void)m_pTable->pfnStop();

    EXPECT_EQ(0, dlclose(m_pLibrary));

    EXPECT_FALSE(IsMapped("/libtevmon.so"));
}

TEST_F(CTevModuleReferenceTest, ARunningLibraryStaysWhenTheHostLetsGoOfIt) {
    (void)m_pTable->pfnStart();

    EXPECT_EQ(0, dlclose(m_pLibrary));

    ASSERT_TRUE(IsMapped("/libtevmon.so"));
    EXPECT_EQ(2, m_pTable->pfnGetStatus());
}

TEST_F(CTevModuleReferenceTest, ARunningLibraryCanBeTakenAgainAndStopped) {
    (void)m_pTable->pfnStart();
    EXPECT_EQ(0, dlclose(m_pLibrary));

    void* pAgain = dlopen(TEVMON_LIBRARY, RTLD_NOW);
    EXPECT_EQ(m_pLibrary, pAgain);
    (void)m_pTable->pfnStop();

    EXPECT_TRUE(IsMapped("/libtevmon.so"));
    EXPECT_EQ(0, dlclose(pAgain));
    EXPECT_FALSE(IsMapped("/libtevmon.so"));
}

TEST_F(CTevModuleReferenceTest, ASecondStopDropsNothingOfTheHosts) {
    (void)m_pTable->pfnStart();
    (void)m_pTable->pfnStop();
    (void)m_pTable->pfnStop();

    EXPECT_TRUE(IsMapped("/libtevmon.so"));
    EXPECT_EQ(3, m_pTable->pfnGetStatus());
    EXPECT_EQ(0, dlclose(m_pLibrary));
}
