// Writes lines to a standard stream so that nothing a reader does can hurt the process: a closed
// pipe raises no signal, a full one costs the line instead of the time.
//
// Header only: it becomes part of whichever library uses it.
#ifndef FRAMEWORK_BASE_FDWRITER_H
#define FRAMEWORK_BASE_FDWRITER_H

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <ctime>
#include <mutex>
#include <string>

class CFdWriter {
public:
    // Writes all of strText to nFd before any other line of this library goes there. Returns
    // false when it could not be written whole: the stream is closed, or its reader has stood
    // still and the text's first byte would have had to wait (a text already begun waits up to
    // 200 ms a piece, then the rest is dropped). Threads: any. Nothing throws.
    static bool Write(int nFd, const std::string& strText) {
        const std::lock_guard<std::mutex> lock(s_mutex);
        sigset_t pipeSet;
        sigset_t oldSet;
        sigemptyset(&pipeSet);
        sigaddset(&pipeSet, SIGPIPE);
        sigset_t pendingSet;
        sigpending(&pendingSet);
        const bool bWasPending = sigismember(&pendingSet, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipeSet, &oldSet);

        const bool bWritten = WriteAll(nFd, strText);

        if (!bWasPending) {
            // A SIGPIPE that this write raised is taken away before the old mask returns.
            const timespec none = {0, 0};
            while (sigtimedwait(&pipeSet, nullptr, &none) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &oldSet, nullptr);
        return bWritten;
    }

private:
    static bool WriteAll(int nFd, const std::string& strText) {
        size_t nDone = 0;
        while (nDone < strText.size()) {
            pollfd fd = {nFd, POLLOUT, 0};
            const int nReady = poll(&fd, 1, nDone == 0 ? 0 : 200);
            if (nReady < 0 && errno == EINTR) {
                continue;
            }
            if (nReady <= 0 || (fd.revents & POLLOUT) == 0) {
                return false;
            }
            // What poll promises for a pipe: 4096 bytes fit without waiting.
            const size_t nPiece = strText.size() - nDone < 4096 ? strText.size() - nDone : 4096;
            const ssize_t nWritten = write(nFd, strText.data() + nDone, nPiece);
            if (nWritten < 0 && errno != EINTR && errno != EAGAIN) {
                return false;
            }
            nDone += nWritten > 0 ? static_cast<size_t>(nWritten) : 0;
        }
        return true;
    }

    static inline std::mutex s_mutex;  // constant-initialised, trivially destroyed
};

#endif
