#include "host/command/WatchCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/base/EscapedText.h"
#include "host/base/StateLayout.h"
#include "host/base/UniqueFd.h"
#include "host/command/RunArguments.h"
#include "host/kernel/KernelSource.h"
#include "host/process/ExitCodes.h"
#include "host/process/StateDir.h"

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
    bool bEveryLaunch = false;
    size_t nBatch = 256;
    int64_t nBatchMs = 200;
    SensorMakers makers;
};

constexpr std::chrono::seconds REPEATS(5);  // of a program that is judged already
constexpr double SETTLE_SECONDS = 60;       // for the module to analyse what was captured last

// Null and nothing said when no recording is wanted; false when it cannot be made.
bool OpenRecording(const std::string& strFile, std::shared_ptr<FILE>& pRecord) {
    if (strFile.empty()) {
        return true;
    }
    // Command lines may hold passwords. A file that is there already may be everybody's to read; a
    // device's mode is not ours to change.
    UniqueFd fd(open(strFile.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    struct stat status = {};
    const bool bFile = fd && fstat(fd.Get(), &status) == 0 && S_ISREG(status.st_mode);
    const bool bReady =
        fd && (!bFile || (fchmod(fd.Get(), 0600) == 0 && ftruncate(fd.Get(), 0) == 0));
    FILE* const pFile = bReady ? fdopen(fd.Get(), "w") : nullptr;
    if (pFile == nullptr) {
        std::fprintf(stderr, "tevmon-host: cannot write %s: %s\n",
                     text::ForTerminal(strFile).c_str(), std::strerror(errno));
        return false;
    }
    (void)fd.Release();  // the stream's now
    pRecord.reset(pFile, std::fclose);
    return true;
}

WatchedPaths::Aliases AliasesOf(const std::vector<std::string>& texts) {
    WatchedPaths::Aliases aliases;
    for (const std::string& strText : texts) {
        const size_t nEqual = strText.find('=');
        aliases.emplace_back(strText.substr(0, nEqual), strText.substr(nEqual + 1));
    }
    return aliases;
}

std::string CheckAlias(const std::string& strText) {
    const size_t nEqual = strText.find('=');
    return strText[0] == '/' && nEqual != std::string::npos && strText[nEqual + 1] == '/'
               ? ""
               : "wants /FROM=/TO, two directories";
}

std::unique_ptr<IEventSource> MakeSource(const WatchArguments& arguments,
                                         const HostOptions& options, SensorObserver& observer,
                                         const LaunchHolding& holding) {
    KernelSourceOptions kernel;
    kernel.pPlaces = std::make_shared<WatchedPaths>(AliasesOf(arguments.aliases));
    kernel.files.bAll = arguments.bAllOperations;
    kernel.files.nMostOperations = arguments.nBatch;
    kernel.files.batchTime = std::chrono::milliseconds(arguments.nBatchMs);
    kernel.launches.nMostLaunches = arguments.nBatch;
    kernel.launches.batchTime = std::chrono::milliseconds(arguments.nBatchMs);
    kernel.launches.pLinks = holding.pLinks;
    kernel.launches.pAgain = holding.pAgain;
    kernel.launches.repeats = arguments.bEveryLaunch ? std::chrono::seconds(0) : REPEATS;
    kernel.files.ignored = state_layout::Directories(options.strStateDir);
    std::unique_ptr<ILaunchSensor> pLaunches;
    std::unique_ptr<IFileSensor> pFiles;
    if (!arguments.bNoLaunches) {
        pLaunches = arguments.makers.fnLaunches(arguments.strSensor);
    }
    if (!arguments.bNoFiles) {
        pFiles = arguments.makers.fnFiles(kernel.pPlaces, arguments.bAllFilesystems);
    }
    return std::make_unique<KernelSource>(std::move(pLaunches), observer, std::move(pFiles),
                                          observer, std::move(kernel));
}

int WatchNow(const HostOptions& options, WatchArguments& arguments) {
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
    run.bWatch = true;
    run.nLargestBatch = arguments.nBatch;
    run.fnMakeListeners = [watch](Console& output, const HostOptions& global,
                                  const RunJournal& journal) {
        return MakeWatchListeners(output, global, journal, watch);
    };
    run.fnMakeSource = [arguments, &options](const SourceRemark&, SensorObserver& observer,
                                             const LaunchHolding& holding) {
        return MakeSource(arguments, options, observer, holding);
    };
    return RunNow(options, *arguments.shared);
}

void AddReportOptions(Command& command, WatchArguments& arguments) {
    command
        .AddOption("--record", arguments.strRecord, "Write every message to this file, for replay")
        .TypeName("FILE");
    command.AddFlag("--plain", arguments.bPlain, "Lines, also on a terminal");
    CommandOption metrics =
        command.AddOption("--metrics-file", arguments.strMetricsFile,
                          "Write the balance to this file, in Prometheus' text format");
    metrics.TypeName("FILE");
    command
        .AddOption("--metrics-interval", arguments.dMetricsSeconds,
                   "Seconds between two of these files")
        .TypeName("SECONDS")
        .InRange(0.1, 86400.0)
        .ShowDefault()
        .Needs(metrics);
}

void AddBatchOptions(Command& command, WatchArguments& arguments) {
    command.AddOption("--batch", arguments.nBatch, "Launches or file operations in one message")
        .TypeName("N")
        .InRange(1, 100000)
        .ShowDefault();
    command
        .AddOption("--batch-time", arguments.nBatchMs,
                   "Milliseconds from the first of them until it is reported")
        .TypeName("MS")
        .InRange(1, 60000)
        .ShowDefault();
    command.AddFlag("--every-launch", arguments.bEveryLaunch,
                    "Report every launch, also of a program that was just reported for the same "
                    "user and starter");
}

void AddFileOptions(Command& command, WatchArguments& arguments) {
    const CommandOption noLaunches =
        command.AddFlag("--no-launches", arguments.bNoLaunches, "Do not watch launches");
    command.AddFlag("--no-files", arguments.bNoFiles, "Do not watch file operations")
        .Excludes(noLaunches);
    command.AddFlag("--all-filesystems", arguments.bAllFilesystems,
                    "Watch every local file system, not only those that hold watched places");
    command.AddFlag("--all-operations", arguments.bAllOperations,
                    "Report every file operation to the module, also what it cannot act on");
    command
        .AddOption("--alias", arguments.aliases,
                   "Report paths below FROM as paths below TO where that is a watched place; "
                   "repeatable")
        .TypeName("FROM=TO")
        .Check(CheckAlias)
        .Repeatable();
}

}  // namespace

void AddWatchCommand(Command& program, const HostOptions& options, int& nExitCode,
                     const SensorMakers& makers) {
    const auto pArguments = std::make_shared<WatchArguments>();
    pArguments->makers = makers;
    Command command = program.AddCommand(
        "watch", "Judge the programs that start on this machine and what happens to its files");
    command.Footer(
        "Needs root. Without --for it goes on until Ctrl-C. SIGUSR1 has the balance shown.");
    AddReportOptions(command, *pArguments);
    command
        .AddOption("--sensor", pArguments->strSensor,
                   "What captures launches: auto takes the best that this machine allows")
        .OneOf(SensorWords());
    AddFileOptions(command, *pArguments);
    AddBatchOptions(command, *pArguments);
    AddRunOptions(command, pArguments->shared);
    command.OnRun(
        [pArguments, &options, &nExitCode] { nExitCode = WatchNow(options, *pArguments); });
}
