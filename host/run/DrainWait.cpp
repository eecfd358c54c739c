#include "host/run/DrainWait.h"

#include <chrono>
#include <cstdint>
#include <limits>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds QUEUE_LOOK(250);     // between two looks into the queue
constexpr milliseconds MODULE_QUIET(200);   // without activity: a look disturbs nobody
constexpr milliseconds QUEUE_STILL(30000);  // a queue that stands still this long is remarked
constexpr int UNREADABLE_LOOKS = 40;        // in a row: the queue cannot be read

// When the queue moved last; it is recorded when it stands still.
class Movement {
public:
    explicit Movement(RunJournal& journal) : m_journal(journal) {}

    void See(uint64_t nDepth) {
        if (nDepth != m_nDepth) {
            m_nDepth = nDepth;
            m_moved = steady_clock::now();
        } else if (steady_clock::now() - m_moved > QUEUE_STILL) {
            m_journal.Record(QueueStalled{});
            m_moved = steady_clock::now();
        }
    }

private:
    RunJournal& m_journal;
    uint64_t m_nDepth = std::numeric_limits<uint64_t>::max();
    steady_clock::time_point m_moved = steady_clock::now();
};

}  // namespace

DrainResult WaitUntilDrained(const Router& router, const QueueMonitor& queue, RunJournal& journal,
                             const RunControl& control,
                             const std::function<void(const std::string& strDoing)>& fnTurn) {
    Movement movement(journal);
    int nUnreadable = 0;
    for (; !control.MustEnd(); control.WaitFor(QUEUE_LOOK)) {
        fnTurn("waiting for the module");
        // In this order: a message leaves the queue after its queries were posted. While the
        // module is at work a look may meet it deleting a message, which it then keeps for the
        // next time it looks at its queue, five seconds later.
        const auto heard = journal.PassCounters().lastWork;
        if (router.Pending() > 0 || (heard && steady_clock::now() - *heard <= MODULE_QUIET)) {
            nUnreadable = 0;
            continue;
        }
        const auto depth = queue.Depth();
        if (depth == 0u && router.Pending() == 0) {
            return DRAINED;
        }
        nUnreadable = depth ? 0 : nUnreadable + 1;
        if (nUnreadable >= UNREADABLE_LOOKS) {
            return DRAIN_UNREADABLE;
        }
        if (depth) {
            movement.See(*depth);
        }
    }
    return DRAIN_ENDED;
}
