// The module's two databases around a run: made ready before it, tidied up after it.
//
// Threads: the control thread. Errors: a text that names the file.
// Ownership: the connections that hold the databases end before TidyUp.
#ifndef HOST_RUN_RUNDATABASES_H
#define HOST_RUN_RUNDATABASES_H

#include <array>
#include <string>

#include "host/base/Console.h"
#include "host/base/HostOptions.h"
#include "host/database/SqliteConnection.h"

namespace run_databases {

bool Prepare(const HostOptions& options, std::string& strError);

// Keeps both open from Prepare until the module has let go of them. The first connection makes the
// index of the write-ahead log and locks all others out meanwhile. A look (DatabaseProbe.h) would
// now and then be that one; the module tries five times at once, and then a message is lost.
std::array<SqliteConnection, 2> Hold(const HostOptions& options);

// What fails is said on standard error; nothing is lost by it.
void TidyUp(const HostOptions& options, Console& output);

}  // namespace run_databases

#endif
