// The command that judges what this machine does, live.
#ifndef HOST_WATCHCOMMAND_H
#define HOST_WATCHCOMMAND_H

#include "host/CommandLine.h"
#include "host/GlobalOptions.h"

// Adds the command to program. options is read and nExitCode (ExitCodes.h) set when it runs, so
// both outlive the parsing of the command line.
void AddWatchCommand(Command& program, const GlobalOptions& options, int& nExitCode);

#endif
