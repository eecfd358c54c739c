#include "host/module/PluginLoader.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include "tests/support/FakeModules.h"
#include "tests/support/FileText.h"
#include "tests/support/SilentRouter.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

using testing::HasSubstr;

namespace {

class PluginLoaderTest : public testing::Test {
protected:
    static bool IsLoaded(const std::string& strPath) {
        void* const pLibrary = dlopen(strPath.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (pLibrary != nullptr) {
            dlclose(pLibrary);
        }
        return pLibrary != nullptr;
    }

    TestDir m_dir;
    StdoutCapture m_standardOutput;
    SilentRouter m_router;
    PluginLoader m_loader;
    std::string m_strError;
};

}  // namespace

TEST_F(PluginLoaderTest, TheTableIsCalledInOrderAndTheLibraryGoes) {
    const std::string strModule = FakeModule("works");
    ASSERT_TRUE(m_loader.Load(strModule, m_strError)) << m_strError;
    EXPECT_TRUE(IsLoaded(strModule));

    m_loader.Start(&m_router);
    m_loader.Stop();
    m_loader.Unload();

    EXPECT_EQ("init\nsetopt\nstart\nstop\nuninit\n", FileText("calls"));
    EXPECT_FALSE(IsLoaded(strModule));
}

TEST_F(PluginLoaderTest, StopAndUnloadComeOnceHoweverOftenTheyAreAsked) {
    ASSERT_TRUE(m_loader.Load(FakeModule("works"), m_strError));
    m_loader.Start(&m_router);

    m_loader.Start(&m_router);
    m_loader.Stop();
    m_loader.Stop();
    m_loader.Unload();
    m_loader.Unload();

    EXPECT_EQ("init\nsetopt\nstart\nstop\nuninit\n", FileText("calls"));
}

TEST_F(PluginLoaderTest, ALoaderThatGoesStopsAndUnloads) {
    {
        PluginLoader loader;
        ASSERT_TRUE(loader.Load(FakeModule("works"), m_strError));
        loader.Start(&m_router);
    }

    EXPECT_EQ("init\nsetopt\nstart\nstop\nuninit\n", FileText("calls"));
    EXPECT_FALSE(IsLoaded(FakeModule("works")));
}

TEST_F(PluginLoaderTest, AFileThatIsNoLibraryIsNamed) {
    const std::string strFile = m_dir.WriteFile("text.so", "no library");

    EXPECT_FALSE(m_loader.Load(strFile, m_strError));

    EXPECT_EQ(0u, m_strError.find("cannot load the module " + strFile + ": ")) << m_strError;
    EXPECT_THAT(m_strError, HasSubstr("; name the module with --module"));
}

TEST_F(PluginLoaderTest, ANameWithoutAFolderIsNotSearchedFor) {
    EXPECT_FALSE(m_loader.Load("libm.so.6", m_strError));

    EXPECT_THAT(m_strError, HasSubstr("./libm.so.6"));
}

TEST_F(PluginLoaderTest, EveryFunctionMustBeThere) {
    EXPECT_FALSE(m_loader.Load(FakeModule("lacks_function"), m_strError));

    EXPECT_THAT(m_strError, HasSubstr("is not a module: it has no function "
                                      "DestroyObject"));
    EXPECT_FALSE(IsLoaded(FakeModule("lacks_function")));
}

TEST_F(PluginLoaderTest, TheTableMustBeFilled) {
    EXPECT_FALSE(m_loader.Load(FakeModule("empty_table"), m_strError));

    EXPECT_THAT(m_strError, HasSubstr("its operation table is not filled"));
}

TEST_F(PluginLoaderTest, TheDefaultStandsBesideTheProgram) {
    EXPECT_EQ(ProgramFolder() + "libtevmon.so", PluginLoader::DefaultPath());
}
