#include "host/transport/Router.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>
#include <vector>

// One SendWithCompletion: its completion is called by whoever ends it first.
struct Router::Send {
    std::atomic<bool> bEnded{false};
    IMRSendComplete* pComplete = nullptr;
    Guid target = {};

    void End(uint32_t nResult, const std::string& strAnswer) {
        if (!bEnded.exchange(true) && pComplete != nullptr) {
            (void)pComplete->SendComplete(nResult, &target, strAnswer.data(),
                                          static_cast<uint32_t>(strAnswer.size()), nullptr, 0);
        }
    }
};

namespace {

// The calls that a plug-in makes promise not to throw; memory and threads may run out in them.
template <class Function>
uint32_t Guarded(const Function& function) {
    try {
        return function();
    } catch (const std::exception&) {
        return ERROR_OUT_OF_MEMORY;
    }
}

constexpr int64_t LONGEST_TIMEOUT = 24LL * 3600 * 1000;  // a day, in milliseconds

std::string Body(const void* pData, uint32_t nLength) {
    return pData == nullptr ? std::string() : std::string(static_cast<const char*>(pData), nLength);
}

}  // namespace

Router::~Router() {
    Close();
}

void Router::AddEndpoint(const Guid& identity, IEndpoint* pEndpoint) {
    const auto pNew = std::make_shared<Endpoint>();
    pNew->pEndpoint = pEndpoint;
    pNew->pExecutor = std::make_unique<SerialExecutor>("host_endpoint", m_limits);
    const MutexLock lock(m_mutex);
    m_endpoints[identity] = pNew;
}

uint32_t Router::Push(SerialExecutor& executor, size_t nBytes, SerialExecutor::Job job) {
    // Counted before it can run, so that Pending never reads 0 with the message under way.
    ++m_nPending;
    try {
        const bool bPushed = executor.Push(nBytes, [this, job = std::move(job)](bool bRun) {
            job(bRun);
            --m_nPending;
        });
        if (bPushed) {
            return 0;
        }
    } catch (const std::exception&) {
        --m_nPending;
        return ERROR_OUT_OF_MEMORY;
    }
    --m_nPending;
    const MutexLock lock(m_mutex);
    if (m_bClosed) {
        return ROUTER_CLOSED;
    }
    return m_bWaiting ? ROUTER_NO_RECEIVER : ROUTER_NO_ROOM;
}

uint32_t Router::Deliver(const Guid& sender, int64_t nMsgType, std::string strBody, Done fnDone,
                         Answer fnAnswer) {
    std::shared_ptr<Receiver> pReceiver;
    {
        const MutexLock lock(m_mutex);
        if (m_bClosed) {
            return ROUTER_CLOSED;
        }
        const auto it = m_receivers.find(nMsgType);
        if (it == m_receivers.end()) {
            return ROUTER_NO_RECEIVER;
        }
        pReceiver = it->second;
    }
    const size_t nBytes = strBody.size();
    Receiver* const pTarget = pReceiver.get();  // the executor of a receiver ends before it does
    return Push(*pReceiver->pExecutor, nBytes,
                [this, pTarget, sender, nMsgType, strBody = std::move(strBody),
                 fnDone = std::move(fnDone), fnAnswer = std::move(fnAnswer)](bool bRun) {
                    if (bRun) {
                        Call(*pTarget, sender, nMsgType, strBody, fnAnswer);
                    }
                    if (fnDone) {
                        fnDone(bRun ? 0 : ROUTER_NO_RECEIVER);
                    }
                });
}

void Router::Call(Receiver& receiver, const Guid& sender, int64_t nMsgType,
                  const std::string& strBody, const Answer& fnAnswer) {
    const uintptr_t nHandle = fnAnswer ? m_replies.Expect(fnAnswer) : 0;
    (void)receiver.pReceiver.load()->ReceiveCallback(&sender, nMsgType, strBody.data(),
                                                     static_cast<uint32_t>(strBody.size()),
                                                     reinterpret_cast<void*>(nHandle), 0);
    m_replies.Forget(nHandle);
}

void Router::EndWaiting() {
    std::vector<std::shared_ptr<Receiver>> receivers;
    std::vector<std::shared_ptr<Endpoint>> endpoints;
    {
        const MutexLock lock(m_mutex);
        m_bWaiting = false;
        for (const auto& entry : m_receivers) {
            receivers.push_back(entry.second);
        }
        for (const auto& entry : m_endpoints) {
            endpoints.push_back(entry.second);
        }
    }
    for (const auto& pReceiver : receivers) {
        pReceiver->pExecutor->EndWaiting();
    }
    for (const auto& pEndpoint : endpoints) {
        pEndpoint->pExecutor->EndWaiting();
    }
}

Guid Router::LocalIdentity() const {
    const MutexLock lock(m_mutex);
    return m_identity;
}

uint32_t Router::SetLocalIdentity(const Guid* pIdentity) {
    if (pIdentity == nullptr) {
        return ERROR_BAD_ARGUMENT;
    }
    const MutexLock lock(m_mutex);
    m_identity = *pIdentity;
    return 0;
}

void Router::Close() {
    std::map<int64_t, std::shared_ptr<Receiver>> receivers;
    std::map<Guid, std::shared_ptr<Endpoint>, GuidLess> endpoints;
    {
        const MutexLock lock(m_mutex);
        m_bClosed = true;
        receivers.swap(m_receivers);
        endpoints.swap(m_endpoints);
    }
    for (const auto& entry : receivers) {
        entry.second->pExecutor->Stop();
    }
    for (const auto& entry : endpoints) {
        entry.second->pExecutor->Stop();
    }
    m_deadlines.Stop();
}

