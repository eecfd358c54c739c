#include "tevmon/core/CTevCallGate.h"

#include <pthread.h>
#include <time.h>

#include <atomic>

namespace {

std::atomic<int> s_nInside{0};
std::atomic<bool> s_bShut{false};

}  // namespace

CTevCallGate::CTevCallGate() {
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nCancelState);
    s_nInside.fetch_add(1);
    m_bOpen = !s_bShut.load();
}

CTevCallGate::~CTevCallGate() {
    s_nInside.fetch_sub(1);
    (void)pthread_setcancelstate(m_nCancelState, nullptr);
}

bool CTevCallGate::Shut(int nMilliseconds) {
    s_bShut.store(true);
    for (int i = 0; i < nMilliseconds && s_nInside.load() != 0; ++i) {
        const timespec millisecond = {0, 1000000};
        (void)nanosleep(&millisecond, nullptr);
    }
    return s_nInside.load() == 0;
}
