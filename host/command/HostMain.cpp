#include "host/command/HostMain.h"

#include <cstdio>
#include <exception>
#include <string>

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"
#include "host/command/DoctorCommand.h"
#include "host/command/QueueCommand.h"
#include "host/command/RunCommands.h"
#include "host/command/VerdictsCommand.h"
#include "host/command/WatchCommand.h"
#include "host/process/ExitCodes.h"

namespace {

constexpr char VERSION_TEXT[] = "tevmon-host " TEVMON_VERSION;

void AddGlobalOptions(Command& program, HostOptions& options) {
    const bool bDefault = !options.strStateDir.empty();
    CommandOption stateDir =
        program.AddOption("--state-dir", options.strStateDir,
                          "Where the databases are kept (" +
                              (bDefault ? "default: " + options.strStateDir
                                        : "no default: neither XDG_STATE_HOME nor HOME is set") +
                              ")");
    stateDir.TypeName("DIR").Check(
        [](const std::string& strDir) { return strDir.empty() ? "names no directory" : ""; });
    if (!bDefault) {
        stateDir.Required();
    }
    program
        .AddOption("--module", options.strModule,
                   "The module to load (default: libtevmon.so in this program's directory)")
        .TypeName("FILE");
    program.AddFlag("--json", options.bJson, "One JSON object per line on standard output");
    program.AddFlag("-v,--verbose", options.bVerbose,
                    "Show every query, verdict and skipped program");
    program
        .AddOption("--log-level", options.nLogLevel,
                   "Lowest level of the module's log to show: 1 skips, 2 traffic, 4 failures")
        .TypeName("N")
        .InRange(0, 9)
        .ShowDefault();
}

}  // namespace

int HostMain(int argc, const char* const* argv, const std::function<std::string()>& fnStateDir) {
    try {
        HostOptions options;
        int nExitCode = EXIT_CODE_SUCCESS;
        options.strStateDir = fnStateDir();
        CommandLine program("tevmon-host", "The reference host of the tevmon module");
        program.Footer(
            "Exit codes: 0 done, 1 failure, 2 usage, 3 input, 4 module, 5 state directory,\n"
            "6 database, 7 not found, 8 not finished in time, 9 standard output lost, 10 sensor,\n"
            "11 doctor found a failure");
        program.NeedsCommand();
        AddGlobalOptions(program, options);
        program.AddVersion(VERSION_TEXT);
        program.OnParsed([&options] {
            options.strStateDir = StateDir::Absolute(options.strStateDir);
            options.strModule = StateDir::Absolute(options.strModule);
        });
        AddReplayCommand(program, options, nExitCode);
        AddScanCommand(program, options, nExitCode);
        AddWatchCommand(program, options, nExitCode);
        AddDoctorCommand(program, options, nExitCode);
        AddQueueCommand(program, options, nExitCode);
        AddVerdictsCommand(program, options, nExitCode);
        (void)program.Parse(argc, argv, nExitCode);
        return nExitCode;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tevmon-host: %s\n", error.what());
        return EXIT_CODE_FAILURE;
    }
}