uint32_t Router::FindEndpoint(const Guid* pTarget, std::shared_ptr<Endpoint>& pFound) const {
    if (pTarget == nullptr) {
        return ERROR_BAD_ARGUMENT;
    }
    const MutexLock lock(m_mutex);
    if (m_bClosed) {
        return ROUTER_CLOSED;
    }
    const auto it = m_endpoints.find(*pTarget);
    if (it == m_endpoints.end()) {
        return ROUTER_UNKNOWN_ENDPOINT;
    }
    pFound = it->second;
    return 0;
}

uint32_t Router::Post(const Guid* pTarget, int64_t nMsgType, const void* pData, uint32_t nLength) {
    std::shared_ptr<Endpoint> pEndpoint;
    const uint32_t nFound = FindEndpoint(pTarget, pEndpoint);
    if (nFound != 0) {
        return nFound;
    }
    const Guid sender = LocalIdentity();
    IEndpoint* const pReceiver = pEndpoint->pEndpoint;
    return Guarded([&] {
        return Push(*pEndpoint->pExecutor, nLength,
                    [sender, nMsgType, pReceiver, strBody = Body(pData, nLength)](bool bRun) {
                        if (bRun) {
                            (void)pReceiver->OnMessage(sender, nMsgType, strBody);
                        }
                    });
    });
}

uint32_t Router::RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver,
                                  int64_t /*nReserved*/) {
    if (pReceiver == nullptr) {
        return ERROR_BAD_ARGUMENT;
    }
    return Guarded([&]() -> uint32_t {
        const MutexLock lock(m_mutex);
        if (m_bClosed) {
            return ROUTER_CLOSED;
        }
        const auto it = m_receivers.find(nMsgType);
        if (it != m_receivers.end()) {
            it->second->pReceiver.store(pReceiver);
            return 0;
        }
        const auto pNew = std::make_shared<Receiver>();
        pNew->pReceiver.store(pReceiver);
        pNew->pExecutor = std::make_unique<SerialExecutor>("host_receive", m_limits);
        if (!m_bWaiting) {
            pNew->pExecutor->EndWaiting();
        }
        m_receivers[nMsgType] = pNew;
        return 0;
    });
}

uint32_t Router::UnregisterReceiver(int64_t nMsgType) {
    std::shared_ptr<Receiver> pEntry;
    {
        const MutexLock lock(m_mutex);
        const auto it = m_receivers.find(nMsgType);
        if (it == m_receivers.end()) {
            return ROUTER_NO_RECEIVER;
        }
        pEntry = it->second;
        m_receivers.erase(it);
    }
    pEntry->pExecutor->Stop();
    return 0;
}

uint32_t Router::Reply(int64_t /*nReserved*/, int64_t nMsgType, const void* pData, uint32_t nLength,
                       void* pReplyHandle) {
    return Guarded([&] {
        const Answer fnAnswer = m_replies.Take(reinterpret_cast<uintptr_t>(pReplyHandle));
        if (fnAnswer) {
            fnAnswer(nMsgType, Body(pData, nLength));
        }
        return fnAnswer ? 0U : ERROR_BAD_ARGUMENT;
    });
}

uint32_t Router::SendWithCompletion(const Guid* pTarget, int64_t nMsgType, const void* pData,
                                    uint32_t nLength, IMRSendComplete* pComplete,
                                    int64_t /*nReserved*/, uint32_t* pOut, int64_t nTimeout) {
    std::shared_ptr<Endpoint> pEndpoint;
    const uint32_t nFound = FindEndpoint(pTarget, pEndpoint);
    if (nFound != 0) {
        return nFound;
    }
    return Guarded([&] {
        return SendTo(*pEndpoint, *pTarget, nMsgType, Body(pData, nLength), pComplete, pOut,
                      nTimeout);
    });
}

uint32_t Router::SendTo(Endpoint& endpoint, const Guid& target, int64_t nMsgType,
                        std::string strBody, IMRSendComplete* pComplete, uint32_t* pOut,
                        int64_t nTimeout) {
    const auto pSend = std::make_shared<Send>();
    pSend->pComplete = pComplete;
    pSend->target = target;
    const Guid sender = LocalIdentity();
    const uint32_t nSend = m_nNextSend++;
    IEndpoint* const pReceiver = endpoint.pEndpoint;
    const size_t nBytes = strBody.size();
    const uint32_t nPushed =
        Push(*endpoint.pExecutor, nBytes,
             [pSend, sender, nMsgType, pReceiver, strBody = std::move(strBody)](bool bRun) {
                 if (!bRun) {
                     pSend->End(ROUTER_CLOSED, "");
                 } else if (!pSend->bEnded) {  // what is too late is not delivered at all
                     pSend->End(0, pReceiver->OnMessage(sender, nMsgType, strBody));
                 }
             });
    if (nPushed != 0) {
        return nPushed;
    }
    if (pOut != nullptr) {
        *pOut = nSend;
    }
    const int64_t nWait = std::clamp<int64_t>(nTimeout, 0, LONGEST_TIMEOUT);
    const auto due = TimerQueue::Clock::now() + std::chrono::milliseconds(nWait);
    // Not taken when the router was closed or memory ran out: the send then ends with its executor.
    (void)Guarded([&] {
        return m_deadlines.Add(due, [pSend] { pSend->End(ROUTER_TIMEOUT, ""); }) ? 0U : 1U;
    });
    return 0;
}
