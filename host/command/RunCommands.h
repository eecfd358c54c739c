// The commands that run a module: replay and scan.
#ifndef HOST_COMMAND_RUNCOMMANDS_H
#define HOST_COMMAND_RUNCOMMANDS_H

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"

// Each adds its command to program. options is read and nExitCode (ExitCodes.h) set when it runs,
// so both outlive the parsing of the command line.
void AddReplayCommand(Command& program, const HostOptions& options, int& nExitCode);
void AddScanCommand(Command& program, const HostOptions& options, int& nExitCode);

#endif
