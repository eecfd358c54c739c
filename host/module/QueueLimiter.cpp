#include "host/module/QueueLimiter.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint64_t HIGH_TENTHS = 9;
constexpr uint64_t NORMAL_TENTHS = 7;
constexpr uint64_t ROW_OVERHEAD = 64;  // the other columns, and what SQLite adds to a row

// A message is stored as Base64.
uint64_t StoredSize(uint64_t nBytes) {
    return (nBytes + 2) / 3 * 4 + ROW_OVERHEAD;
}

// nTenths of nLimit, without overflow.
uint64_t Tenths(uint64_t nLimit, uint64_t nTenths) {
    return nLimit / 10 * nTenths + nLimit % 10 * nTenths / 10;
}

}  // namespace

void QueueLimiter::Begin(uint64_t nRows, uint64_t nBytes) {
    const MutexLock lock(m_mutex);
    m_nEarlierRows = nRows;
    m_nEarlierBytes = nRows == 0 ? 0 : nBytes;
    m_load.nRows = nRows;
    m_load.nBytes = m_nEarlierBytes;
    Judge();
}

bool QueueLimiter::HasRoom(uint64_t nRows, uint64_t nBytes) const {
    if (m_load.nRows == 0) {
        return true;
    }
    return m_load.eState != QUEUE_FULL && m_load.nRows + nRows <= m_limits.nRows &&
           m_load.nBytes + nBytes <= m_limits.nBytes;
}

bool QueueLimiter::Take(uint64_t nRows, uint64_t nBytes) {
    const MutexLock lock(m_mutex);
    const uint64_t nSize = StoredSize(nBytes);
    if (!HasRoom(nRows, nRows * nSize)) {
        Change(QUEUE_FULL);
        return false;
    }
    m_sizes.insert(m_sizes.end(), nRows, nSize);
    m_nOnTheWay += nRows;
    m_load.nRows += nRows;
    m_load.nBytes += nRows * nSize;
    Judge();
    return true;
}

void QueueLimiter::Stored(uint64_t nRows) {
    const MutexLock lock(m_mutex);
    m_nOnTheWay -= std::min(m_nOnTheWay, nRows);
}

void QueueLimiter::GiveBack(uint64_t nRows, uint64_t nBytes) {
    const MutexLock lock(m_mutex);
    const uint64_t nSize = StoredSize(nBytes);
    m_nOnTheWay -= std::min(m_nOnTheWay, nRows);
    for (; nRows > 0; --nRows) {
        const auto found = std::find(m_sizes.rbegin(), m_sizes.rend(), nSize);
        if (found == m_sizes.rend()) {
            break;  // the count was set right meanwhile
        }
        m_sizes.erase(std::next(found).base());
        --m_load.nRows;
        m_load.nBytes -= nSize;
    }
    Judge();
}

void QueueLimiter::Refuse(uint64_t nEvents) {
    const MutexLock lock(m_mutex);
    ++m_load.nRefusedMessages;
    m_load.nRefusedEvents += nEvents;
}

void QueueLimiter::Analysed() {
    const MutexLock lock(m_mutex);
    RemoveOldest();
    Judge();
}

bool QueueLimiter::IsAbove(uint64_t nTenths) const {
    return m_load.nRows > Tenths(m_limits.nRows, nTenths) ||
           m_load.nBytes > Tenths(m_limits.nBytes, nTenths);
}

void QueueLimiter::RemoveOldest() {
    uint64_t nSize = 0;
    if (m_nEarlierRows > 0) {
        nSize = m_nEarlierBytes / m_nEarlierRows;
        --m_nEarlierRows;
        m_nEarlierBytes -= nSize;
    } else if (!m_sizes.empty()) {
        nSize = m_sizes.front();
        m_sizes.pop_front();
    } else {
        return;  // one whose analysis had begun before
    }
    --m_load.nRows;
    m_load.nBytes -= nSize;
}

void QueueLimiter::Correct(uint64_t nRows) {
    const MutexLock lock(m_mutex);
    const uint64_t nTrue = nRows + m_nOnTheWay;
    while (m_load.nRows > nTrue) {
        RemoveOldest();
    }
    const uint64_t nMissing = nTrue - m_load.nRows;
    const uint64_t nEach = m_load.nRows == 0 ? ROW_OVERHEAD : m_load.nBytes / m_load.nRows;
    m_nEarlierRows += nMissing;
    m_nEarlierBytes += nMissing * nEach;
    m_load.nRows += nMissing;
    m_load.nBytes += nMissing * nEach;
    Judge();
}

QueueLoad QueueLimiter::Load() const {
    const MutexLock lock(m_mutex);
    return m_load;
}

std::vector<QueueLoad> QueueLimiter::TakeChanges() {
    const MutexLock lock(m_mutex);
    return std::exchange(m_changes, {});
}

void QueueLimiter::Judge() {
    if (m_load.nRows >= m_limits.nRows || m_load.nBytes >= m_limits.nBytes) {
        Change(QUEUE_FULL);
    } else if (!IsAbove(NORMAL_TENTHS)) {
        Change(QUEUE_NORMAL);
    } else if (m_load.eState == QUEUE_NORMAL &&
               (m_load.nRows >= Tenths(m_limits.nRows, HIGH_TENTHS) ||
                m_load.nBytes >= Tenths(m_limits.nBytes, HIGH_TENTHS))) {
        Change(QUEUE_HIGH);
    }
}

void QueueLimiter::Change(QueueState eState) {
    if (m_load.eState != eState) {
        m_load.eState = eState;
        m_changes.push_back(m_load);
    }
}
