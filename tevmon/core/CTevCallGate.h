// Counts the host threads that are inside the module, so that destruction at exit can shut the door
// and wait for them.
//
// Threads: any. Errors: nothing throws.
#ifndef TEVMON_CORE_CTEVCALLGATE_H
#define TEVMON_CORE_CTEVCALLGATE_H

#include "framework/base/CQuietSignal.h"

// Held by a host thread for the length of a call into the module. A cancellation of the thread
// waits until the call has left: half-way through it would leave locks held, and a thread that is
// being unwound may not pass a catch-all. A database at the limit of a file's size raises no
// signal.
class CTevCallGate {
public:
    CTevCallGate();
    ~CTevCallGate();

    CTevCallGate(const CTevCallGate&) = delete;
    CTevCallGate& operator=(const CTevCallGate&) = delete;

    // False once the gate is shut: the call must do nothing.
    bool IsOpen() const { return m_bOpen; }

    // Lets no further call in and waits up to nMilliseconds for those inside to leave: so long may
    // an exit take. True when nobody is inside.
    static bool Shut(int nMilliseconds);

private:
    bool m_bOpen;
    int m_nCancelState = 0;
    const CQuietSignal m_quiet{SIGXFSZ};
};

#endif
