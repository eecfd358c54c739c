// What happens in a run, of RunEvents.h: to launches.
//
// What an event refers to is there for the call only.
#ifndef HOST_ACCOUNT_RUNLAUNCHEVENTS_H
#define HOST_ACCOUNT_RUNLAUNCHEVENTS_H

#include <cstdint>
#include <string>

#include "host/kernel/launch/Launch.h"
#include "host/program/HeldFile.h"

// It was made part of a message.
struct LaunchReported {
    const Launch& launch;
};

// It is not reported: an earlier report of the same program does for it.
struct LaunchRepeated {
    const Launch& launch;
};

// No path names its file.
struct LaunchUnresolved {
    const LaunchEvent& event;
    const LaunchContext& context;
    HeldFileRef pFile = nullptr;  // held all the same; may be null
};

struct LaunchesLost {
    uint64_t nLaunches;
    uint64_t nTotal;  // since the start
};

// Another content than the one started lay under its name when the module hashed it. No verdict on
// that is shown.
struct LaunchChanged {
    const std::string& strFile;
    const std::string& strHashedKey;  // SHA-1 and MD5 of what lay there
    const std::string& strKey;        // of what was started; "" when that is not known
    bool bAgain;                      // it is reported once more, by a link to its file
};

#endif
