// What happens in runs of tests: queries, messages, launches.
#ifndef TESTS_SUPPORT_HOST_RUNHAPPENINGS_H
#define TESTS_SUPPORT_HOST_RUNHAPPENINGS_H

#include <string>

#include "host/cloud/CloudQuery.h"
#include "host/event/EventMessage.h"
#include "host/event/IEventSource.h"
#include "host/kernel/launch/Launch.h"

// About the launch of the program.
inline CloudQuery LaunchQuery(const std::string& strPath) {
    CloudQuery query;
    query.strPath = strPath;
    query.strFunc = "cloudad";
    query.strKey = "key";
    query.strEvent = "CreateProcess";
    return query;
}

// A message of one file operation.
inline std::string FileMessage(const std::string& strOperation, const std::string& strPath,
                               const std::string& strProgram) {
    return R"({"param":[{"grup":"cloudquery","context":"cloudfd","path":")" + strPath +
           R"(","exe_path":")" + strProgram + R"(","optertion":")" + strOperation + R"("}]})";
}

inline EventBatch OneEvent(uint64_t nNumber, const std::string& strBody = "{}") {
    EventBatch batch;
    batch.strBody = strBody;
    batch.nNumber = nNumber;
    batch.nEvents = 1;
    return batch;
}

inline EventBatch OneLaunch(uint64_t nNumber, const std::string& strPath) {
    return OneEvent(nNumber, event_message::ProcessCreations({strPath}));
}

inline Launch Started(const std::string& strPath, const std::string& strStarter) {
    Launch launch;
    launch.creation = {strPath, strPath + " x", 4711};
    launch.strStarter = strStarter;
    launch.eOrigin = LAUNCH_PATH_INVOKED;
    return launch;
}

#endif
