// A start, a copy or an end of a process, as a sensor reports it, without a file.
#ifndef TESTS_SUPPORT_HOST_PROCESSEVENT_H
#define TESTS_SUPPORT_HOST_PROCESSEVENT_H

#include <cstdint>

#include "host/kernel/launch/LaunchEvent.h"

inline LaunchEvent ProcessEvent(LaunchKind eKind, uint32_t nPid, uint32_t nPpid = 0) {
    LaunchEvent event;
    event.eKind = eKind;
    event.nPid = nPid;
    event.nPpid = nPpid;
    return event;
}

#endif
