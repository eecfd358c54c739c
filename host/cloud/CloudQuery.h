// A query of the module to the cloud, and what became of it.
#ifndef HOST_CLOUD_CLOUDQUERY_H
#define HOST_CLOUD_CLOUDQUERY_H

#include <string>

struct CloudQuery {
    std::string strPath;   // the file concerned, as the module names it
    std::string strFunc;   // "cloudad", "cloudfd", "cloudfs"
    std::string strKey;    // SHA-1 and MD5 of the program; "" when no answer is wanted
    std::string strEvent;  // what happened: "CreateProcess", "FileCreate", ...
};

enum QueryFate {
    QUERY_ANSWERED,       // the answer is on its way
    QUERY_KNOWN,          // not answered: the module has, or is getting, the answer for this key
    QUERY_NO_KEY,         // not answered: it names no key
    QUERY_UNREADABLE,     // no query at all
    QUERY_NOT_DELIVERED,  // the router did not take the answer
};

// Whether nobody can be given a verdict by it.
inline bool IsLost(QueryFate eFate) {
    return eFate == QUERY_UNREADABLE || eFate == QUERY_NOT_DELIVERED;
}

#endif
