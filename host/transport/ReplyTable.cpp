#include "host/transport/ReplyTable.h"

#include <utility>

uintptr_t ReplyTable::Expect(const Answer& fnAnswer) {
    const MutexLock lock(m_mutex);
    const uintptr_t nHandle = m_nNext++;
    m_expected[nHandle] = fnAnswer;
    return nHandle;
}

void ReplyTable::Forget(uintptr_t nHandle) {
    const MutexLock lock(m_mutex);
    m_expected.erase(nHandle);
}

ReplyTable::Answer ReplyTable::Take(uintptr_t nHandle) {
    const MutexLock lock(m_mutex);
    const auto found = m_expected.find(nHandle);
    if (found == m_expected.end()) {
        return {};
    }
    Answer fnAnswer = std::move(found->second);
    m_expected.erase(found);
    return fnAnswer;
}
