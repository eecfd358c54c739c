#include "host/module/ModuleStdout.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>
#include <utility>

ModuleStdout::ModuleStdout(Sink fnSink) : m_fnSink(std::move(fnSink)) {}

ModuleStdout::~ModuleStdout() {
    End();
}

bool ModuleStdout::Begin() {
    int fds[2] = {-1, -1};
    if (m_thread.joinable() || pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    m_read.Reset(fds[0]);
    UniqueFd writer(fds[1]);
    // Read to the last byte at the end, also when somebody still holds the other side.
    bool bReady = fcntl(m_read.Get(), F_SETFL, O_NONBLOCK) == 0;
    const bool bEnd = m_end.Open();
    m_saved.Reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    try {
        if (bReady && bEnd && m_saved) {
            m_thread = std::thread(&ModuleStdout::Read, this);
        }
    } catch (const std::system_error&) {  // no thread
    }
    bReady = m_thread.joinable() && dup2(writer.Get(), STDOUT_FILENO) == STDOUT_FILENO;
    writer.Reset();
    if (!bReady) {
        End();
    }
    return bReady;
}

void ModuleStdout::End() {
    if (m_saved) {
        (void)std::fflush(stdout);  // what the module left in the buffer is the module's
        (void)dup2(m_saved.Get(), STDOUT_FILENO);
    }
    if (m_thread.joinable()) {
        m_end.Wake();
        m_thread.join();
    }
    m_saved.Reset();
    m_read.Reset();
    m_end.Close();
}

void ModuleStdout::Read() {
    pthread_setname_np(pthread_self(), "host_modstdout");
    std::string strRest;  // a line that has no end yet
    bool bEnd = false;
    while (!bEnd) {
        pollfd fds[2] = {{m_read.Get(), POLLIN, 0}, {m_end.Fd(), POLLIN, 0}};
        (void)poll(fds, 2, WaitTime());
        bEnd = (fds[1].revents & POLLIN) != 0;
        try {
            while (ReadSome(strRest)) {
                Emit(m_repeats.Take(RepeatFilter::Clock::now()));
            }
            Emit(m_repeats.Take(RepeatFilter::Clock::now()));
        } catch (const std::exception&) {
            strRest.clear();  // no memory: these lines are lost, reading goes on
        }
        // Every writer is gone, which poll would report for ever.
        bEnd = bEnd || (fds[0].revents & (POLLIN | POLLHUP)) == POLLHUP;
    }
    try {
        if (!strRest.empty()) {
            m_repeats.Add(strRest, RepeatFilter::Clock::now());
        }
        Emit(m_repeats.TakeAll());
    } catch (const std::exception&) {  // as above
    }
}

// False when nothing is there at the moment. LineReader passes over what is too long and keeps an
// unfinished line until the descriptor ends; here every byte is shown, also when somebody holds the
// other side open.
bool ModuleStdout::ReadSome(std::string& strRest) {
    char szBuffer[16384];
    const ssize_t nRead = read(m_read.Get(), szBuffer, sizeof(szBuffer));
    if (nRead <= 0) {
        return false;
    }
    const auto now = RepeatFilter::Clock::now();
    for (ssize_t i = 0; i < nRead; ++i) {
        const bool bEnd = szBuffer[i] == '\n';
        if (!bEnd) {
            strRest += szBuffer[i];
        }
        const bool bPiece = !bEnd && strRest.size() >= MOST_BYTES;
        // The end of a line whose last piece was given is no line of its own.
        if (bPiece || (bEnd && !(m_bPieces && strRest.empty()))) {
            m_repeats.Add(strRest, now);
            Emit(m_repeats.Take(now));
            strRest.clear();
        }
        m_bPieces = bPiece || (m_bPieces && !bEnd);
    }
    return true;
}

void ModuleStdout::Emit(const std::vector<std::string>& lines) const {
    for (const std::string& strLine : lines) {
        m_fnSink(strLine);
    }
}

// In milliseconds, for poll.
int ModuleStdout::WaitTime() const {
    const auto due = m_repeats.Due();
    if (!due) {
        return -1;
    }
    const auto wait =
        std::chrono::ceil<std::chrono::milliseconds>(*due - RepeatFilter::Clock::now());
    return static_cast<int>(std::clamp<int64_t>(wait.count(), 0, RepeatFilter::HOLD.count()));
}
