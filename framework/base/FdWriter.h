// Writes lines to a standard stream so that nothing a reader does can hurt the process: a closed
// pipe raises no signal, a full one costs the line instead of the time.
//
// Header only: it becomes part of whichever library uses it.
#ifndef FRAMEWORK_BASE_FDWRITER_H
#define FRAMEWORK_BASE_FDWRITER_H

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <utility>

class CFdWriter {
public:
    // Writes all of strText to nFd before any other line of this library goes there. Returns
    // false when it could not be written whole: the stream is closed or not for writing, the disk
    // or the file size limit is full, or the reader of a pipe, terminal or socket stands still.
    // Then a text whose first byte would have to wait is not written at all, and one already begun
    // gets 200 ms in all before the rest is dropped; the next text to the same stream starts on a
    // line of its own. Leaves errno as it was. Threads: any. Nothing throws.
    static bool Write(int nFd, const std::string& strText) {
        const std::lock_guard<std::mutex> lock(s_mutex);
        const int nOldErrno = errno;
        bool bWritten = false;
        {
            const QuietSignals quiet;
            const Target target(nFd);
            bWritten = WriteLine(target, strText, s_cutStreams[nFd & 3]);
        }
        errno = nOldErrno;
        return bWritten;
    }

private:
    using Clock = std::chrono::steady_clock;
    using StreamId = std::pair<dev_t, ino_t>;  // a descriptor's number may go to another stream

    // Holds back the signals of a failing write, and takes away the one that it raised. One that
    // was pending before stays the process's.
    class QuietSignals {
    public:
        QuietSignals() {
            sigemptyset(&m_signals);
            sigaddset(&m_signals, SIGPIPE);
            sigaddset(&m_signals, SIGXFSZ);
            (void)pthread_sigmask(SIG_BLOCK, &m_signals, &m_oldMask);
            // Asked once they are blocked: what was not pending by now is this write's.
            (void)sigpending(&m_pendingBefore);
        }
        ~QuietSignals() {
            const timespec none = {0, 0};
            for (const int nSignal : {SIGPIPE, SIGXFSZ}) {
                if (sigismember(&m_pendingBefore, nSignal) == 0) {
                    sigset_t one;
                    sigemptyset(&one);
                    sigaddset(&one, nSignal);
                    while (sigtimedwait(&one, nullptr, &none) < 0 && errno == EINTR) {
                    }
                }
            }
            (void)pthread_sigmask(SIG_SETMASK, &m_oldMask, nullptr);
        }
        QuietSignals(const QuietSignals&) = delete;
        QuietSignals& operator=(const QuietSignals&) = delete;

    private:
        sigset_t m_signals;
        sigset_t m_oldMask;
        sigset_t m_pendingBefore;
    };

    // The stream, opened once more where that is what it takes to write without waiting: setting
    // O_NONBLOCK on nFd itself would set it for every process that shares the stream, and poll
    // alone is no promise while one of those may write in between.
    class Target {
    public:
        explicit Target(int nFd) : m_nFd(nFd) {
            struct stat status = {};
            const int nFlags = fcntl(nFd, F_GETFL);
            if (nFlags < 0 || fstat(nFd, &status) != 0) {
                return;  // every write will say so
            }
            m_id = {status.st_dev, status.st_ino};
            m_bSocket = S_ISSOCK(status.st_mode);
            m_bNeverWaits = m_bSocket || S_ISREG(status.st_mode) || (nFlags & O_NONBLOCK) != 0;
            const bool bMayStall =
                S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && isatty(nFd) == 1);
            if (!m_bNeverWaits && bMayStall && (nFlags & O_ACCMODE) != O_RDONLY) {
                // Not "self": its descriptors are gone once the first thread has ended.
                char szPath[40];
                (void)snprintf(szPath, sizeof(szPath), "/proc/thread-self/fd/%d", nFd);
                m_nOwnFd = open(szPath, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
            }
            if (m_nOwnFd >= 0) {
                m_nFd = m_nOwnFd;
                m_bNeverWaits = true;
            }
        }
        ~Target() {
            if (m_nOwnFd >= 0) {
                (void)close(m_nOwnFd);
            }
        }
        Target(const Target&) = delete;
        Target& operator=(const Target&) = delete;

        StreamId Id() const { return m_id; }

        // False where poll must be asked before every piece.
        bool NeverWaits() const { return m_bNeverWaits; }

        // Begun texts may wait until end, others not at all.
        bool WaitWritable(bool bBegun, Clock::time_point end) const {
            for (;;) {
                const auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
                if (bBegun && left.count() <= 0) {
                    return false;
                }
                pollfd fd = {m_nFd, POLLOUT, 0};
                const int nReady = poll(&fd, 1, bBegun ? static_cast<int>(left.count()) : 0);
                if (nReady >= 0 || errno != EINTR) {
                    return nReady > 0 && (fd.revents & POLLOUT) != 0;
                }
            }
        }

        // As write(2), perhaps less than nLength.
        ssize_t Write(const char* pText, size_t nLength) const {
            if (m_bSocket) {
                return send(m_nFd, pText, nLength, MSG_DONTWAIT | MSG_NOSIGNAL);
            }
            // What poll promises for a pipe: 4096 bytes fit without waiting.
            const bool bPiece = !m_bNeverWaits && nLength > 4096;
            return write(m_nFd, pText, bPiece ? 4096 : nLength);
        }

    private:
        int m_nFd;
        int m_nOwnFd = -1;
        StreamId m_id;
        bool m_bSocket = false;
        bool m_bNeverWaits = false;
    };

    // cut is set to the stream when the text ends within a line, and emptied when that is mended.
    static bool WriteLine(const Target& target, const std::string& strText, StreamId& cut) {
        size_t nDone = 0;
        if (cut != StreamId() && cut == target.Id()) {
            if (!WriteAll(target, "\n", 1, nDone)) {
                return false;
            }
            cut = StreamId();
            nDone = 0;
        }
        const bool bWritten = WriteAll(target, strText.data(), strText.size(), nDone);
        if (!bWritten && nDone > 0 && strText[nDone - 1] != '\n') {
            cut = target.Id();
        }
        return bWritten;
    }

    static bool WriteAll(const Target& target, const char* pText, size_t nLength, size_t& nDone) {
        const Clock::time_point end = Clock::now() + std::chrono::milliseconds(200);
        bool bAsk = !target.NeverWaits();
        while (nDone < nLength) {
            if (bAsk && !target.WaitWritable(nDone > 0, end)) {
                return false;
            }
            const ssize_t nWritten = target.Write(pText + nDone, nLength - nDone);
            if (nWritten > 0) {
                nDone += static_cast<size_t>(nWritten);
                bAsk = !target.NeverWaits();
            } else if (nWritten == 0 || (errno != EINTR && (errno != EAGAIN || nDone == 0))) {
                return false;
            } else {
                bAsk = bAsk || errno == EAGAIN;
            }
        }
        return true;
    }

    static inline std::mutex s_mutex;        // constant-initialised, trivially destroyed
    static inline StreamId s_cutStreams[4];  // guarded by s_mutex; a standard stream has its own
};

#endif
