#include "host/WatchCommand.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/ExitCodes.h"
#include "host/RunArguments.h"
#include "host/StateDir.h"
#include "host/Text.h"
#include "host/WatchReport.h"
#include "host/source/FanotifySensor.h"
#include "host/source/KernelSource.h"
#include "host/source/SensorChoice.h"

namespace {

struct WatchArguments {
    std::shared_ptr<RunArguments> shared = std::make_shared<RunArguments>();
    std::string strRecord;
    std::string strMetricsFile;
    double dMetricsSeconds = 10;
    bool bPlain = false;
    std::string strSensor = "auto";
    std::vector<std::string> aliases;  // "FROM=TO"
    bool bNoLaunches = false;
    bool bNoFiles = false;
    bool bAllFilesystems = false;
    bool bAllOperations = false;
    size_t nBatch = 256;
    int64_t nBatchMs = 200;
};

constexpr double SETTLE_SECONDS = 60;  // for the module to look at what was sensed last

// Null and nothing said when no recording is wanted; false when it cannot be made.
bool OpenRecording(const std::string& strFile, std::shared_ptr<FILE>& pRecord) {
    if (strFile.empty()) {
        return true;
    }
    // Command lines may hold passwords.
    const int nFd = open(strFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    FILE* const pFile = nFd < 0 ? nullptr : fdopen(nFd, "w");
    if (pFile == nullptr) {
        std::fprintf(stderr, "tevmon-host: cannot write %s: %s\n",
                     text::ForTerminal(strFile).c_str(), std::strerror(errno));
        return false;
    }
    pRecord.reset(pFile, std::fclose);
    return true;
}

FilePlaces::Aliases AliasesOf(const std::vector<std::string>& texts) {
    FilePlaces::Aliases aliases;
    for (const std::string& strText : texts) {
        const size_t nEqual = strText.find('=');
        aliases.emplace_back(strText.substr(0, nEqual), strText.substr(nEqual + 1));
    }
    return aliases;
}

std::string CheckAlias(const std::string& strText) {
    const size_t nEqual = strText.find("=/");
    return strText[0] == '/' && nEqual != std::string::npos ? ""
                                                            : "wants /FROM=/TO, two directories";
}

std::unique_ptr<IEventSource> MakeSource(const WatchArguments& arguments,
                                         const GlobalOptions& options, WatchReport& report) {
    KernelSourceOptions kernel;
    kernel.pPlaces = std::make_shared<FilePlaces>(AliasesOf(arguments.aliases));
    kernel.files.bAll = arguments.bAllOperations;
    kernel.files.nMostOperations = arguments.nBatch;
    kernel.files.batchTime = std::chrono::milliseconds(arguments.nBatchMs);
    kernel.launches.nMostLaunches = arguments.nBatch;
    kernel.launches.batchTime = std::chrono::milliseconds(arguments.nBatchMs);
    for (const char* const pszBelow : {"", "/data", "/data/db", "/run"}) {
        kernel.files.ignored.push_back(options.strStateDir + pszBelow);
    }
    std::unique_ptr<ILaunchSensor> pLaunches;
    std::unique_ptr<IFileSensor> pFiles;
    if (!arguments.bNoLaunches) {
        pLaunches = MakeSensor(arguments.strSensor);
    }
    if (!arguments.bNoFiles) {
        pFiles = MakeFileSensor(kernel.pPlaces, arguments.bAllFilesystems);
    }
    return std::make_unique<KernelSource>(std::move(pLaunches), report, std::move(pFiles), report,
                                          std::move(kernel));
}

int WatchNow(const GlobalOptions& options, WatchArguments& arguments) {
    WatchOptions watch;
    if (!OpenRecording(StateDir::Absolute(arguments.strRecord), watch.pRecord)) {
        return EXIT_CODE_INPUT;
    }
    watch.strMetricsFile = StateDir::Absolute(arguments.strMetricsFile);
    watch.bPlain = arguments.bPlain;
    watch.metricsInterval =
        std::chrono::milliseconds(static_cast<int64_t>(arguments.dMetricsSeconds * 1000));
    RunOptions& run = arguments.shared->run;
    run.strUnit = "batch";
    run.dSettleSeconds = SETTLE_SECONDS;
    run.nNoSourceCode = EXIT_CODE_SENSOR;
    run.bRefuseWhenFull = true;
    // The session makes the report first and owns both.
    const auto pReport = std::make_shared<WatchReport*>(nullptr);
    run.fnMakeReport = [watch, pReport](Output& output, const GlobalOptions& global,
                                        const VerdictService& service) {
        auto pMade = std::make_unique<WatchReport>(output, global, service, watch);
        *pReport = pMade.get();
        return pMade;
    };
    run.fnMakeSource = [pReport, arguments, &options](const SourceRemark&) {
        return MakeSource(arguments, options, **pReport);
    };
    return RunNow(options, *arguments.shared);
}

void AddReportOptions(CLI::App& command, WatchArguments& arguments) {
    command
        .add_option("--record", arguments.strRecord, "Write every message to this file, for replay")
        ->type_name("FILE");
    command.add_flag("--plain", arguments.bPlain, "Lines, also on a terminal");
    CLI::Option* const pMetrics =
        command.add_option("--metrics-file", arguments.strMetricsFile,
                           "Write the balance to this file, in Prometheus' text format");
    pMetrics->type_name("FILE");
    command
        .add_option("--metrics-interval", arguments.dMetricsSeconds,
                    "Seconds between two of these files")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str()
        ->needs(pMetrics);
}

void AddBatchOptions(CLI::App& command, WatchArguments& arguments) {
    command.add_option("--batch", arguments.nBatch, "Launches or file operations in one message")
        ->type_name("N")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    command
        .add_option("--batch-time", arguments.nBatchMs,
                    "Milliseconds from the first of them until it is handed over")
        ->type_name("MS")
        ->check(CLI::Range(1, 60000))
        ->capture_default_str();
}

void AddFileOptions(CLI::App& command, WatchArguments& arguments) {
    CLI::Option* const pNoLaunches =
        command.add_flag("--no-launches", arguments.bNoLaunches, "Do not watch launches");
    command.add_flag("--no-files", arguments.bNoFiles, "Do not watch file operations")
        ->excludes(pNoLaunches);
    command.add_flag("--all-filesystems", arguments.bAllFilesystems,
                     "Watch every local file system, not only those that hold watched places");
    command.add_flag("--all-operations", arguments.bAllOperations,
                     "Tell the module every file operation, also what it cannot act on");
    command
        .add_option("--alias", arguments.aliases,
                    "Tell paths below FROM as paths below TO where that is a watched place; "
                    "repeatable")
        ->type_name("FROM=TO")
        ->check(CheckAlias)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

void AddWatchCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode) {
    const auto pArguments = std::make_shared<WatchArguments>();
    CLI::App* const pCommand = app.add_subcommand(
        "watch", "Judge the programs that start on this machine and what happens to its files");
    pCommand->footer(
        "Needs root. Without --for it goes on until Ctrl-C. SIGUSR1 has the balance shown.");
    AddReportOptions(*pCommand, *pArguments);
    pCommand
        ->add_option("--sensor", pArguments->strSensor,
                     "What senses launches: auto takes the best that this machine allows")
        ->check(CLI::IsMember(SensorWords()));
    AddFileOptions(*pCommand, *pArguments);
    AddBatchOptions(*pCommand, *pArguments);
    AddRunOptions(*pCommand, pArguments->shared);
    pCommand->callback(
        [pArguments, &options, &nExitCode] { nExitCode = WatchNow(options, *pArguments); });
}
