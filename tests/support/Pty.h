// A terminal of a test's own: what is drawn on it is read at the other end.
#ifndef TESTS_SUPPORT_PTY_H
#define TESTS_SUPPORT_PTY_H

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "tests/support/Event.h"

class Pty {
public:
    Pty() : m_nMaster(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (m_nMaster >= 0 && grantpt(m_nMaster) == 0 && unlockpt(m_nMaster) == 0) {
            m_nTerminal = open(ptsname(m_nMaster), O_RDWR | O_NOCTTY | O_CLOEXEC);
        }
        Resize(80, 24);
    }
    ~Pty() {
        HangUp();
        close(m_nTerminal);
    }

    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    int Terminal() const { return m_nTerminal; }

    void Resize(unsigned short nColumns, unsigned short nRows) const {
        winsize size = {};
        size.ws_col = nColumns;
        size.ws_row = nRows;
        (void)ioctl(m_nMaster, TIOCSWINSZ, &size);
    }

    void HangUp() {
        if (m_nMaster >= 0) {
            close(m_nMaster);
            m_nMaster = -1;
        }
    }

    // What came since the last call, at least until strText is in it; until it hangs.
    std::string ReadUntil(const std::string& strText) const {
        const auto due = std::chrono::steady_clock::now() + HANGS_AFTER;
        std::string strAll;
        while (strAll.find(strText) == std::string::npos &&
               std::chrono::steady_clock::now() < due) {
            pollfd fd = {m_nMaster, POLLIN, 0};
            char szPart[4096];
            const ssize_t nRead =
                poll(&fd, 1, 100) > 0 ? read(m_nMaster, szPart, sizeof(szPart)) : 0;
            if (nRead < 0) {
                break;
            }
            strAll.append(szPart, static_cast<size_t>(nRead));
        }
        return strAll;
    }

private:
    int m_nMaster;
    int m_nTerminal = -1;
};

#endif
