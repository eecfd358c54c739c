#include "host/RunCommands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/ExitCodes.h"
#include "host/RunSession.h"
#include "host/StateDir.h"
#include "host/Text.h"
#include "host/WatchReport.h"
#include "host/source/LaunchSensor.h"
#include "host/source/LaunchSource.h"
#include "host/source/ReplaySource.h"
#include "host/source/ScanSource.h"

namespace {

// What the options of one command are stored in until its callback runs.
struct RunArguments {
    RunOptions run;
    std::vector<std::string> places;
    std::string strFile;
    size_t nBatch = 32;
    bool bNoPackages = false;
    std::string strRecord;
};

constexpr double SETTLE_SECONDS = 60;  // for the module to look at what was sensed last

void AddRunOptions(CLI::App& command, const std::shared_ptr<RunArguments>& pArguments) {
    RunOptions& run = pArguments->run;
    command
        .add_option("--block", run.blockLists,
                    "List of programs to block (sha1sum, md5sum, .hdb or .hsb); repeatable")
        ->type_name("LIST")
        ->expected(1)
        ->allow_extra_args(false)  // what follows the list is a place
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command
        .add_option("--allow", run.allowLists, "List of programs to allow, likewise; repeatable")
        ->type_name("LIST")
        ->expected(1)
        ->allow_extra_args(false)  // what follows the list is a place
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_flag("--no-packages", pArguments->bNoPackages,
                     "Do not ask the package database of this machine");
    command.add_option("--for", run.dForSeconds, "End after this many seconds at the latest")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);
}

int RunNow(const GlobalOptions& options, RunArguments& arguments) {
    // The session changes the current directory, so every path is made absolute before it.
    for (std::vector<std::string>* pPaths :
         {&arguments.run.blockLists, &arguments.run.allowLists, &arguments.places}) {
        for (std::string& strPath : *pPaths) {
            strPath = StateDir::Absolute(strPath);
        }
    }
    arguments.run.bPackages = !arguments.bNoPackages;
    RunSession session(options, std::move(arguments.run));
    return session.Run();
}

// Null and nothing said when no recording is wanted; false when it cannot be made.
bool OpenRecording(const std::string& strFile, std::shared_ptr<FILE>& pRecord) {
    if (strFile.empty()) {
        return true;
    }
    FILE* const pFile = std::fopen(strFile.c_str(), "we");
    if (pFile == nullptr) {
        std::fprintf(stderr, "tevmon-host: cannot write %s: %s\n",
                     text::ForTerminal(strFile).c_str(), std::strerror(errno));
        return false;
    }
    pRecord.reset(pFile, std::fclose);
    return true;
}

int WatchNow(const GlobalOptions& options, RunArguments& arguments) {
    std::shared_ptr<FILE> pRecord;
    if (!OpenRecording(StateDir::Absolute(arguments.strRecord), pRecord)) {
        return EXIT_CODE_INPUT;
    }
    RunOptions& run = arguments.run;
    run.strUnit = "batch";
    run.dSettleSeconds = SETTLE_SECONDS;
    run.nNoSourceCode = EXIT_CODE_SENSOR;
    // The session makes the report first and owns both.
    const auto pReport = std::make_shared<WatchReport*>(nullptr);
    run.fnMakeReport = [pRecord, pReport](Output& output, const GlobalOptions& global,
                                          const VerdictService& service) {
        auto pMade = std::make_unique<WatchReport>(output, global, service, pRecord);
        *pReport = pMade.get();
        return pMade;
    };
    run.fnMakeSource = [pReport](const SourceRemark&) {
        return std::make_unique<LaunchSource>(MakeLaunchSensor(), **pReport);
    };
    return RunNow(options, arguments);
}

}  // namespace

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

void AddWatchCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode) {
    const auto pArguments = std::make_shared<RunArguments>();
    CLI::App* const pCommand =
        app.add_subcommand("watch", "Judge the programs that start on this machine");
    pCommand->footer(
        "Needs root. Without --for it goes on until Ctrl-C. SIGUSR1 has the balance shown.");
    pCommand
        ->add_option("--record", pArguments->strRecord,
                     "Write every message to this file, for replay")
        ->type_name("FILE");
    AddRunOptions(*pCommand, pArguments);
    pCommand->callback(
        [pArguments, &options, &nExitCode] { nExitCode = WatchNow(options, *pArguments); });
}
