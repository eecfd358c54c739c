#include "host/run/ModuleSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/HostProgram.h"
#include "tests/support/StdoutCapture.h"

using testing::HasSubstr;

namespace {

class ModuleSessionTest : public testing::Test {
protected:
    ModuleSessionTest() {
        m_options.strStateDir = m_dir.Path();
        m_options.strModule = FakeModule("works");
    }

    const TestDir m_dir;
    const StdoutCapture m_standardOutput;
    HostOptions m_options;
    VerdictService m_service;
    Console m_output;
    RunJournal m_journal{m_service, {}, false};
    ModuleObserver m_observer{m_journal};
};

}  // namespace

TEST_F(ModuleSessionTest, TheModuleIsDrivenFromStartToUnload) {
    ModuleSession module(m_options, m_service, m_output, m_observer);
    std::string strError;
    ASSERT_TRUE(module.Load(strError)) << strError;
    EXPECT_EQ(m_options.strModule, module.File());
    module.Start();
    EXPECT_EQ("init\nsetopt\nstart\n", FileText("calls"));

    module.End();

    EXPECT_EQ("init\nsetopt\nstart\nstop\nuninit\n", FileText("calls"));
    EXPECT_EQ(0u, module.MessageRouter().Pending());
}

TEST_F(ModuleSessionTest, AMissingModuleIsNamed) {
    m_options.strModule = m_dir.Path() + "/none.so";
    ModuleSession module(m_options, m_service, m_output, m_observer);
    std::string strError;
    EXPECT_FALSE(module.Load(strError));
    EXPECT_THAT(strError, HasSubstr("none.so"));
}

TEST_F(ModuleSessionTest, WithoutANameItIsTheOneBesideTheProgram) {
    m_options.strModule.clear();
    const ModuleSession module(m_options, m_service, m_output, m_observer);
    EXPECT_EQ(ProgramFolder() + "libtevmon.so", module.File());
}
