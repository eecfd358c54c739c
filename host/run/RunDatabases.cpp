#include "host/run/RunDatabases.h"

#include "host/database/ModuleDatabase.h"

namespace run_databases {

bool Prepare(const HostOptions& options, std::string& strError) {
    return ModuleDatabase(options.ChannelDatabase()).Prepare(strError) &&
           ModuleDatabase(options.CacheDatabase()).Prepare(strError);
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
