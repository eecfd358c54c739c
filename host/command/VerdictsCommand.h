// tevmon-host verdicts: shows the verdicts that the module keeps in its cache database.
#ifndef HOST_COMMAND_VERDICTSCOMMAND_H
#define HOST_COMMAND_VERDICTSCOMMAND_H

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"

// Adds "verdicts list", "verdicts count" and "verdicts get KEY" to program. options is read and
// nExitCode (ExitCodes.h) set when one of them runs, so both outlive the parsing of the command
// line.
void AddVerdictsCommand(Command& program, const HostOptions& options, int& nExitCode);

#endif
