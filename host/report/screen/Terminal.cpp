#include "host/report/screen/Terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>

#include "host/base/WriteAll.h"

namespace {

// Another screen, no cursor, lines that do not wrap; and back.
constexpr char ENTER[] = "\033[?1049h\033[?25l\033[?7l\033[2J";
constexpr char LEAVE[] = "\033[0m\033[?7h\033[?25h\033[?1049l";

constexpr std::chrono::milliseconds PATIENCE(500);  // with a terminal that takes nothing

constexpr int DEADLY[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr size_t DEADLY_COUNT = sizeof(DEADLY) / sizeof(DEADLY[0]);

// Of the open terminal; written before it is made known by the descriptor.
std::atomic<int> g_nOpen{-1};
bool g_bKeys = false;  // the keyboard was changed
termios g_keys = {};   // what it was
struct sigaction g_oldActions[DEADLY_COUNT];

void OnDeadlySignal(int nSignal) {
    Terminal::Restore();
    (void)raise(nSignal);  // the handler is gone already: ends the process as it would have
}

// What is typed is neither shown nor kept for the shell. Ctrl-C works, Ctrl-Z would leave the
// terminal as it is now.
void QuietKeys(int nFd) {
    g_bKeys = tcgetattr(nFd, &g_keys) == 0 && tcgetpgrp(nFd) == getpgrp();
    if (!g_bKeys) {
        return;
    }
    termios keys = g_keys;
    keys.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
    keys.c_cc[VSUSP] = _POSIX_VDISABLE;
    g_bKeys = tcsetattr(nFd, TCSANOW, &keys) == 0;
}

void SetHandlers() {
    struct sigaction action = {};
    action.sa_handler = OnDeadlySignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER | SA_ONSTACK);
    for (size_t i = 0; i < DEADLY_COUNT; ++i) {
        (void)sigaction(DEADLY[i], &action, &g_oldActions[i]);
    }
}

void ResetHandlers() {
    for (size_t i = 0; i < DEADLY_COUNT; ++i) {
        (void)sigaction(DEADLY[i], &g_oldActions[i], nullptr);
    }
}

}  // namespace

bool Terminal::Open(int nFd) {
    if (m_fd || g_nOpen >= 0) {
        return false;
    }
    // A description of its own can be non-blocking without making standard error so.
    const std::string strName = "/proc/self/fd/" + std::to_string(nFd);
    m_fd.Reset(open(strName.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!m_fd) {
        m_fd.Reset(open(strName.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    }
    if (!m_fd || isatty(m_fd.Get()) != 1) {
        Close();
        return false;
    }
    QuietKeys(m_fd.Get());
    SetHandlers();
    g_nOpen = m_fd.Get();
    return Write(ENTER);
}

void Terminal::Close() {
    if (!m_fd) {
        return;
    }
    if (g_nOpen == m_fd.Get()) {
        Restore();
        ResetHandlers();
    }
    m_fd.Reset();
}

void Terminal::Restore() {
    const int nFd = g_nOpen.exchange(-1);
    if (nFd < 0) {
        return;
    }
    const int nError = errno;
    (void)!write(nFd, LEAVE, sizeof(LEAVE) - 1);  // a terminal that is gone needs no care
    if (g_bKeys) {
        (void)tcsetattr(nFd, TCSANOW, &g_keys);
        (void)tcflush(nFd, TCIFLUSH);
    }
    errno = nError;
}

bool Terminal::Size(size_t& nColumns, size_t& nRows) const {
    winsize size = {};
    if (ioctl(m_fd.Get(), TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        return false;
    }
    nColumns = size.ws_col;
    nRows = size.ws_row;
    return true;
}

void Terminal::Draw(const std::vector<std::string>& lines) {
    const bool bWhole = m_drawn.size() != lines.size();
    std::string strText = bWhole ? "\033[0m\033[2J" : "";
    for (size_t i = 0; i < lines.size(); ++i) {
        if (bWhole || lines[i] != m_drawn[i]) {
            strText += "\033[" + std::to_string(i + 1) + ";1H\033[K" + lines[i];
        }
    }
    m_drawn = lines;
    if (!strText.empty() && !Write(strText)) {
        m_drawn.clear();  // nobody knows how much of it is there
    }
}

bool Terminal::Write(const std::string& strText) {
    const int nError = WriteAll(m_fd.Get(), strText, PATIENCE);
    m_bGone = m_bGone || (nError != 0 && nError != EAGAIN);
    return nError == 0;
}
