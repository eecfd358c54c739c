#include "tevmon/core/CTevMonTimer.h"

CTevMonTimer::~CTevMonTimer() {
    Stop();
}

const char* CTevMonTimer::GetTimerName() const {
    return "tevmon_tasktimer";
}

int CTevMonTimer::GetInterval() const {
    return 5000;
}
