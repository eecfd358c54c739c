// The command that judges what this machine does, live.
#ifndef HOST_WATCHCOMMAND_H
#define HOST_WATCHCOMMAND_H

#include <CLI/CLI.hpp>

#include "host/GlobalOptions.h"

// Adds the command to app. options is read and nExitCode (ExitCodes.h) set when it runs, so both
// outlive the parsing of the command line.
void AddWatchCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode);

#endif
