// The message transport of this host: one plug-in on one side, the host's endpoints and its event
// sources on the other.
//
// Every registered type and every endpoint has an executor, a bounded queue with a transport thread
// of its own: messages of one type arrive in the order in which they were sent, those of different
// types run side by side. A sender waits when the executor it sends into is full.
//
// Threads: any.
// Errors: result codes, 0 is success; those of this router are below. No call of IMsgRouter throws;
//   the others throw std::bad_alloc.
// Ownership: endpoints must live until Close has returned; see IMsgRouter for the plug-in's part.
#ifndef HOST_TRANSPORT_ROUTER_H
#define HOST_TRANSPORT_ROUTER_H

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "framework/abi/IMsgRouter.h"
#include "host/base/Mutex.h"
#include "host/transport/EndpointIds.h"
#include "host/transport/IEndpoint.h"
#include "host/transport/ReplyTable.h"
#include "host/transport/SerialExecutor.h"
#include "host/transport/TimerQueue.h"

constexpr uint32_t ROUTER_CLOSED = 0xE0020001U;            // Close was called
constexpr uint32_t ROUTER_UNKNOWN_ENDPOINT = 0xE0020002U;  // nobody stands behind the target
constexpr uint32_t ROUTER_NO_RECEIVER = 0xE0020003U;       // nobody registered for the type
constexpr uint32_t ROUTER_NO_ROOM = 0xE0020004U;           // full while the host is stopping
constexpr uint32_t ROUTER_TIMEOUT = 0xE0020005U;           // the send did not end in time

class Router : public IMsgRouter {
public:
    using Done = std::function<void(uint32_t nResult)>;
    using Answer = ReplyTable::Answer;

    explicit Router(const SerialExecutor::Limits& limits = SerialExecutor::Limits())
        : m_limits(limits) {}
    ~Router() override;  // Close

    // Puts pEndpoint behind identity. Before the plug-in is started.
    void AddEndpoint(const Guid& identity, IEndpoint* pEndpoint);

    // Sends a message to the plug-in. Waits for room only. On 0 fnDone is called once: with 0 on a
    // transport thread after the plug-in's callback has returned, or with the code that kept it
    // from being called on the thread that unregisters its receiver or closes the router. On
    // another result it is not called. fnAnswer is called when the plug-in replies during the
    // callback, at most once; without it no reply is expected.
    uint32_t Deliver(const Guid& sender, int64_t nMsgType, std::string strBody, Done fnDone = {},
                     Answer fnAnswer = {});

    // Messages on their way: waiting in an executor, or in the hands of whom they are for.
    uint64_t Pending() const { return m_nPending.load(); }

    // From now on a full executor refuses instead of letting its sender wait: before the plug-in is
    // stopped, so that no thread of it waits here.
    void EndWaiting();

    Guid LocalIdentity() const;

    uint32_t SetLocalIdentity(const Guid* pIdentity) override;
    // Refuses everything from now on. When it has returned no call into a receiver, endpoint or
    // completion is running, and every completion was called.
    void Close() override;
    uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                  uint32_t nLength) override;
    int64_t Reserved5() override { return 0; }
    int64_t Reserved6() override { return 0; }
    int64_t Reserved7() override { return 0; }
    int64_t Reserved8() override { return 0; }
    // A second registration of a type replaces the first for the messages that follow.
    uint32_t RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver,
                              int64_t nReserved) override;
    uint32_t UnregisterReceiver(int64_t nMsgType) override;
    // The handle is good during the callback it came with.
    uint32_t Reply(int64_t nReserved, int64_t nMsgType, const void* pData, uint32_t nLength,
                   void* pReplyHandle) override;
    uint32_t SendWithCompletion(const Guid* pTarget, int64_t nMsgType, const void* pData,
                                uint32_t nLength, IMRSendComplete* pComplete, int64_t nReserved,
                                uint32_t* pOut, int64_t nTimeout) override;

private:
    struct Receiver {
        std::atomic<IMRReceiveComplete*> pReceiver{nullptr};
        std::unique_ptr<SerialExecutor> pExecutor;
    };
    struct Endpoint {
        IEndpoint* pEndpoint = nullptr;
        std::unique_ptr<SerialExecutor> pExecutor;
    };
    struct Send;

    void Call(Receiver& receiver, const Guid& sender, int64_t nMsgType, const std::string& strBody,
              const Answer& fnAnswer);
    uint32_t Push(SerialExecutor& executor, size_t nBytes, SerialExecutor::Job job);
    uint32_t SendTo(Endpoint& endpoint, const Guid& target, int64_t nMsgType, std::string strBody,
                    IMRSendComplete* pComplete, uint32_t* pOut, int64_t nTimeout);
    uint32_t FindEndpoint(const Guid* pTarget, std::shared_ptr<Endpoint>& pFound) const;

    const SerialExecutor::Limits m_limits;
    mutable Mutex m_mutex;  // not held during calls or waits
    bool m_bClosed TEV_GUARDED_BY(m_mutex) = false;
    bool m_bWaiting TEV_GUARDED_BY(m_mutex) = true;
    Guid m_identity TEV_GUARDED_BY(m_mutex) = {};
    std::map<int64_t, std::shared_ptr<Receiver>> m_receivers TEV_GUARDED_BY(m_mutex);
    std::map<Guid, std::shared_ptr<Endpoint>, GuidLess> m_endpoints TEV_GUARDED_BY(m_mutex);

    ReplyTable m_replies;
    std::atomic<uint32_t> m_nNextSend{1};
    std::atomic<uint64_t> m_nPending{0};
    TimerQueue m_deadlines;
};

#endif
