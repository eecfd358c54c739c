// What tests wait on instead of sleeping.
#ifndef TESTS_SUPPORT_EVENT_H
#define TESTS_SUPPORT_EVENT_H

#include <chrono>
#include <condition_variable>
#include <mutex>

// How long a test waits for what always happens: no neighbour makes it so late.
constexpr std::chrono::seconds HANGS_AFTER{100};

// Happens once; until Reset.
class Event {
public:
    void Set() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bSet = true;
        m_changed.notify_all();
    }

    void Reset() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bSet = false;
    }

    bool IsSet() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_bSet;
    }

    // False when it hangs.
    bool Wait() const { return WaitFor(HANGS_AFTER); }

    // False after that long without it.
    bool WaitFor(std::chrono::milliseconds duration) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        // Against the system clock: the thread sanitizer does not see the other one's waits.
        return m_changed.wait_until(lock, std::chrono::system_clock::now() + duration,
                                    [this] { return m_bSet; });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_bSet = false;
};

// For a condition that nothing announces. False when it hangs.
template <class Condition>
bool Eventually(Condition condition) {
    const Event never;
    const auto end = std::chrono::steady_clock::now() + HANGS_AFTER;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        (void)never.WaitFor(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
