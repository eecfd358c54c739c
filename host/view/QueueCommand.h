// tevmon-host queue: shows the messages that wait in the module's channel database.
#ifndef HOST_VIEW_QUEUECOMMAND_H
#define HOST_VIEW_QUEUECOMMAND_H

#include "host/CommandLine.h"
#include "host/GlobalOptions.h"

// Adds "queue list", "queue count" and "queue show ID" to program. options is read and nExitCode
// (ExitCodes.h) set when one of them runs, so both outlive the parsing of the command line.
void AddQueueCommand(Command& program, const GlobalOptions& options, int& nExitCode);

#endif
