// How tevmon-host ends. docs/host.md lists the same numbers for its users.
#ifndef HOST_PROCESS_EXITCODES_H
#define HOST_PROCESS_EXITCODES_H

enum ExitCode : int {
    EXIT_CODE_SUCCESS = 0,     // done, also when a signal ended it cleanly
    EXIT_CODE_FAILURE = 1,     // something the host did not expect: memory, threads
    EXIT_CODE_USAGE = 2,       // the command line was not understood
    EXIT_CODE_INPUT = 3,       // a file, directory or list named by the user cannot be read
    EXIT_CODE_MODULE = 4,      // the module cannot be loaded
    EXIT_CODE_STATE = 5,       // the state directory cannot be used, or another host uses it
    EXIT_CODE_DATABASE = 6,    // a database cannot be read
    EXIT_CODE_NOT_FOUND = 7,   // the row asked for does not exist
    EXIT_CODE_UNFINISHED = 8,  // --for ran out while --drain still waited
    EXIT_CODE_OUTPUT = 9,      // standard output cannot be written: its reader left, or no room
    EXIT_CODE_SENSOR = 10,     // this machine's events cannot be captured: privilege, kernel, build
    EXIT_CODE_DOCTOR = 11,     // doctor: something that a run needs does not work
};

#endif
