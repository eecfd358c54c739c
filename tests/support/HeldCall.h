// A call on another thread that stays in hand until the test lets it go on.
#ifndef TESTS_SUPPORT_HELDCALL_H
#define TESTS_SUPPORT_HELDCALL_H

#include "tests/support/Event.h"

class HeldCall {
public:
    // [the other thread]
    void Hold() {
        m_begun.Set();
        m_goOn.Wait();
    }

    bool HasBegun() { return m_begun.Wait(); }  // waits for it
    void GoOn() { m_goOn.Set(); }

private:
    Event m_begun;
    Event m_goOn;
};

#endif
