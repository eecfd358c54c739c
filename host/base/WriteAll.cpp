#include "host/base/WriteAll.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

using Clock = std::chrono::steady_clock;

// In milliseconds, for poll.
int TimeUntil(Clock::time_point due) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
    return static_cast<int>(std::max<int64_t>(0, left.count()));
}

}  // namespace

int WriteAll(int nFd, std::string_view strText, std::optional<std::chrono::milliseconds> patience) {
    const auto due = Clock::now() + patience.value_or(std::chrono::milliseconds(0));
    while (!strText.empty()) {
        const ssize_t nWritten = write(nFd, strText.data(), strText.size());
        if (nWritten >= 0) {
            strText.remove_prefix(static_cast<size_t>(nWritten));
        } else if (errno == EAGAIN) {
            if (patience && Clock::now() >= due) {
                return EAGAIN;
            }
            pollfd fd = {nFd, POLLOUT, 0};
            (void)poll(&fd, 1, patience ? TimeUntil(due) : -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}
