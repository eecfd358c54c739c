// Who a router's tests stand on both of its sides: a receiver, an endpoint, a completion.
#ifndef TESTS_UNIT_HOST_TRANSPORT_ROUTERPARTS_H
#define TESTS_UNIT_HOST_TRANSPORT_ROUTERPARTS_H

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/transport/Router.h"
#include "tests/support/Event.h"
#include "tests/support/HeldCall.h"

constexpr Guid SENDER = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
constexpr Guid CLOUD = {9, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

class Receiver : public IMRReceiveComplete {
public:
    int64_t ReceiveCallback(const Guid* pSender, int64_t nMsgType, const void* pData,
                            uint32_t nLength, void* pReplyHandle, int64_t nExtra) override {
        const std::string strBody(static_cast<const char*>(pData), nLength);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bodies.push_back(strBody);
            m_sender = *pSender;
            m_nType = nMsgType;
            m_nExtra = nExtra;
        }
        if (fnCalled) {
            fnCalled(pReplyHandle);
        }
        return 0;
    }
    std::vector<std::string> Bodies() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_bodies;
    }

    std::function<void(void* pReplyHandle)> fnCalled;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_bodies;
    Guid m_sender = {};
    int64_t m_nType = 0;
    int64_t m_nExtra = -1;
};

class EndpointThere : public IEndpoint {
public:
    std::string OnMessage(const Guid& sender, int64_t nMsgType,
                          const std::string& strBody) override {
        m_sender = sender;
        m_nType = nMsgType;
        m_strBody = strBody;
        if (fnCalled) {
            fnCalled();
        }
        m_called.Set();
        return "answer to " + strBody;
    }

    std::function<void()> fnCalled;
    Event m_called;
    Guid m_sender = {};
    int64_t m_nType = 0;
    std::string m_strBody;
};

class Completion : public IMRSendComplete {
public:
    int64_t SendComplete(uint32_t nResult, const void* pSource, const void* pAnswer,
                         uint32_t nLength, void* pContext, int64_t nExtra) override {
        m_nResult = nResult;
        m_source = *static_cast<const Guid*>(pSource);
        m_bPlain = pContext == nullptr && nExtra == 0;
        m_strAnswer.assign(static_cast<const char*>(pAnswer), nLength);
        ++m_nCalls;
        m_called.Set();
        return 0;
    }

    Event m_called;
    std::atomic<int> m_nCalls{0};
    uint32_t m_nResult = 1;
    Guid m_source = {};
    bool m_bPlain = false;
    std::string m_strAnswer;
};

class RouterTest : public testing::Test {
protected:
    // Declared before the router, which calls them until it is closed.
    Receiver m_receiver;
    EndpointThere m_cloud;
    Completion m_completion;
    Router m_router;
};

#endif
