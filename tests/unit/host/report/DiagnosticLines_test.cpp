#include "host/report/DiagnosticLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class DiagnosticLinesTest : public testing::Test {
protected:
    // What is said on standard error.
    std::string Said(const RunEvent& event) {
        testing::internal::CaptureStderr();
        m_lines.OnEvent(event, 0);
        return testing::internal::GetCapturedStderr();
    }

    Console m_output;
    DiagnosticLines m_lines{m_output};
};

}  // namespace

TEST_F(DiagnosticLinesTest, ALineOfTheModulesLogIsOneLineWithNothingThatSteersATerminal) {
    const std::string strLine =
        Said(ModuleLogged{{4, "[CTevPsMonitor] stat faid [/a\nforged\033[2J]", "Run"}});
    EXPECT_EQ("  module L4  [CTevPsMonitor] stat faid [/a\\x0Aforged\\x1B[2J]  (Run)\n",
              strLine.substr(8));

    EXPECT_THAT(Said(ModuleLogged{{5, "text", ""}}), EndsWith("  module L5  text\n"));
}

TEST_F(DiagnosticLinesTest, WhatTheModulePrintsIsShownEscaped) {
    const std::string strLine = "printed \033[2J";
    EXPECT_EQ("printed \\x1B[2J\n", Said(ModulePrinted{strLine}));
}

TEST_F(DiagnosticLinesTest, WhatHoldsTheRunUpIsSaidWithWhatToDo) {
    EXPECT_THAT(Said(InputDelivered{}), StartsWith("tevmon-host: everything is delivered; Ctrl-C"));
    EXPECT_THAT(Said(QueueStalled{}), HasSubstr("tevmon-host queue list"));
    EXPECT_THAT(Said(ModuleSilent{}), HasSubstr("gets no more signs of life"));
}

TEST_F(DiagnosticLinesTest, OfTheRestNothingIsSaid) {
    EXPECT_EQ("", Said(RunEnding{}));
    EXPECT_EQ("", Said(EventsDropped{DROP_REFUSED, 1, 1}));
}
