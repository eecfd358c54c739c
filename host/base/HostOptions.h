// What the command line says for every command, filled before a command's callback runs.
#ifndef HOST_BASE_HOSTOPTIONS_H
#define HOST_BASE_HOSTOPTIONS_H

#include <string>
#include <utility>

#include "host/base/ModuleFacts.h"
#include "host/base/StateLayout.h"

struct HostOptions {
    std::string strStateDir;  // absolute, without a final "/"; never empty in a callback
    std::string
        strModule;  // the module to load, absolute; "" for the one in the executable's directory
    bool bJson = false;     // one JSON object per line on standard output
    bool bVerbose = false;  // every query and verdict, not only the interesting ones
    int nLogLevel = 4;      // the lowest level of the module's log that is shown

    // What is shown to people, or its record for programs, as the user asked.
    template <class Shown>
    Shown Choose(Shown forPeople, Shown forPrograms) const {
        return bJson ? std::move(forPrograms) : std::move(forPeople);
    }

    std::string DatabaseDir() const { return state_layout::Databases(strStateDir) + "/"; }
    std::string ChannelDatabase() const { return DatabaseDir() + module_facts::CHANNEL_FILE; }
    std::string CacheDatabase() const { return DatabaseDir() + module_facts::CACHE_FILE; }
};

#endif
