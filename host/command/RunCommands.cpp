#include "host/command/RunCommands.h"

#include <memory>
#include <string>
#include <utility>

#include "host/command/RunArguments.h"
#include "host/event/ReplaySource.h"
#include "host/event/ScanSource.h"
#include "host/process/StateDir.h"

void AddReplayCommand(Command& program, const HostOptions& options, int& nExitCode) {
    const auto pArguments = std::make_shared<RunArguments>();
    Command command = program.AddCommand("replay", "Deliver recorded event messages to the module");
    command.Footer(
        "A line of FILE is one whole message. Without --drain or --for the run goes on "
        "until Ctrl-C.");
    command
        .AddOption("FILE", pArguments->strFile,
                   "Messages, one JSON text a line; - is standard input")
        .Required();
    command.AddFlag("--drain", pArguments->run.bDrain,
                    "End when the queue is empty and every query is answered");
    AddRunOptions(command, pArguments);
    command.OnRun([pArguments, &options, &nExitCode] {
        if (pArguments->strFile != "-") {
            pArguments->strFile = StateDir::Absolute(pArguments->strFile);
        }
        pArguments->run.strUnit = "line";
        const std::string strFile = pArguments->strFile;
        pArguments->run.fnMakeSource = [strFile](SourceRemark fnRemark, SensorObserver&,
                                                 const LaunchHolding&) {
            return std::make_unique<ReplaySource>(strFile, std::move(fnRemark));
        };
        nExitCode = RunNow(options, *pArguments);
    });
}

void AddScanCommand(Command& program, const HostOptions& options, int& nExitCode) {
    const auto pArguments = std::make_shared<RunArguments>();
    Command command = program.AddCommand("scan", "Ask what the cloud knows of the programs here");
    command.Footer(
        "Programs are regular files with an execute bit. Links to directories are "
        "followed only where they are named.");
    command.AddOption("PATH", pArguments->paths, "Directories and files to look at").Required();
    command.AddOption("--batch", pArguments->nBatch, "Programs in one message")
        .TypeName("N")
        .InRange(1, 100000)
        .ShowDefault();
    command
        .AddOption("--passes", pArguments->run.nPasses,
                   "How often to look at everything, each pass after the one before")
        .TypeName("N")
        .InRange(1, 1000)
        .ShowDefault();
    AddRunOptions(command, pArguments);
    command.OnRun([pArguments, &options, &nExitCode] {
        pArguments->run.bDrain = true;
        pArguments->run.strUnit = "batch";
        // By reference: RunNow makes the paths absolute before the first source is made.
        RunArguments* const pHeld = pArguments.get();
        pArguments->run.fnMakeSource = [pHeld](SourceRemark fnRemark, SensorObserver&,
                                               const LaunchHolding&) {
            return std::make_unique<ScanSource>(pHeld->paths, pHeld->nBatch, std::move(fnRemark));
        };
        nExitCode = RunNow(options, *pArguments);
    });
}
