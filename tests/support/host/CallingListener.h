// A listener of a run that calls a test with what happens.
#ifndef TESTS_SUPPORT_HOST_CALLINGLISTENER_H
#define TESTS_SUPPORT_HOST_CALLINGLISTENER_H

#include <functional>
#include <utility>

#include "host/account/IRunListener.h"

class CallingListener : public IRunListener {
public:
    explicit CallingListener(std::function<void(const RunEvent&)> fnCall)
        : m_fnCall(std::move(fnCall)) {}
    void OnEvent(const RunEvent& event, int64_t /*tmWhen*/) override { m_fnCall(event); }

private:
    const std::function<void(const RunEvent&)> m_fnCall;
};

#endif
