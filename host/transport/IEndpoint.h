// What stands behind an endpoint identity of the router: the cloud, the centre.
#ifndef HOST_TRANSPORT_IENDPOINT_H
#define HOST_TRANSPORT_IENDPOINT_H

#include <cstdint>
#include <string>

#include "framework/abi/Guid.h"

class IEndpoint {
public:
    virtual ~IEndpoint() = default;

    // [the endpoint's transport thread, one call at a time] One message from sender. What it
    // returns goes to the sender's completion when it asked for one. Must not throw.
    virtual std::string OnMessage(const Guid& sender, int64_t nMsgType,
                                  const std::string& strBody) = 0;
};

#endif
