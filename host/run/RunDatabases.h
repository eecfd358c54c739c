// The module's two databases around a run: made ready before it, tidied up after it.
//
// Threads: the control thread. Errors: a text that names the file.
#ifndef HOST_RUN_RUNDATABASES_H
#define HOST_RUN_RUNDATABASES_H

#include <string>

#include "host/base/Console.h"
#include "host/base/HostOptions.h"

namespace run_databases {

bool Prepare(const HostOptions& options, std::string& strError);

// What fails is said on standard error; nothing is lost by it.
void TidyUp(const HostOptions& options, Console& output);

}  // namespace run_databases

#endif
