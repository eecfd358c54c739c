// Launches on this machine, as they are reported, and who observes them.
#ifndef HOST_KERNEL_LAUNCH_LAUNCH_H
#define HOST_KERNEL_LAUNCH_LAUNCH_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/event/EventMessage.h"
#include "host/event/IEventSource.h"
#include "host/kernel/launch/LaunchEvent.h"
#include "host/kernel/launch/LaunchPath.h"
#include "host/program/HeldFile.h"

// Who started it and where.
struct LaunchContext {
    uint32_t nUid = 0;
    std::string strCgroup;     // in the unified hierarchy; "" when not known
    std::string strContainer;  // its id, from the cgroup's name; "" for none
};

struct Launch {
    event_message::Creation creation;  // under the file's own name
    HeldFileRef pFile = nullptr;       // null when it is not held
    std::string strLink = {};          // LAUNCH_PATH_HELD: the path that the module gets
    LaunchContext context;
    std::string strStarter;  // path of the program that started it, "" when nobody knows
    LaunchPathOrigin eOrigin = LAUNCH_PATH_NONE;
    bool bScript = false;  // reported in addition to its interpreter's launch
    bool bArgsCut = false;
};

struct LaunchCounters {
    uint64_t nCaptured = 0;    // launches that the kernel had, the lost ones included
    uint64_t nLost = 0;        // of these: no record
    uint64_t nBroken = 0;      // of these: a record that is none
    uint64_t nOwn = 0;         // of these: the host's own process
    uint64_t nUnresolved = 0;  // of these: no path names the file
    uint64_t nReported = 0;    // of these: reported
    uint64_t nRepeated = 0;    // of these: an earlier report of the same does for it
    uint64_t nScripts = 0;     // reported in addition
    uint64_t nAgain = 0;       // reported once more, by a link to the held file
    uint64_t nFresh = 0;       // of the reported ones: only if it is bad is known what they held
    uint64_t nNotHeld = 0;     // of the reported ones: their files are not held
    uint64_t nBatched = 0;     // programs and scripts in a batch that is not full yet
    uint64_t nScriptsUnreported = 0;
    uint64_t nArgsCut = 0;
    uint64_t nArgsUnreadable = 0;
    uint64_t nOthersLost = 0;  // copies and ends of processes: starters may be unknown

    // Captured, and neither reported nor counted for a reason.
    uint64_t Waiting() const {
        const uint64_t nKnown = nLost + nBroken + nOwn + nUnresolved + nReported + nRepeated;
        return nCaptured > nKnown ? nCaptured - nKnown : 0;
    }
};

class ILaunchObserver {
public:
    virtual ~ILaunchObserver() = default;
    virtual void OnLaunch(const Launch& launch) = 0;
    // pFile: held all the same; may be null.
    virtual void OnUnresolved(const LaunchEvent& event, const LaunchContext& context,
                              const HeldFileRef& pFile) = 0;
    // It is not reported, because an earlier report does for it; its pFile is null.
    virtual void OnRepeat(const Launch& launch) = 0;
    // nLost launches more were lost, nTotal since the start.
    virtual void OnLost(uint64_t nLost, uint64_t nTotal) = 0;
    virtual void OnCounters(const LaunchCounters& counters) = 0;
    // Once, from Start: by what launches are captured, and what that cannot see.
    virtual void OnNotice(const std::string& strText) = 0;
};

#endif
