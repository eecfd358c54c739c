// tevmon-host queue: shows the messages that wait in the module's channel database.
#ifndef HOST_COMMAND_QUEUECOMMAND_H
#define HOST_COMMAND_QUEUECOMMAND_H

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"

// Adds "queue list", "queue count" and "queue show ID" to program. options is read and nExitCode
// (ExitCodes.h) set when one of them runs, so both outlive the parsing of the command line.
void AddQueueCommand(Command& program, const HostOptions& options, int& nExitCode);

#endif
