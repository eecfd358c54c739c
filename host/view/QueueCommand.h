// tevmon-host queue: shows the messages that wait in the module's channel database.
#ifndef HOST_VIEW_QUEUECOMMAND_H
#define HOST_VIEW_QUEUECOMMAND_H

#include <CLI/CLI.hpp>

#include "host/GlobalOptions.h"

// Adds "queue list", "queue count" and "queue show ID" to app. options is read and nExitCode
// (ExitCodes.h) set when one of them runs, so both outlive the parsing of the command line.
void AddQueueCommand(CLI::App& app, const GlobalOptions& options, int& nExitCode);

#endif
