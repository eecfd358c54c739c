// How much may wait in the module's queue. The module itself stores whatever it is given, until the
// disk is full.
//
// Counted, not looked up: what was there at the start, what was delivered since, less what the
// module began to analyse. Now and then the count is set right by the number of rows that are
// there.
//
// Normal until nine tenths of one of the limits; then high, which is only a warning; full at the
// limit, and then nothing more is taken until both are down to seven tenths.
//
// Threads: any; one mutex. Errors: none but std::bad_alloc.
#ifndef HOST_MODULE_QUEUELIMITER_H
#define HOST_MODULE_QUEUELIMITER_H

#include <cstdint>
#include <deque>
#include <vector>

#include "host/base/Mutex.h"

// The result of a delivery that the bound refused; the router has others.
constexpr uint32_t QUEUE_BOUND_REACHED = 0xE0020007U;

struct QueueLimits {
    uint64_t nRows = 200000;
    uint64_t nBytes = 512ULL * 1024 * 1024;  // of rows as the file holds them
};

enum QueueState { QUEUE_NORMAL, QUEUE_HIGH, QUEUE_FULL };

struct QueueLoad {
    QueueState eState = QUEUE_NORMAL;
    uint64_t nRows = 0;
    uint64_t nBytes = 0;
    uint64_t nRefusedMessages = 0;  // since the start
    uint64_t nRefusedEvents = 0;    // in those
};

class QueueLimiter {
public:
    explicit QueueLimiter(const QueueLimits& limits) : m_limits(limits) {}

    // What waits before the module starts.
    void Begin(uint64_t nRows, uint64_t nBytes);

    // Takes room for a message of nBytes that will be stored nRows times. False when there is none;
    // a queue in which nothing waits has room for any message.
    bool Take(uint64_t nRows, uint64_t nBytes);
    // It is in the queue.
    void Stored(uint64_t nRows);
    // It was not delivered after all.
    void GiveBack(uint64_t nRows, uint64_t nBytes);
    // Counts a message for which there was no room and which will not be tried again.
    void Refuse(uint64_t nEvents);
    // The analysis of the oldest row began; it is deleted afterwards.
    void Analysed();
    // nRows are stored at this moment.
    void Correct(uint64_t nRows);

    QueueLoad Load() const;
    // The changes of state since the last call, in their order.
    std::vector<QueueLoad> TakeChanges();

private:
    bool HasRoom(uint64_t nRows, uint64_t nBytes) const TEV_REQUIRES(m_mutex);
    bool IsAbove(uint64_t nTenths) const TEV_REQUIRES(m_mutex);
    void RemoveOldest() TEV_REQUIRES(m_mutex);
    void Judge() TEV_REQUIRES(m_mutex);
    void Change(QueueState eState) TEV_REQUIRES(m_mutex);

    const QueueLimits m_limits;
    mutable Mutex m_mutex;
    // All rows, those on their way included.
    QueueLoad m_load TEV_GUARDED_BY(m_mutex);
    // Of these: rows whose sizes are not known one by one.
    uint64_t m_nEarlierRows TEV_GUARDED_BY(m_mutex) = 0;
    uint64_t m_nEarlierBytes TEV_GUARDED_BY(m_mutex) = 0;  // their sum
    // Of the other rows, the oldest first.
    std::deque<uint64_t> m_sizes TEV_GUARDED_BY(m_mutex);
    uint64_t m_nOnTheWay TEV_GUARDED_BY(m_mutex) = 0;  // rows taken and not stored yet
    std::vector<QueueLoad> m_changes TEV_GUARDED_BY(m_mutex);
};

#endif
