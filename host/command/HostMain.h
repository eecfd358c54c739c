// The command line of tevmon-host.
#ifndef HOST_COMMAND_HOSTMAIN_H
#define HOST_COMMAND_HOSTMAIN_H

#include <functional>
#include <string>

#include "host/process/StateDir.h"

// [control] Runs the command and returns an ExitCode. Once per process: a run keeps the signals
// blocked, the umask and the current directory it has set.
// fnStateDir names the state directory where the command line names none; "": there is none.
int HostMain(int argc, const char* const* argv,
             const std::function<std::string()>& fnStateDir = StateDir::DefaultPath);

#endif
