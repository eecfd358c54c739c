// The command that says what works here, what does not, and what to do about it.
#ifndef HOST_COMMAND_DOCTORCOMMAND_H
#define HOST_COMMAND_DOCTORCOMMAND_H

#include "host/base/HostOptions.h"
#include "host/command/CommandLine.h"
#include "host/doctor/Doctor.h"

// Adds the command to program. options is read and nExitCode (ExitCodes.h) set when it runs, so
// both outlive the parsing of the command line.
void AddDoctorCommand(Command& program, const HostOptions& options, int& nExitCode,
                      const doctor::Machine& machine = doctor::ThisMachine());

#endif
