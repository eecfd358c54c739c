// Analyses batches of process creations: for every launched program that is a regular file, can be
// hashed and has no living verdict, one cloud query is posted.
//
// Threads: [channel], one message at a time; no state.
// Errors: nothing throws. What fails for one element is logged and skips that element only.
// Ownership: one object per process, made by Instance().
#ifndef TEVMON_CORE_CTEVPSMONITOR_H
#define TEVMON_CORE_CTEVPSMONITOR_H

#include <json/value.h>

#include <string>

#include "framework/base/SingletonAbstract.h"

class CTevPsMonitor : public utils::SingletonAbstract<CTevPsMonitor> {
public:
    // strMessage is the message as the host sent it; each element of its "param" with a "path" is a
    // launch ("cmd" and "pid" are optional). False only when it does not parse or has no "param".
    bool Run(const std::string& strSender, const std::string& strMessage);

protected:
    friend class utils::SingletonAbstract<CTevPsMonitor>;
    CTevPsMonitor() = default;
    ~CTevPsMonitor() = default;

private:
    static void RunElement(const Json::Value& jsonElement);
};

#endif
