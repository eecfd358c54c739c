// The commands that run a module: replay and scan.
#ifndef HOST_RUNCOMMANDS_H
#define HOST_RUNCOMMANDS_H

#include <CLI/CLI.hpp>

#include "host/GlobalOptions.h"

// Each adds its command to app. options is read and nExitCode (ExitCodes.h) set when it runs, so
// both outlive the parsing of the command line.
void AddReplayCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode);
void AddScanCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode);

#endif
