#include "host/WatchCommand.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "host/ExitCodes.h"
#include "host/RunArguments.h"
#include "host/StateDir.h"
#include "host/Text.h"
#include "host/WatchReport.h"
#include "host/source/LaunchSource.h"
#include "host/source/SensorChoice.h"

namespace {

struct WatchArguments {
    std::shared_ptr<RunArguments> shared = std::make_shared<RunArguments>();
    std::string strRecord;
    std::string strSensor = "auto";
};

constexpr double SETTLE_SECONDS = 60;  // for the module to look at what was sensed last

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

int WatchNow(const GlobalOptions& options, WatchArguments& arguments) {
    std::shared_ptr<FILE> pRecord;
    if (!OpenRecording(StateDir::Absolute(arguments.strRecord), pRecord)) {
        return EXIT_CODE_INPUT;
    }
    RunOptions& run = arguments.shared->run;
    run.strUnit = "batch";
    run.dSettleSeconds = SETTLE_SECONDS;
    run.nNoSourceCode = EXIT_CODE_SENSOR;
    run.bRefuseWhenFull = true;
    // The session makes the report first and owns both.
    const auto pReport = std::make_shared<WatchReport*>(nullptr);
    run.fnMakeReport = [pRecord, pReport](Output& output, const GlobalOptions& global,
                                          const VerdictService& service) {
        auto pMade = std::make_unique<WatchReport>(output, global, service, pRecord);
        *pReport = pMade.get();
        return pMade;
    };
    run.fnMakeSource = [pReport, strSensor = arguments.strSensor](const SourceRemark&) {
        return std::make_unique<LaunchSource>(MakeSensor(strSensor), **pReport);
    };
    return RunNow(options, *arguments.shared);
}

}  // namespace

void AddWatchCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode) {
    const auto pArguments = std::make_shared<WatchArguments>();
    CLI::App* const pCommand =
        app.add_subcommand("watch", "Judge the programs that start on this machine");
    pCommand->footer(
        "Needs root. Without --for it goes on until Ctrl-C. SIGUSR1 has the balance shown.");
    pCommand
        ->add_option("--record", pArguments->strRecord,
                     "Write every message to this file, for replay")
        ->type_name("FILE");
    pCommand
        ->add_option("--sensor", pArguments->strSensor,
                     "What senses launches: auto takes the best that this machine allows")
        ->check(CLI::IsMember(SensorWords()));
    AddRunOptions(*pCommand, pArguments->shared);
    pCommand->callback(
        [pArguments, &options, &nExitCode] { nExitCode = WatchNow(options, *pArguments); });
}
