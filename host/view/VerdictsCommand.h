// tevmon-host verdicts: shows the verdicts that the module keeps in its cache database.
#ifndef HOST_VIEW_VERDICTSCOMMAND_H
#define HOST_VIEW_VERDICTSCOMMAND_H

#include "host/CommandLine.h"
#include "host/GlobalOptions.h"

// Adds "verdicts list", "verdicts count" and "verdicts get KEY" to program. options is read and
// nExitCode (ExitCodes.h) set when one of them runs, so both outlive the parsing of the command
// line.
void AddVerdictsCommand(Command& program, const GlobalOptions& options, int& nExitCode);

#endif
