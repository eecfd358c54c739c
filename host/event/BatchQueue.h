// What sensors report, on its way into messages: the batch that is being filled, and the full ones.
//
// Threads: one object, one thread. Errors: none but std::bad_alloc.
//
// Memory is bounded by how soon the caller takes the full ones.
#ifndef HOST_EVENT_BATCHQUEUE_H
#define HOST_EVENT_BATCHQUEUE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

struct BatchLimits {
    size_t nMostItems;                    // in one batch
    size_t nMostBytes;                    // of their texts, passed by one item at most
    std::chrono::milliseconds batchTime;  // from a batch's first item until it is due
};

template <class Item>
class BatchQueue {
public:
    using Clock = std::chrono::steady_clock;

    explicit BatchQueue(const BatchLimits& limits) : m_limits(limits) {}

    // nBytes: of the item's texts.
    void Add(Item item, size_t nBytes, Clock::time_point now) {
        if (!IsFilling()) {
            m_filling.due = now + m_limits.batchTime;
        }
        m_filling.nBytes += nBytes;
        m_filling.items.push_back(std::move(item));
        if (m_filling.items.size() >= m_limits.nMostItems ||
            m_filling.nBytes >= m_limits.nMostBytes) {
            Close();
        }
    }

    // True when a batch is full or due; bAny: or holds anything.
    bool HasBatch(Clock::time_point now, bool bAny) const {
        return !m_full.empty() || (IsFilling() && (bAny || now >= m_filling.due));
    }
    bool IsFilling() const { return !m_filling.items.empty(); }
    // Of the batch that is being filled: another one for each.
    uint64_t Number() const { return m_nNumber; }

    // The oldest batch, full or not.
    std::vector<Item> TakeOldest() {
        if (m_full.empty()) {
            Close();
        }
        std::vector<Item> items = std::move(m_full.front().items);
        m_full.pop_front();
        return items;
    }

private:
    struct Batch {
        std::vector<Item> items;
        size_t nBytes = 0;
        Clock::time_point due;
    };

    void Close() {
        m_full.push_back(std::exchange(m_filling, Batch()));
        ++m_nNumber;
    }

    const BatchLimits m_limits;
    Batch m_filling;
    uint64_t m_nNumber = 0;
    std::deque<Batch> m_full;  // oldest first
};

#endif
