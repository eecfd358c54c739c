#include "host/run/RunDatabases.h"

#include "host/database/ModuleDatabase.h"

namespace run_databases {

bool Prepare(const HostOptions& options, std::string& strError) {
    return ModuleDatabase(options.ChannelDatabase()).Prepare(strError) &&
           ModuleDatabase(options.CacheDatabase()).Prepare(strError);
}

std::array<SqliteConnection, 2> Hold(const HostOptions& options) {
    std::array<SqliteConnection, 2> held;
    const std::string files[] = {options.ChannelDatabase(), options.CacheDatabase()};
    for (size_t i = 0; i < held.size(); ++i) {
        // The first statement makes the index of the write-ahead log, which stays with the
        // connection. What fails here costs only what is prevented by it.
        std::string strAnswer;
        if (held[i].Open(files[i], SQLITE_OPEN_READONLY, 1000) == SQLITE_OK) {
            (void)held[i].Execute("select count(*) from sqlite_master", strAnswer);
        }
    }
    return held;
}

void TidyUp(const HostOptions& options, Console& output) {
    for (const std::string& strFile : {options.ChannelDatabase(), options.CacheDatabase()}) {
        std::string strError;
        if (!ModuleDatabase(strFile).TidyUp(strError)) {
            output.Complain(strError);
        }
    }
}

}  // namespace run_databases
