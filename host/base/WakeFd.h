// Wakes, once and for good, a thread that waits in poll: an eventfd that becomes readable and stays
// so.
//
// Threads: Open and Close while nobody else uses the object; Wake from any thread. Errors:
// returned.
#ifndef HOST_BASE_WAKEFD_H
#define HOST_BASE_WAKEFD_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "host/base/UniqueFd.h"

class WakeFd {
public:
    // False with errno set. Before it Wake does nothing, and poll leaves Fd out.
    bool Open() {
        m_fd.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        return static_cast<bool>(m_fd);
    }
    void Close() { m_fd.Reset(); }

    void Wake() const {
        const uint64_t nOne = 1;
        (void)!write(m_fd.Get(), &nOne, sizeof(nOne));  // full means that it is awake already
    }

    // Poll waits again.
    void Clear() const {
        uint64_t nCount = 0;
        (void)!read(m_fd.Get(), &nCount, sizeof(nCount));  // none: it was clear
    }

    int Fd() const { return m_fd.Get(); }  // for poll, with POLLIN

private:
    UniqueFd m_fd;
};

#endif
