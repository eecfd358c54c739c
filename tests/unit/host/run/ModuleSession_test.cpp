#include "host/run/ModuleSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "framework/abi/MsgTypes.h"
#include "host/report/DiagnosticLines.h"
#include "host/transport/EndpointIds.h"
#include "tests/support/Event.h"
#include "tests/support/FakeModules.h"
#include "tests/support/FileText.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

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
    ModuleSession module(m_options, m_service, m_observer);
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
    ModuleSession module(m_options, m_service, m_observer);
    std::string strError;
    EXPECT_FALSE(module.Load(strError));
    EXPECT_THAT(strError, HasSubstr("none.so"));
}

TEST_F(ModuleSessionTest, WithoutANameItIsTheOneBesideTheProgram) {
    m_options.strModule.clear();
    const ModuleSession module(m_options, m_service, m_observer);
    EXPECT_EQ(ProgramFolder() + "libtevmon.so", module.File());
}

TEST_F(ModuleSessionTest, AnEventLeadsToAQueryAndItsAnswerComesBackToTheModule) {
    ModuleSession module(m_options, m_service, m_observer);
    std::string strError;
    ASSERT_TRUE(module.Load(strError)) << strError;
    module.Start();
    const std::string strBody = R"({"param":[{"path":"/bin/a"}]})";

    EXPECT_EQ(0u, module.MessageRouter().Deliver(GuidFromText(SENSOR_ENDPOINT), MSG_TYPE_HIPS_EVENT,
                                                 strBody));
    EXPECT_TRUE(Eventually([] { return FileText("calls").find("answer ") != std::string::npos; }));
    module.End();

    const std::string strCalls = FileText("calls");
    EXPECT_THAT(strCalls, StartsWith("init\nsetopt\nstart\nevent " + strBody + "\nanswer {"));
    EXPECT_THAT(strCalls, EndsWith("}\nstop\nuninit\n"));
}

TEST_F(ModuleSessionTest, WhatTheModulePrintsIsNoOutputOfTheHost) {
    DiagnosticLines lines(m_output);
    m_journal.AddListener(lines);
    testing::internal::CaptureStderr();
    {
        ModuleSession module(m_options, m_service, m_observer);
        std::string strError;
        ASSERT_TRUE(module.Load(strError)) << strError;
        module.Start();
        module.End();
        (void)!write(STDOUT_FILENO, "after\n", 6);
    }

    EXPECT_EQ("printed by the module\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ("after\n", m_standardOutput.Text());
}

TEST_F(ModuleSessionTest, AnEndWithoutAModuleGivesStandardOutputBack) {
    m_options.strModule = FakeModule("empty_table");
    ModuleSession module(m_options, m_service, m_observer);
    std::string strError;
    EXPECT_FALSE(module.Load(strError));
    EXPECT_THAT(strError, HasSubstr("its operation table is not filled"));
    module.Start();
    const Guid cloud = GuidFromText(CLOUD_ENDPOINT);
    EXPECT_EQ(0u, module.MessageRouter().Post(&cloud, MSG_TYPE_CLOUD_QUERY, "{}", 2));

    module.End();
    module.End();
    (void)!write(STDOUT_FILENO, "after\n", 6);

    EXPECT_EQ("after\n", m_standardOutput.Text());
    EXPECT_EQ("", FileText("calls"));
    EXPECT_NE(0u, module.MessageRouter().Post(&cloud, MSG_TYPE_CLOUD_QUERY, "{}", 2));
}
