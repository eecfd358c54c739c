// Hands a source's batches to the module, as far as its queue has room.
//
// Threads: the control thread; what became of a delivery is recorded on the router's.
// Errors: a message that is refused or not delivered is counted and recorded, with its code.
// Ownership: router, queue and journal must outlive it; queue and journal the router's last
// delivery.
#ifndef HOST_RUN_EVENTDELIVERY_H
#define HOST_RUN_EVENTDELIVERY_H

#include <functional>
#include <string>

#include "host/event/IEventSource.h"
#include "host/run/QueueMonitor.h"
#include "host/run/RunControl.h"
#include "host/transport/Router.h"

class EventDelivery {
public:
    // What the run does in every loop that waits or works for long; the text says what it is at.
    using Turn = std::function<void(const std::string& strDoing)>;

    // bRefuseWhenFull: what finds no room is refused, rather than waited for.
    EventDelivery(Router& router, QueueMonitor& queue, RunJournal& journal,
                  const RunControl& control, bool bRefuseWhenFull)
        : m_router(router),
          m_queue(queue),
          m_journal(journal),
          m_control(control),
          m_bRefuseWhenFull(bRefuseWhenFull) {}

    // Until the source ends, which it is asked to when the run must end.
    void DeliverAll(IEventSource& source, const Turn& fnTurn);
    // Until the router has nothing under way, or the run must end.
    void WaitForRouter() const;

private:
    void Send(EventBatch& batch, const Turn& fnTurn);
    bool TakeRoom(const EventBatch& batch, const Turn& fnTurn);

    Router& m_router;
    QueueMonitor& m_queue;
    RunJournal& m_journal;
    const RunControl& m_control;
    const bool m_bRefuseWhenFull;
};

#endif
