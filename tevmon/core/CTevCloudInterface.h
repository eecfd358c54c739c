// Builds cloud queries and posts them. The answer comes back as a message of its own.
//
// Threads: [channel]; no state.
// Errors: nothing throws; a failed send is logged once and the query is gone.
// Ownership: one object per process, made by Instance().
#ifndef TEVMON_CORE_CTEVCLOUDINTERFACE_H
#define TEVMON_CORE_CTEVCLOUDINTERFACE_H

#include <json/value.h>

#include <cstdint>
#include <string>

#include "framework/base/SingletonAbstract.h"

struct CloudQuery {
    Json::Value jsonExt;     // the event: an array of behaviour items
    std::string strPath;     // of the file concerned, unmasked while the event's item is masked
    int32_t nPathType;       // 0, or 1 for a path that names no file any more
    const char* pszIdKey;    // "adid" or "fdid"
    const char* pszIdValue;  // the kind of event
    const char* pszFunc;     // the analyser, echoed by the answer
    std::string strContext;  // the key to record the verdict under, echoed by the answer
};

class CTevCloudInterface : public utils::SingletonAbstract<CTevCloudInterface> {
public:
    // Posts one query. True when the router took it.
    bool Post(const CloudQuery& query);
    // The same with the event as the text of an array (CEventText makes it); query.jsonExt is not
    // looked at.
    bool Post(const CloudQuery& query, const std::string& strExt);
    // What a query whose text cannot be written comes to, or whose event cannot be built: an empty
    // text, logged and sent like any other.
    bool PostEmpty();

protected:
    friend class utils::SingletonAbstract<CTevCloudInterface>;
    CTevCloudInterface() = default;
    ~CTevCloudInterface() = default;
};

#endif
