// The command line of tevmon-host.
#ifndef HOST_COMMAND_HOSTMAIN_H
#define HOST_COMMAND_HOSTMAIN_H

// [control] Runs the command and returns an ExitCode. Once per process: a run keeps the signals
// blocked, the umask and the current directory it has set.
int HostMain(int argc, const char* const* argv);

#endif
