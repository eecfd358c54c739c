// Analyses batches of file operations.
//
// Threads: [channel], one message at a time; no state.
// Errors: nothing throws.
// Ownership: one object per process, made by Instance().
#ifndef TEVMON_CORE_CTEVFSMONITOR_H
#define TEVMON_CORE_CTEVFSMONITOR_H

#include <string>

#include "framework/base/SingletonAbstract.h"

class CTevFsMonitor : public utils::SingletonAbstract<CTevFsMonitor> {
public:
    // Takes every message; no operation is analysed in this version.
    bool ParseFsOpMsg(const std::string& strSender, const std::string& strContent);

protected:
    friend class utils::SingletonAbstract<CTevFsMonitor>;
    CTevFsMonitor() = default;
    ~CTevFsMonitor() = default;
};

#endif
