#include "host/run/EventDelivery.h"

#include <chrono>
#include <string>
#include <utility>

#include "framework/abi/MsgTypes.h"
#include "host/transport/EndpointIds.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds SOURCE_WAIT(200);  // a signal is seen this much later at most
constexpr milliseconds ROOM_LOOK(250);    // between two looks for room in the queue
constexpr milliseconds ROUTER_LOOK(20);   // between two looks at the router

}  // namespace

void EventDelivery::DeliverAll(IEventSource& source, const Turn& fnTurn) {
    bool bStopped = false;
    for (;;) {
        if (!bStopped && m_control.MustEnd()) {
            source.Stop();
            bStopped = true;
        }
        EventBatch batch;
        const SourceResult eResult = source.Next(batch, SOURCE_WAIT);
        if (eResult == SOURCE_END) {
            break;
        }
        if (eResult == SOURCE_BATCH) {
            m_journal.Record(BatchTaken{batch, source.Counters().nEvents});
            Send(batch, fnTurn);
        }
        fnTurn("delivering");
    }
    source.Stop();
}

void EventDelivery::WaitForRouter() const {
    while (m_router.Pending() > 0 && !m_control.MustEnd()) {
        m_control.WaitFor(ROUTER_LOOK);
    }
}

void EventDelivery::Send(EventBatch& batch, const Turn& fnTurn) {
    static const Guid SENSOR = GuidFromText(SENSOR_ENDPOINT);
    const bool bRoom = TakeRoom(batch, fnTurn);
    if (!bRoom && !m_bRefuseWhenFull) {
        m_journal.Record(BatchUnsent{batch});
        return;
    }
    m_journal.Record(BatchSent{batch});
    if (!bRoom) {
        m_queue.Limiter().Refuse(batch.nEvents);
        m_journal.Record(BatchEnded{batch, QUEUE_BOUND_REACHED});
        return;
    }
    const size_t nBytes = batch.strBody.size();
    std::string strBody = std::move(batch.strBody);
    batch.strBody.clear();
    // Not of this: the router may call it when the delivery has ended.
    const auto fnDone = [&limiter = m_queue.Limiter(), &journal = m_journal, batch,
                         nBytes](uint32_t nCode) {
        if (nCode == 0) {
            limiter.Stored(batch.nCopies);
        } else {
            limiter.GiveBack(batch.nCopies, nBytes);
        }
        journal.Record(BatchEnded{batch, nCode});
    };
    const uint32_t nResult =
        m_router.Deliver(SENSOR, MSG_TYPE_HIPS_EVENT, std::move(strBody), fnDone);
    if (nResult != 0) {
        fnDone(nResult);
    }
}

// A recording or a walk waits for room; what the kernel reports goes on, so there is no waiting.
bool EventDelivery::TakeRoom(const EventBatch& batch, const Turn& fnTurn) {
    while (!m_queue.Limiter().Take(batch.nCopies, batch.strBody.size())) {
        if (m_bRefuseWhenFull || m_control.MustEnd()) {
            return false;
        }
        fnTurn("waiting for room in the queue");
        m_control.WaitFor(ROOM_LOOK);
    }
    return true;
}
