#include "host/command/DoctorCommand.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host/base/UniqueFd.h"
#include "tests/support/FakeModules.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"

using testing::Contains;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

namespace {

class DoctorCommandTest : public testing::Test {
protected:
    // The exit code of the command in this process. Afterwards m_lines holds standard output.
    int Examine() {
        int nExitCode = -1;
        CommandLine program("tevmon-host", "");
        AddDoctorCommand(program, m_options, nExitCode, m_machine);
        const StdoutCapture standardOutput;
        if (!m_strOutput.empty()) {
            const UniqueFd output(open(m_strOutput.c_str(), O_WRONLY | O_CLOEXEC));
            (void)dup2(output.Get(), STDOUT_FILENO);
        }
        const bool bRan = program.Parse("doctor", nExitCode);
        m_lines = standardOutput.Lines();
        return bRan ? nExitCode : -1;
    }

    TestDir m_dir;
    HostOptions m_options{m_dir.Path(), FakeModule("works")};
    // It has every privilege, a warning about its kernel, and no sensor that fails.
    const doctor::Machine m_machine{
        [](int) { return true; }, "5.10.0",
        [] {
            return std::vector<Finding>{{FINDING_OK, "a sensor", "works", ""}};
        },
        [] { return int64_t{1700000000}; }, m_dir.Path()};
    std::string m_strOutput;  // the file that standard output is, unless it is kept
    std::vector<std::string> m_lines;
};

}  // namespace

TEST_F(DoctorCommandTest, ChecksStandBelowEachOtherWithTheirRemediesAndTheirNumbersAtTheEnd) {
    m_options.strModule = FakeModule("lacks_function");

    EXPECT_EQ(11, Examine());

    const size_t nText = m_lines.at(0).find_first_not_of(' ', 18);  // behind "privilege"
    int counts[3] = {};
    for (size_t i = 0; i + 1 < m_lines.size(); ++i) {
        const std::string& strLine = m_lines[i];
        if (strLine[0] == ' ') {
            EXPECT_EQ(nText, strLine.find("to do: ")) << strLine;
            EXPECT_EQ(nText, strLine.find_first_not_of(' ')) << strLine;
            continue;
        }
        EXPECT_EQ("  ", strLine.substr(nText - 2, 2)) << strLine;
        EXPECT_NE(' ', strLine.at(nText)) << strLine;
        const std::string strState = strLine.substr(0, 9);
        ++counts[strState == "ok       " ? 0 : strState == "warning  " ? 1 : 2];
        EXPECT_EQ(strState != "ok       ", m_lines[i + 1][0] == ' ') << strLine;
    }
    EXPECT_EQ(std::to_string(counts[0]) + " ok, " + std::to_string(counts[1]) +
                  (counts[1] == 1 ? " warning, " : " warnings, ") + std::to_string(counts[2]) +
                  " failed",
              m_lines.back());
    EXPECT_THAT(m_lines, Contains(StartsWith("failed   module  ")));
    EXPECT_THAT(m_lines, Contains(StartsWith("ok       database tevchennaldb.db  ")));
}

TEST_F(DoctorCommandTest, ARecordOfACheckHasItsMembersInOneOrder) {
    m_options.bJson = true;
    m_options.strModule = FakeModule("lacks_function");

    (void)Examine();

    EXPECT_THAT(m_lines,
                Contains(MatchesRegex(
                    "\\{\"event\":\"check\",\"time\":[0-9]+,\"check\":\"module\",\"state\":"
                    "\"failed\",\"text\":\"" +
                    m_options.strModule +
                    " is not a module: it has no function DestroyObject; name the module "
                    "with --module\",\"remedy\":\"name the module with --module\"\\}")));
    EXPECT_THAT(m_lines.back(),
                MatchesRegex("\\{\"event\":\"doctor\",\"time\":[0-9]+,\"ok\":[0-9]+,\"warnings\":"
                             "[0-9]+,\"failed\":[0-9]+\\}"));
}

TEST_F(DoctorCommandTest, NamesNeverSteerTheTerminal) {
    m_options.strStateDir = m_dir.Path() + "/\x1b[2J";

    (void)Examine();

    EXPECT_THAT(m_lines, Contains(HasSubstr(m_dir.Path() + "/\\x1B[2J, not there yet")));
    EXPECT_THAT(m_lines, Not(Contains(HasSubstr("\x1b"))));
}

TEST_F(DoctorCommandTest, WarningsAreNoFailure) {
    EXPECT_EQ(0, Examine());

    EXPECT_THAT(m_lines, Contains("ok       a sensor                   works"));
    EXPECT_THAT(m_lines.back(), HasSubstr(" warnings, 0 failed"));
}

TEST_F(DoctorCommandTest, FindingsThatCannotBeWrittenAreNoSuccess) {
    m_strOutput = "/dev/full";

    EXPECT_EQ(9, Examine());
}
