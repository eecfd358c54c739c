// The commands that run a module: replay and scan.
#ifndef HOST_RUNCOMMANDS_H
#define HOST_RUNCOMMANDS_H

#include "host/CommandLine.h"
#include "host/GlobalOptions.h"

// Each adds its command to program. options is read and nExitCode (ExitCodes.h) set when it runs,
// so both outlive the parsing of the command line.
void AddReplayCommand(Command& program, const GlobalOptions& options, int& nExitCode);
void AddScanCommand(Command& program, const GlobalOptions& options, int& nExitCode);

#endif
