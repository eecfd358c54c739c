// The cloud of this host: takes the module's queries, asks the verdict service and answers
// through the same router.
//
// Threads: OnMessage on the transport thread of its executor; answers end on the module's.
// Errors: whatever is wrong with a query is reported to the observer, nothing throws.
// Ownership: router, service, keys and observer must outlive it.
#ifndef HOST_CLOUD_CLOUDENDPOINT_H
#define HOST_CLOUD_CLOUDENDPOINT_H

#include <string>

#include "host/cloud/AnswerTracker.h"
#include "host/cloud/CloudQuery.h"
#include "host/transport/IEndpoint.h"
#include "host/transport/Router.h"
#include "host/verdict/VerdictService.h"

class ICloudObserver {
public:
    virtual ~ICloudObserver() = default;
    // [transport] One query and what became of it. verdict is what the service says of the key.
    virtual void OnQuery(const CloudQuery& query, QueryFate eFate, const Verdict& verdict) = 0;
    // [transport] The answer to a query that was QUERY_ANSWERED reached the module, or did
    // not; this may come before OnQuery of that query.
    virtual void OnAnswerEnded(const std::string& strKey, int nLevel, bool bDelivered) = 0;
};

class CloudEndpoint : public IEndpoint {
public:
    CloudEndpoint(Router& router, const VerdictService& service, AnswerTracker& keys,
                  ICloudObserver& observer);

    std::string OnMessage(const Guid& sender, int64_t nMsgType,
                          const std::string& strBody) override;

private:
    QueryFate Answer(const CloudQuery& query, const Verdict& verdict);

    Router& m_router;
    const VerdictService& m_service;
    AnswerTracker& m_keys;
    ICloudObserver& m_observer;
    const Guid m_identity;
};

#endif
