// Replies that are expected while a plug-in's callback runs, by the handle that the callback got.
//
// Threads: any. Errors: none but std::bad_alloc.
#ifndef HOST_TRANSPORT_REPLYTABLE_H
#define HOST_TRANSPORT_REPLYTABLE_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "host/base/Mutex.h"

class ReplyTable {
public:
    using Answer = std::function<void(int64_t nMsgType, const std::string& strData)>;

    ReplyTable() = default;
    ReplyTable(const ReplyTable&) = delete;
    ReplyTable& operator=(const ReplyTable&) = delete;

    // The handle, never 0 and never one given before.
    uintptr_t Expect(const Answer& fnAnswer);
    // The callback has returned; nothing happens for a handle that is not expected any more.
    void Forget(uintptr_t nHandle);
    // The function for it, once; empty when none is expected.
    Answer Take(uintptr_t nHandle);

private:
    Mutex m_mutex;
    std::map<uintptr_t, Answer> m_expected TEV_GUARDED_BY(m_mutex);
    uintptr_t m_nNext TEV_GUARDED_BY(m_mutex) = 1;
};

#endif
