#include "host/RunCommands.h"

#include <memory>
#include <string>
#include <utility>

#include "host/RunArguments.h"
#include "host/StateDir.h"
#include "host/source/ReplaySource.h"
#include "host/source/ScanSource.h"

void AddReplayCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode) {
    const auto pArguments = std::make_shared<RunArguments>();
    CLI::App* const pCommand =
        app.add_subcommand("replay", "Deliver recorded event messages to the module");
    pCommand->footer(
        "A line of FILE is one whole message. Without --drain or --for the run goes on "
        "until Ctrl-C.");
    pCommand
        ->add_option("FILE", pArguments->strFile,
                     "Messages, one JSON text a line; - is standard input")
        ->required();
    pCommand->add_flag("--drain", pArguments->run.bDrain,
                       "End when the queue is empty and every query is answered");
    AddRunOptions(*pCommand, pArguments);
    pCommand->callback([pArguments, &options, &nExitCode] {
        if (pArguments->strFile != "-") {
            pArguments->strFile = StateDir::Absolute(pArguments->strFile);
        }
        pArguments->run.strUnit = "line";
        const std::string strFile = pArguments->strFile;
        pArguments->run.fnMakeSource = [strFile](SourceRemark fnRemark) {
            return std::make_unique<ReplaySource>(strFile, std::move(fnRemark));
        };
        nExitCode = RunNow(options, *pArguments);
    });
}

void AddScanCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode) {
    const auto pArguments = std::make_shared<RunArguments>();
    CLI::App* const pCommand =
        app.add_subcommand("scan", "Ask what the cloud knows of the programs here");
    pCommand->footer(
        "Programs are regular files with an execute bit. Links to directories are "
        "followed only where they are named.");
    pCommand->add_option("PLACE", pArguments->places, "Directories and files to look at")
        ->required();
    pCommand->add_option("--batch", pArguments->nBatch, "Programs in one message")
        ->type_name("N")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    pCommand
        ->add_option("--passes", pArguments->run.nPasses,
                     "How often to look at everything, each pass after the one before")
        ->type_name("N")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    AddRunOptions(*pCommand, pArguments);
    pCommand->callback([pArguments, &options, &nExitCode] {
        pArguments->run.bDrain = true;
        pArguments->run.strUnit = "batch";
        // By reference: RunNow makes the places absolute before the first source is made.
        RunArguments* const pHeld = pArguments.get();
        pArguments->run.fnMakeSource = [pHeld](SourceRemark fnRemark) {
            return std::make_unique<ScanSource>(pHeld->places, pHeld->nBatch, std::move(fnRemark));
        };
        nExitCode = RunNow(options, *pArguments);
    });
}
