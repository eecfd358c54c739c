#include "host/HostMain.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "host/DoctorCommand.h"
#include "host/ExitCodes.h"
#include "host/GlobalOptions.h"
#include "host/RunCommands.h"
#include "host/StateDir.h"
#include "host/WatchCommand.h"
#include "host/view/QueueCommand.h"
#include "host/view/VerdictsCommand.h"

namespace {

constexpr char VERSION_TEXT[] = "tevmon-host " TEVMON_VERSION;

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
    app.add_option("--state-dir", options.strStateDir,
                   "Where the databases are kept (default: " + options.strStateDir + ")")
        ->type_name("DIR");
    app.add_option("--module", options.strModule,
                   "The module to load (default: libtevmon.so beside this program)")
        ->type_name("FILE");
    app.add_flag("--json", options.bJson, "One JSON object per line on standard output");
    app.add_flag("-v,--verbose", options.bVerbose, "Show every query, verdict and skipped program");
    app.add_option("--log-level", options.nLogLevel,
                   "Lowest level of the module's log to show: 1 skips, 2 traffic, 4 failures")
        ->type_name("N")
        ->check(CLI::Range(0, 9))
        ->capture_default_str();
    app.set_version_flag("--version", std::string(VERSION_TEXT));
}

// What is wrong with a command line. Of a missing command CLI11 says that one is required; which
// there are, and the word that is none of them, help more.
std::string FailureMessage(const CLI::App* pApp, const CLI::Error& error) {
    const std::vector<std::string> unknown = pApp->remaining(true);
    std::string strCommand = pApp->get_name();
    while (!pApp->get_subcommands().empty()) {
        pApp = pApp->get_subcommands().back();
        strCommand += " " + pApp->get_name();
    }
    const std::vector<const CLI::App*> commands =
        pApp->get_subcommands([](const CLI::App*) { return true; });
    if (error.get_name() != "RequiredError" || commands.empty()) {
        return CLI::FailureMessage::simple(pApp, error);
    }
    std::string strNames;
    for (const CLI::App* pCommand : commands) {
        strNames += (strNames.empty() ? "" : ", ") + pCommand->get_name();
    }
    return strCommand + ": " +
           (unknown.empty() ? "no command given" : "no command '" + unknown.front() + "'") +
           "; there are " + strNames + "\nRun with --help for more information.\n";
}

}  // namespace

int HostMain(int argc, const char* const* argv) {
    try {
        GlobalOptions options;
        int nExitCode = EXIT_CODE_SUCCESS;
        options.strStateDir = StateDir::DefaultPath();
        CLI::App app("The reference host of the tevmon module", "tevmon-host");
        app.footer(
            "Exit codes: 0 done, 1 failure, 2 usage, 3 input, 4 module, 5 state directory,\n"
            "6 database, 7 not found, 8 not finished in time, 9 standard output lost, 10 sensor,\n"
            "11 doctor found a failure");
        app.fallthrough();
        app.require_subcommand(1);
        app.failure_message(FailureMessage);
        AddGlobalOptions(app, options);
        app.parse_complete_callback([&options] {
            options.strStateDir = StateDir::Absolute(options.strStateDir);
            options.strModule = StateDir::Absolute(options.strModule);
        });
        AddReplayCommand(app, options, nExitCode);
        AddScanCommand(app, options, nExitCode);
        AddWatchCommand(app, options, nExitCode);
        AddDoctorCommand(app, options, nExitCode);
        AddQueueCommand(app, options, nExitCode);
        AddVerdictsCommand(app, options, nExitCode);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& result) {
            return app.exit(result) == 0 ? EXIT_CODE_SUCCESS : EXIT_CODE_USAGE;
        }
        return nExitCode;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tevmon-host: %s\n", error.what());
        return EXIT_CODE_FAILURE;
    }
}
