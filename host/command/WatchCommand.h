// The command that judges what this machine does, live.
#ifndef HOST_COMMAND_WATCHCOMMAND_H
#define HOST_COMMAND_WATCHCOMMAND_H

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"
#include "host/kernel/SensorMakers.h"

// Adds the command to program. options is read and nExitCode (ExitCodes.h) set when it runs, so
// both outlive the parsing of the command line.
void AddWatchCommand(Command& program, const HostOptions& options, int& nExitCode,
                     const SensorMakers& makers = {});

#endif
