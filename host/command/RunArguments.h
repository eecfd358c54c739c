// The options that scan, replay and watch share, and the run they lead to.
//
// Threads: the control thread. Errors: RunNow's exit code, after a text on standard error.
#ifndef HOST_COMMAND_RUNARGUMENTS_H
#define HOST_COMMAND_RUNARGUMENTS_H

#include <memory>
#include <string>
#include <vector>

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"
#include "host/run/RunSession.h"

// What the options of one command are stored in until its callback runs.
struct RunArguments {
    RunOptions run;
    std::vector<std::string> paths;
    std::string strFile;
    size_t nBatch = 32;
    bool bNoPackages = false;
};

void AddRunOptions(Command& command, const std::shared_ptr<RunArguments>& pArguments);

// Makes every path absolute and runs the module; an ExitCode.
int RunNow(const HostOptions& options, RunArguments& arguments);

#endif
