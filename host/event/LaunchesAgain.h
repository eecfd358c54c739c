// Launches that the module analysed too late, when another file lay under their names: they wait
// here to be reported once more, by links to the files that are held.
//
// Threads: any; one mutex. Errors: none but std::bad_alloc.
#ifndef HOST_EVENT_LAUNCHESAGAIN_H
#define HOST_EVENT_LAUNCHESAGAIN_H

#include <cstddef>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "host/base/Mutex.h"
#include "host/event/EventMessage.h"
#include "host/program/HeldFile.h"

struct LaunchAgain {
    event_message::Creation creation;  // as it was reported
    std::shared_ptr<const HeldFile> pFile;
};

class LaunchesAgain {
public:
    static constexpr size_t MOST = 16384;

    // False when too many wait, or nobody takes them any more.
    bool Add(LaunchAgain launch) {
        const MutexLock lock(m_mutex);
        if (m_bClosed || m_launches.size() >= MOST) {
            return false;
        }
        m_launches.push_back(std::move(launch));
        return true;
    }

    // The oldest, at most so many.
    std::vector<LaunchAgain> Take(size_t nMost = MOST) {
        const MutexLock lock(m_mutex);
        std::vector<LaunchAgain> taken;
        for (; !m_launches.empty() && taken.size() < nMost; m_launches.pop_front()) {
            taken.push_back(std::move(m_launches.front()));
        }
        return taken;
    }
    // The source of launches has ended.
    void Close() {
        const MutexLock lock(m_mutex);
        m_bClosed = true;
    }

private:
    Mutex m_mutex;
    std::deque<LaunchAgain> m_launches TEV_GUARDED_BY(m_mutex);
    bool m_bClosed TEV_GUARDED_BY(m_mutex) = false;
};

#endif
