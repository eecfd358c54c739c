// Runs one command line of tevmon-host's database commands against a state directory of the
// test's own, in the time zone UTC.
#ifndef TESTS_UNIT_HOST_COMMAND_COMMANDRUN_H
#define TESTS_UNIT_HOST_COMMAND_COMMANDRUN_H

#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"
#include "host/command/QueueCommand.h"
#include "host/command/VerdictsCommand.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

class CommandRun : public testing::Test {
protected:
    CommandRun() {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    // The exit code, or -1 when the command line is not understood. Afterwards m_lines holds
    // standard output and m_strError standard error.
    int Run(const std::string& strArguments) {
        HostOptions options;
        options.strStateDir = m_dir.Path();
        int nExitCode = 0;
        CommandLine program("tevmon-host", "");
        program.NeedsCommand();
        (void)program.AddFlag("--json", options.bJson, "");
        AddQueueCommand(program, options, nExitCode);
        AddVerdictsCommand(program, options, nExitCode);

        const StdoutCapture standardOutput;
        testing::internal::CaptureStderr();
        nExitCode = program.Parse(strArguments, nExitCode) ? nExitCode : -1;
        m_strError = testing::internal::GetCapturedStderr();
        m_lines = standardOutput.Lines();
        return nExitCode;
    }

    // Line nLine of standard output, which must be JSON that a strict reader takes.
    Json::Value JsonLine(size_t nLine) const {
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        Json::Value root;
        std::string strError;
        std::istringstream stream(m_lines.at(nLine));
        EXPECT_TRUE(Json::parseFromStream(builder, stream, &root, &strError)) << strError;
        return root;
    }

    TestDir m_dir;
    std::vector<std::string> m_lines;
    std::string m_strError;
};

#endif
