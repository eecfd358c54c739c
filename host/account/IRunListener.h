// Who shows or keeps what happens in a run.
#ifndef HOST_ACCOUNT_IRUNLISTENER_H
#define HOST_ACCOUNT_IRUNLISTENER_H

#include <cstdint>

#include "host/account/RunEvents.h"

// Begin, progress, passes, balances and the end come on the control thread, a RunBegun before
// anything of the router and what the module is sent; a sensor's notices and what a module says
// while it is loaded may come before it. The rest comes on the threads of the module and the
// router, of several at once.
class IRunListener {
public:
    virtual ~IRunListener() = default;
    // No lock of the journal is held. tmWhen: seconds since 1970. Throws nothing but
    // std::bad_alloc.
    virtual void OnEvent(const RunEvent& event, int64_t tmWhen) = 0;
};

#endif
