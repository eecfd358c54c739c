#include "host/base/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "host/base/EscapedText.h"
#include "host/base/HumanText.h"
#include "host/base/WriteAll.h"

namespace {

bool IsTerminal(int nFd) {
    const char* const pszTerm = std::getenv("TERM");
    return isatty(nFd) == 1 && pszTerm != nullptr && std::strcmp(pszTerm, "dumb") != 0;
}

bool WantsColour() {
    const char* const pszNoColour = std::getenv("NO_COLOR");
    return pszNoColour == nullptr || *pszNoColour == '\0';
}

constexpr int STALL_WAIT_MS = 100;  // for standard error to be read, until it was not
constexpr size_t PIECE = 4096;      // what a pipe with any room takes whole

size_t TerminalWidth() {
    winsize size = {};
    const bool bKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return bKnown ? size.ws_col : 80;
}

}  // namespace

Console::Console()
    : m_bTerminal(IsTerminal(STDOUT_FILENO)),
      m_bColour(m_bTerminal && WantsColour()),
      m_bErrorTerminal(IsTerminal(STDERR_FILENO)) {}

Console::~Console() {
    Progress("");
    const MutexLock lock(m_mutex);
    if (m_ownOut) {
        (void)dup2(m_ownOut.Get(), STDOUT_FILENO);
    }
}

void Console::TakeStandardOutput() {
    // A low descriptor that is closed would be taken by the first file opened, a database perhaps.
    for (UniqueFd fd(open("/dev/null", O_RDWR)); fd; fd.Reset(open("/dev/null", O_RDWR))) {
        if (fd.Get() > STDERR_FILENO) {
            break;
        }
        (void)fd.Release();  // stays where it is
    }
    const MutexLock lock(m_mutex);
    UniqueFd own(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!m_ownOut && own) {
        m_ownOut = std::move(own);
        (void)dup2(STDERR_FILENO, STDOUT_FILENO);
    }
}

int Console::TerminalFd() const {
    const MutexLock lock(m_mutex);
    return m_bTerminal ? Out() : -1;
}

void Console::Line(const std::string& strLine) {
    const MutexLock lock(m_mutex);
    if (m_bBroken) {
        return;
    }
    if (m_pScreen != nullptr) {
        m_pScreen.load()->ScreenLine(strLine, false);
        return;
    }
    HideProgress();
    const int nError = WriteAll(Out(), strLine + "\n");
    if (nError != 0) {
        m_nBrokenError = nError;
        m_bBroken = true;
    }
    ShowProgress();
}

void Console::SetScreen(IScreen* pScreen) {
    const MutexLock lock(m_mutex);
    m_pScreen = pScreen;
}

void Console::Break(int nError) {
    const MutexLock lock(m_mutex);
    m_nBrokenError = m_bBroken ? m_nBrokenError : nError;
    m_bBroken = true;
}

void Console::Error(const std::string& strLine) {
    const MutexLock lock(m_mutex);
    if (m_pScreen != nullptr) {
        m_pScreen.load()->ScreenLine(strLine, true);
        if (m_bErrorTerminal) {
            return;
        }
    }
    HideProgress();
    if (m_nDropped > 0 && WriteError("\ntevmon-host: " + text::Count(m_nDropped, "line") +
                                     " left out here, because nobody read standard error\n")) {
        m_nDropped = 0;
    }
    m_nDropped += WriteError(strLine + "\n") ? 0 : 1;
    ShowProgress();
}

void Console::Complain(const std::string& strText) {
    Error("tevmon-host: " + text::ForTerminal(strText));
}

void Console::Progress(const std::string& strLine) {
    const MutexLock lock(m_mutex);
    if (!m_bErrorTerminal || m_pScreen != nullptr || strLine == m_strProgress) {
        return;
    }
    HideProgress();
    // A line that wrapped could not be taken away again.
    m_strProgress = strLine.substr(0, TerminalWidth() - 1);
    ShowProgress();
}

std::string Console::Paint(Colour eColour, const std::string& strText) const {
    static const char* const CODES[] = {"",         "\033[1m",  "\033[2m",
                                        "\033[32m", "\033[33m", "\033[31m"};
    return !m_bColour || m_pScreen != nullptr || eColour == COLOUR_NONE
               ? strText
               : CODES[eColour] + strText + "\033[0m";
}

std::string Console::BrokenReason() const {
    const MutexLock lock(m_mutex);
    return !m_bBroken || m_nBrokenError == EPIPE ? "" : std::strerror(m_nBrokenError);
}

// False when standard error is not read; an error counts as written, for there is nowhere to report
// it to. WriteAll waits in write where a descriptor blocks, as this one does: others share it, so
// it must stay as it is. A reader that is slow gets the whole text, in pieces that find room at
// once.
bool Console::WriteError(const std::string& strText) {
    size_t nDone = 0;
    while (nDone < strText.size()) {
        pollfd fd = {STDERR_FILENO, POLLOUT, 0};
        if (poll(&fd, 1, m_bErrorStalled ? 0 : STALL_WAIT_MS) == 0) {
            m_bErrorStalled = true;
            return false;
        }
        const size_t nPiece = std::min(PIECE, strText.size() - nDone);
        const ssize_t nWritten = write(STDERR_FILENO, strText.data() + nDone, nPiece);
        if (nWritten >= 0) {
            nDone += static_cast<size_t>(nWritten);
        } else if (errno != EINTR && errno != EAGAIN) {
            return true;
        }
    }
    m_bErrorStalled = false;
    return true;
}

void Console::HideProgress() {
    if (!m_strProgress.empty()) {
        (void)WriteError("\r\033[K");
    }
}

void Console::ShowProgress() {
    if (!m_strProgress.empty()) {
        (void)WriteError(m_strProgress);
    }
}
