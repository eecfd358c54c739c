#include "host/command/DoctorCommand.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string>
#include <vector>

#include "host/base/Console.h"
#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/JsonWriter.h"
#include "host/process/ExitCodes.h"

namespace {

constexpr const char* WORDS[] = {"ok", "warning", "failed"};
constexpr Console::Colour COLOURS[] = {Console::COLOUR_GREEN, Console::COLOUR_YELLOW,
                                       Console::COLOUR_RED};
constexpr size_t STATE_WIDTH = 9;

std::string Padded(const std::string& strText, size_t nWidth) {
    return strText + std::string(nWidth - std::min(nWidth, strText.size()), ' ');
}

// How many findings are in each state.
using Counts = std::array<int, 3>;

void ShowJson(Console& output, const std::vector<Finding>& findings, const Counts& counts) {
    const auto tmNow = static_cast<int64_t>(time(nullptr));
    for (const Finding& finding : findings) {
        JsonObject record;
        record.Add("event", "check").Add("time", tmNow).Add("check", finding.strCheck);
        record.Add("state", WORDS[finding.eState]).Add("text", finding.strText);
        output.Line(record.Add("remedy", finding.strRemedy).Text());
    }
    JsonObject record;
    record.Add("event", "doctor").Add("time", tmNow);
    record.Add("ok", counts[FINDING_OK]).Add("warnings", counts[FINDING_WARNING]);
    output.Line(record.Add("failed", counts[FINDING_FAILED]).Text());
}

void ShowText(Console& output, const std::vector<Finding>& findings, const Counts& counts) {
    size_t nWidth = 0;
    for (const Finding& finding : findings) {
        nWidth = std::max(nWidth, finding.strCheck.size());
    }
    for (const Finding& finding : findings) {
        output.Line(
            output.Paint(COLOURS[finding.eState], Padded(WORDS[finding.eState], STATE_WIDTH)) +
            Padded(text::ForTerminal(finding.strCheck), nWidth) + "  " +
            text::ForTerminal(finding.strText));
        if (!finding.strRemedy.empty()) {
            output.Line(std::string(STATE_WIDTH + nWidth + 2, ' ') +
                        "to do: " + text::ForTerminal(finding.strRemedy));
        }
    }
    output.Line(std::to_string(counts[FINDING_OK]) + " ok, " +
                text::Count(counts[FINDING_WARNING], "warning") + ", " +
                std::to_string(counts[FINDING_FAILED]) + " failed");
}

int ExamineNow(const HostOptions& options, const doctor::Machine& machine) {
    Console output;
    const std::vector<Finding> findings = doctor::Examine(options, machine);
    Counts counts = {};
    for (const Finding& finding : findings) {
        ++counts[finding.eState];
    }
    options.Choose(ShowText, ShowJson)(output, findings, counts);
    if (output.IsBroken()) {
        return EXIT_CODE_OUTPUT;
    }
    return counts[FINDING_FAILED] > 0 ? EXIT_CODE_DOCTOR : EXIT_CODE_SUCCESS;
}

}  // namespace

void AddDoctorCommand(Command& program, const HostOptions& options, int& nExitCode,
                      const doctor::Machine& machine) {
    Command command =
        program.AddCommand("doctor", "Say what works here, what does not, and what to do");
    command.Footer("Changes nothing. Exit code 0 when nothing failed, else 11.");
    command.OnRun([&options, &nExitCode, machine] { nExitCode = ExamineNow(options, machine); });
}
