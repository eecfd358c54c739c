// The module's task timer. No task is added to it by default.
//
// Threads, errors and ownership as CTaskTimer.
#ifndef TEVMON_CORE_CTEVMONTIMER_H
#define TEVMON_CORE_CTEVMONTIMER_H

#include "public/pluginhelper/CTaskTimer.h"

class CTevMonTimer : public CTaskTimer {
public:
    ~CTevMonTimer() override;

protected:
    const char* GetTimerName() const override;  // "tevmon_tasktimer"
    int GetInterval() const override;           // 5000 ms
};

#endif
