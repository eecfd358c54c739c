// While one lives, every CThread::Wait of the process lasts a millisecond, and what was asked for
// is written down: the length, and the name of the thread that asked. One at a time.
#ifndef TESTS_SUPPORT_SHORTWAITS_H
#define TESTS_SUPPORT_SHORTWAITS_H

#include <sys/prctl.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "framework/base/CThread.h"

class ShortWaits {
public:
    struct Asked {
        uint32_t nMilliseconds;
        std::string strThread;  // as the kernel has it
    };

    // The action, if any, runs on the thread that is about to wait.
    explicit ShortWaits(std::function<void()> action = nullptr) {
        {
            const std::lock_guard<std::mutex> lock(s_mutex);
            s_asked.clear();
            s_action = std::move(action);
        }
        CThread::SetWaitHook(&ShortWaits::Hook);
    }
    ~ShortWaits() {
        CThread::SetWaitHook(nullptr);
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_action = nullptr;
    }

    ShortWaits(const ShortWaits&) = delete;
    ShortWaits& operator=(const ShortWaits&) = delete;

    std::vector<Asked> All() const {
        const std::lock_guard<std::mutex> lock(s_mutex);
        return s_asked;
    }

private:
    static uint32_t Hook(uint32_t nMilliseconds) {
        char szName[17] = "";
        (void)prctl(PR_GET_NAME, szName, 0, 0, 0);
        std::function<void()> action;
        {
            const std::lock_guard<std::mutex> lock(s_mutex);
            s_asked.push_back({nMilliseconds, szName});
            action = s_action;
        }
        if (action) {
            action();
        }
        return 1;
    }

    static inline std::mutex s_mutex;  // guards what follows
    static inline std::vector<Asked> s_asked;
    static inline std::function<void()> s_action;
};

#endif
